#include "Shortcut.h"

#include "Platform.h"

#include <QLoggingCategory>

Q_LOGGING_CATEGORY(lcHotkey, "tessary.hotkey", QtInfoMsg)

namespace {
constexpr quint64 hotkeyFlagMask = Keys::Shift | Keys::Control | Keys::Alt | Keys::Super;
constexpr quint64 hotkeyFlags = Keys::Control | Keys::Alt;
} // namespace

Shortcut::Shortcut(KeyboardGrab *keyboardGrab, QObject *parent)
    : QObject(parent)
    , m_keyboardGrab(keyboardGrab)
{
}

Shortcut::~Shortcut()
{
    if (m_keyboardGrab)
        m_keyboardGrab->stop();
}

void Shortcut::startKeyGrab()
{
    m_running = m_keyboardGrab
        && m_keyboardGrab->start([this](int keyCode, quint64 flags) { return handleEvent(keyCode, flags); });
    if (!m_keyboardGrab) {
        qCInfo(lcHotkey) << "On this desktop Ctrl+Alt+H is bound in the desktop's own settings to"
                         << "`tessary --trigger`; Tessary's Settings (`tessary --settings`) show how.";
    } else if (!m_running) {
        qCWarning(lcHotkey) << "Ctrl+Alt+H is not available: another program holds it. Bind"
                            << "`tessary --trigger` to a shortcut in the desktop's settings instead.";
    }
    Q_EMIT availabilityChanged(m_running);
    m_started = m_keyboardGrab != nullptr;
    grabInstructionShortcuts();
}

void Shortcut::setInstructionShortcuts(const QStringList &instructions, const QStringList &sequences)
{
    QStringList kept;
    QStringList keys;
    for (qsizetype i = 0; i < instructions.size() && i < sequences.size(); ++i) {
        if (instructions.at(i).trimmed().isEmpty() || sequences.at(i).isEmpty())
            continue;
        kept.append(instructions.at(i).trimmed());
        keys.append(sequences.at(i));
    }
    if (kept == m_instructions && keys == m_sequences)
        return;
    m_instructions = kept;
    m_sequences = keys;
    grabInstructionShortcuts();
}

void Shortcut::grabInstructionShortcuts()
{
    // Also where another program holds Ctrl+Alt+H: the user's own keys may still be free.
    if (!m_started)
        return;
    // The words travel with the grab, so a press always rewrites with the instruction its key
    // was set for.
    const QStringList instructions = m_instructions;
    const bool taken = m_keyboardGrab->setShortcuts(m_sequences, [this, instructions](int index) {
        QMetaObject::invokeMethod(
            this,
            [this, instruction = instructions.value(index)] { Q_EMIT instructionTriggered(instruction); },
            Qt::QueuedConnection);
    });
    if (!taken && !m_sequences.isEmpty())
        qCInfo(lcHotkey) << "This desktop takes no further shortcuts from Tessary: bind"
                         << "`tessary --trigger --instruction WORDS` in its settings instead.";
}

bool Shortcut::isHotkey(int keyCode, quint64 flags)
{
    return keyCode == Keys::H && (flags & hotkeyFlagMask) == hotkeyFlags;
}

bool Shortcut::handleEvent(int keyCode, quint64 flags)
{
    if (!isHotkey(keyCode, flags))
        return false;
    // Capture can keep the event loop busy for a while; the key handler returns first.
    QMetaObject::invokeMethod(this, &Shortcut::triggered, Qt::QueuedConnection);
    return true;
}
