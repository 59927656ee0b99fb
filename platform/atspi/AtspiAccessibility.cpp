#include "AtspiAccessibility.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusVariant>
#include <QElapsedTimer>
#include <QLoggingCategory>

using namespace Qt::StringLiterals;

Q_LOGGING_CATEGORY(lcAtspi, "tessary.platform.atspi", QtInfoMsg)

namespace {

const QString accessibleInterface = u"org.a11y.atspi.Accessible"_s;
const QString textInterface = u"org.a11y.atspi.Text"_s;
const QString editableTextInterface = u"org.a11y.atspi.EditableText"_s;
const QString registryService = u"org.a11y.atspi.Registry"_s;
const QString rootPath = u"/org/a11y/atspi/accessible/root"_s;
const QString nullPath = u"/org/a11y/atspi/null"_s;

// AT-SPI state bits (AtspiStateType)
constexpr int stateActive = 1;
constexpr int stateEditable = 7;
constexpr int stateFocused = 12;
constexpr int stateShowing = 25;

// Long enough for a busy editor, short enough that the user barely notices a hung one.
constexpr int callTimeoutMs = 250;
// Bounds the fallback search of an application's tree (large documents, long lists).
constexpr int treeWalkBudget = 600;
constexpr int treeWalkMs = 400;

QString elementKey(const Element &element)
{
    return element.service + u'\n' + element.path;
}

struct ObjectReference
{
    QString service;
    QDBusObjectPath path;
};

QList<ObjectReference> readReferences(const QVariant &value)
{
    QList<ObjectReference> references;
    const auto argument = value.value<QDBusArgument>();
    argument.beginArray();
    while (!argument.atEnd()) {
        ObjectReference reference;
        argument.beginStructure();
        argument >> reference.service >> reference.path;
        argument.endStructure();
        references.append(reference);
    }
    argument.endArray();
    return references;
}

} // namespace

AtspiAccessibility::AtspiAccessibility(QObject *parent)
    : QObject(parent)
{
    connectBus();
}

AtspiAccessibility::~AtspiAccessibility()
{
    if (m_bus)
        QDBusConnection::disconnectFromBus(m_bus->name());
}

bool AtspiAccessibility::connectBus()
{
    if (m_bus && m_bus->isConnected())
        return true;
    QDBusMessage request = QDBusMessage::createMethodCall(
        u"org.a11y.Bus"_s, u"/org/a11y/bus"_s, u"org.a11y.Bus"_s, u"GetAddress"_s);
    const QDBusMessage reply = QDBusConnection::sessionBus().call(request, QDBus::Block, 1000);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty()) {
        qCDebug(lcAtspi) << "no accessibility bus:" << reply.errorMessage();
        return false;
    }
    const QString address = reply.arguments().constFirst().toString();
    QDBusConnection bus = QDBusConnection::connectToBus(address, u"tessary-a11y"_s);
    if (!bus.isConnected()) {
        qCDebug(lcAtspi) << "cannot connect to the accessibility bus:" << bus.lastError().message();
        return false;
    }
    m_bus = bus;

    // Applications only send focus events that somebody has registered for.
    bus.connect(QString(), QString(), u"org.a11y.atspi.Event.Object"_s, u"StateChanged"_s, this,
        SLOT(onStateChanged(QDBusMessage)));
    QDBusMessage registration = QDBusMessage::createMethodCall(
        registryService, u"/org/a11y/atspi/registry"_s, u"org.a11y.atspi.Registry"_s, u"RegisterEvent"_s);
    registration << u"object:state-changed:focused"_s << QStringList() << QString();
    if (bus.call(registration, QDBus::Block, callTimeoutMs).type() == QDBusMessage::ErrorMessage) {
        // registries before 2.46 take the event name alone
        registration.setArguments({ u"object:state-changed:focused"_s });
        bus.call(registration, QDBus::Block, callTimeoutMs);
    }
    return true;
}

bool AtspiAccessibility::isTrusted(bool prompt)
{
    bool enabled = false;
    if (connectBus()) {
        QDBusMessage request = QDBusMessage::createMethodCall(
            u"org.a11y.Bus"_s, u"/org/a11y/bus"_s, u"org.freedesktop.DBus.Properties"_s, u"Get"_s);
        request << u"org.a11y.Status"_s << u"IsEnabled"_s;
        const QDBusMessage reply = QDBusConnection::sessionBus().call(request, QDBus::Block, 1000);
        enabled = reply.type() == QDBusMessage::ReplyMessage && !reply.arguments().isEmpty()
            && reply.arguments().constFirst().value<QDBusVariant>().variant().toBool();
        // GTK applications join the bus even when the desktop's switch is off; if any
        // did, reading and writing their text works.
        if (!enabled) {
            const auto apps = call({ registryService, rootPath }, accessibleInterface, u"GetChildren"_s);
            enabled = apps && !readReferences(apps->arguments().value(0)).isEmpty();
        }
    }
    if (!enabled && prompt)
        qCWarning(lcAtspi) << "The accessibility bus is off: turn on assistive technologies in the desktop's "
                              "accessibility settings (see README), then restart the applications to use.";
    return enabled;
}

std::optional<QDBusMessage> AtspiAccessibility::call(const Element &element, const QString &interface,
    const QString &method, const QVariantList &arguments, int timeoutMs)
{
    if (!m_bus)
        return std::nullopt;
    QDBusMessage request = QDBusMessage::createMethodCall(element.service, element.path, interface, method);
    request.setArguments(arguments);
    const QDBusMessage reply = m_bus->call(request, QDBus::Block, timeoutMs > 0 ? timeoutMs : callTimeoutMs);
    if (reply.type() != QDBusMessage::ReplyMessage) {
        qCDebug(lcAtspi) << method << "failed:" << reply.errorName();
        return std::nullopt;
    }
    return reply;
}

void AtspiAccessibility::onStateChanged(const QDBusMessage &message)
{
    const QVariantList args = message.arguments();
    if (args.size() < 2 || args.at(0).toString() != u"focused")
        return;
    // A loss is not forgotten: when the application's window comes back to the front
    // (our popup closing), focus returns to the same element, and a rewrite asked for at
    // that moment may come before the event saying so. Every candidate is checked for
    // the focused state when it is used.
    if (args.at(1).toInt() != 0)
        m_focusedPaths.insert(message.service(), message.path());
}

std::optional<quint32> AtspiAccessibility::pidOf(const QString &busName)
{
    if (const auto known = m_pids.constFind(busName); known != m_pids.cend())
        return *known;
    const auto reply = call({ u"org.freedesktop.DBus"_s, u"/org/freedesktop/DBus"_s },
        u"org.freedesktop.DBus"_s, u"GetConnectionUnixProcessID"_s, { busName });
    if (!reply || reply->arguments().isEmpty())
        return std::nullopt;
    const quint32 pid = reply->arguments().constFirst().toUInt();
    m_pids.insert(busName, pid);
    return pid;
}

std::optional<quint64> AtspiAccessibility::states(const Element &element)
{
    const auto reply = call(element, accessibleInterface, u"GetState"_s);
    if (!reply || reply->arguments().isEmpty())
        return std::nullopt;
    const auto argument = reply->arguments().constFirst().value<QDBusArgument>();
    QList<quint32> words;
    argument >> words;
    quint64 bits = 0;
    for (int i = 0; i < words.size() && i < 2; ++i)
        bits |= quint64(words.at(i)) << (32 * i);
    return bits;
}

bool AtspiAccessibility::isFocused(const Element &element)
{
    const auto bits = states(element);
    return bits && (*bits & (quint64(1) << stateFocused));
}

FocusResult AtspiAccessibility::focusedElement(const RunningApplication &app)
{
    if (auto found = focusedOnBus(app))
        return { AxError::Success, found };
    // Terminals and applications started without accessibility are not on the bus, yet
    // keys typed still reach their window: answer with the window as a whole, which has
    // no text to read or set, so that callers go on to the clipboard and keystrokes.
    return { AxError::Success, Element {} };
}

std::optional<Element> AtspiAccessibility::focusedOnBus(const RunningApplication &app)
{
    if (!connectBus())
        return std::nullopt;

    // The focus events we have seen, checked against the application's process.
    for (auto it = m_focusedPaths.cbegin(); it != m_focusedPaths.cend(); ++it) {
        const Element candidate { it.key(), it.value() };
        if (pidOf(candidate.service) == quint32(app.pid) && isFocused(candidate)) {
            qCDebug(lcAtspi) << "focus from events:" << candidate.path;
            return candidate;
        }
    }

    // Focus that moved before we listened: search the application's active window.
    const auto apps = call({ registryService, rootPath }, accessibleInterface, u"GetChildren"_s);
    if (!apps)
        return std::nullopt;
    QElapsedTimer clock;
    clock.start();
    for (const ObjectReference &reference : readReferences(apps->arguments().value(0))) {
        if (pidOf(reference.service) != quint32(app.pid))
            continue;
        int budget = treeWalkBudget;
        if (auto found = findFocused({ reference.service, reference.path.path() }, budget)) {
            qCDebug(lcAtspi) << "focus from the tree:" << found->path;
            m_focusedPaths.insert(found->service, found->path);
            return found;
        }
        if (clock.elapsed() > treeWalkMs)
            break;
    }
    return std::nullopt;
}

std::optional<Element> AtspiAccessibility::findFocused(const Element &root, int &budget)
{
    const auto children = call(root, accessibleInterface, u"GetChildren"_s);
    if (!children)
        return std::nullopt;
    for (const ObjectReference &reference : readReferences(children->arguments().value(0))) {
        if (--budget < 0)
            return std::nullopt;
        const Element child { reference.service, reference.path.path() };
        if (child.path == nullPath)
            continue;
        const auto bits = states(child);
        if (!bits)
            continue;
        if (*bits & (quint64(1) << stateFocused))
            return child;
        // Hidden parts (closed menus, other tabs) cannot hold the keyboard focus; of
        // the application's windows only the active one can.
        const bool isWindow = root.path == rootPath;
        if (!(*bits & (quint64(1) << stateShowing)) || (isWindow && !(*bits & (quint64(1) << stateActive))))
            continue;
        if (auto found = findFocused(child, budget))
            return found;
    }
    return std::nullopt;
}

std::optional<AtspiAccessibility::Selection> AtspiAccessibility::selection(const Element &element)
{
    const auto count = call(element, textInterface, u"GetNSelections"_s);
    if (!count || count->arguments().isEmpty())
        return std::nullopt;
    if (count->arguments().constFirst().toInt() < 1)
        return Selection {};
    const auto range = call(element, textInterface, u"GetSelection"_s, { 0 });
    if (!range || range->arguments().size() < 2)
        return std::nullopt;
    const int start = range->arguments().at(0).toInt();
    const int end = range->arguments().at(1).toInt();
    return Selection { qMin(start, end), qMax(start, end) };
}

std::optional<QString> AtspiAccessibility::text(const Element &element, int start, int end)
{
    const auto reply = call(element, textInterface, u"GetText"_s, { start, end });
    if (!reply || reply->arguments().isEmpty())
        return std::nullopt;
    return reply->arguments().constFirst().toString();
}

std::optional<QString> AtspiAccessibility::selectedText(const Element &element)
{
    if (element.path.isEmpty())
        return std::nullopt;
    const auto range = selection(element);
    if (!range)
        return std::nullopt;
    if (range->start == range->end)
        return QString();
    auto selected = text(element, range->start, range->end);
    if (selected)
        m_capturedSelections.insert(elementKey(element), *selected);
    return selected;
}

int AtspiAccessibility::setSelectedText(const Element &element, const QString &replacement)
{
    if (element.path.isEmpty())
        return AxError::AttributeUnsupported;
    const auto bits = states(element);
    if (!bits)
        return AxError::CannotComplete;
    if (!(*bits & (quint64(1) << stateEditable)))
        return AxError::AttributeUnsupported;
    const auto range = selection(element);
    if (!range)
        return AxError::AttributeUnsupported;

    int start = range->start;
    if (range->start == range->end) {
        // Nothing selected: the text goes in at the caret, as typing would put it.
        const auto caret = call(
            element, u"org.freedesktop.DBus.Properties"_s, u"Get"_s, { textInterface, u"CaretOffset"_s });
        if (!caret || caret->arguments().isEmpty())
            return AxError::CannotComplete;
        start = caret->arguments().constFirst().value<QDBusVariant>().variant().toInt();
    } else {
        // The user may have moved the selection since it was read; writing over a
        // different text than the one rewritten would destroy it.
        const auto captured = m_capturedSelections.constFind(elementKey(element));
        if (captured != m_capturedSelections.cend() && text(element, range->start, range->end) != *captured)
            return AxError::CannotComplete;
        const auto deleted
            = call(element, editableTextInterface, u"DeleteText"_s, { range->start, range->end });
        if (!deleted || !deleted->arguments().value(0).toBool())
            return AxError::AttributeUnsupported;
    }

    // GTK counts this length in bytes of UTF-8, other toolkits in characters; the byte
    // count is never shorter, so it is right for both.
    const auto inserted = call(element, editableTextInterface, u"InsertText"_s,
        { start, replacement, int(replacement.toUtf8().size()) });
    if (!inserted || !inserted->arguments().value(0).toBool())
        return AxError::CannotComplete;

    // Offsets count characters (code points) in GTK; some toolkits count UTF-16 units.
    const int codePoints = int(replacement.toUcs4().size());
    const auto written = text(element, start, start + codePoints);
    if (written != replacement && text(element, start, start + int(replacement.size())) != replacement) {
        qCDebug(lcAtspi) << "replacement not found where it was inserted";
        return AxError::CannotComplete;
    }
    m_capturedSelections.remove(elementKey(element));
    return AxError::Success;
}

void AtspiAccessibility::focusedElement(const RunningApplication &app, std::function<void(FocusResult)> done)
{
    done(focusedElement(app));
}

void AtspiAccessibility::selectedText(
    const Element &element, std::function<void(std::optional<QString>)> done)
{
    done(selectedText(element));
}

void AtspiAccessibility::setSelectedText(
    const Element &element, const QString &text, std::function<void(int)> done)
{
    done(setSelectedText(element, text));
}
