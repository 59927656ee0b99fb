#include "RewriteSession.h"

#include "AccessibilityHelper.h"
#include "Log.h"
#include "PopupViewModel.h"
#include "PopupWindowController.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QQuickWindow>

using namespace Qt::StringLiterals;

namespace {
constexpr Log::Literal tag = u"AppDelegate";

QString nameOrUnknown(const std::optional<RunningApplication> &app)
{
    return app && !app->name.isEmpty() ? app->name : u"Unknown"_s;
}
} // namespace

RewriteSession::RewriteSession(const Capture &capture, const Services &services, QObject *parent)
    : QObject(parent)
    , m_target(capture.target)
    , m_textAccess(services.textAccess)
    , m_workspace(services.workspace)
    , m_popup(std::make_unique<PopupWindowController>(
          capture.text.value_or(QString()), services.rewriter, this, services.windows))
{
    // Replace goes on after the popup has closed, through this session: it must stay
    // until the text is written or copied.
    connect(viewModel(), &PopupViewModel::replaceStarted, this, [this] { ++m_replacing; });
    if (m_target.method == CaptureTarget::Method::Copied)
        waitForCopiedText();
}

void RewriteSession::waitForCopiedText()
{
    refuse(tr("This application does not share its selection on this desktop: copy the text "
              "(Ctrl+C), and it is rewritten here."));
    // The clipboard reaches a window only while it has the keyboard: look when the popup
    // gets it, and again whenever the user copies while it is open.
    const auto look = [this] {
        const QString copied = QGuiApplication::clipboard()->text();
        if (!copied.isEmpty() && viewModel()->originalText().isEmpty())
            viewModel()->takeText(copied);
    };
    connect(QGuiApplication::clipboard(), &QClipboard::dataChanged, this, look);
    if (QQuickWindow *window = m_popup->window())
        connect(window, &QWindow::activeChanged, this, look);
}

RewriteSession::~RewriteSession() = default;

PopupViewModel *RewriteSession::viewModel() const
{
    return m_popup->viewModel();
}

void RewriteSession::refuse(const QString &message)
{
    viewModel()->showNotice(message);
}

void RewriteSession::showPopup()
{
    Log::write(u"🎯", tag, { u"Stored previous app: ", Log::Public(nameOrUnknown(m_target.application)) });
    m_popup->showWindow();
    // A tray program is not the active application: ask for the focus explicitly, so
    // the popup takes the keyboard (Escape, Ctrl+Enter) at once.
    if (m_workspace && m_popup->window())
        m_workspace->activateSelf(m_popup->window());
}

void RewriteSession::end()
{
    m_popup->close();
    viewModel()->stop();
}

void RewriteSession::returnToPreviousApp(std::function<void(bool returned)> done)
{
    if (!m_target.application) {
        Log::write(u"❌", tag, u"No previous app stored");
        done(false);
        return;
    }
    const QString name = nameOrUnknown(m_target.application);
    Log::write(u"🎯", tag, { u"Returning to: ", Log::Public(name) });
    if (!m_workspace) {
        done(false);
        return;
    }
    m_workspace->activate(*m_target.application, [name, done = std::move(done)](bool active) {
        if (!active)
            Log::write(u"❌", tag, { u"Could not bring back: ", Log::Public(name) });
        done(active);
    });
}

void RewriteSession::replaceSelectedText(const QString &text, std::function<void(bool replaced)> done)
{
    // Where the text may not be written (the selection there has changed, the window is
    // gone), the rewrite is not lost: it waits on the clipboard.
    m_textAccess.replaceSelectedText(text, m_target, [this, text, done = std::move(done)](bool replaced) {
        if (!replaced)
            QGuiApplication::clipboard()->setText(text);
        done(replaced);
        replaceDone();
    });
}

void RewriteSession::copyToClipboard(const QString &text)
{
    // The user's own copy: plain text that clipboard managers may keep.
    QGuiApplication::clipboard()->setText(text);
    // Also where a Replace ends when the window it was for did not come back.
    if (!isIdle())
        replaceDone();
}

void RewriteSession::replaceDone()
{
    if (m_replacing > 0 && --m_replacing == 0)
        Q_EMIT idle();
}

void RewriteSession::openSettings()
{
    end();
    Q_EMIT settingsRequested();
}

void RewriteSession::checkReplace(std::function<void(const QString &refusal)> done)
{
    if (m_target.method == CaptureTarget::Method::Primary) {
        done(tr("Terminals get no synthesized paste: the rewrite is on the clipboard, paste it with "
                "Ctrl+Shift+V."));
        return;
    }
    if (m_target.method == CaptureTarget::Method::Copied) {
        done(tr("This desktop lets no program type into another: the rewrite is on the clipboard, paste "
                "it with Ctrl+V."));
        return;
    }
    m_textAccess.isStillSelected(m_target, [name = nameOrUnknown(m_target.application), done](bool selected) {
        done(selected
                ? QString()
                : tr("The text is no longer selected in %1: the rewrite is on the clipboard.").arg(name));
    });
}
