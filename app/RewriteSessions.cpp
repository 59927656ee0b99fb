#include "RewriteSessions.h"

#include "AccessibilityHelper.h"
#include "Log.h"
#include "PopupViewModel.h"
#include "PopupWindowController.h"
#include "PopupWindowFactory.h"
#include "RewriteSession.h"

#include <QLocale>
#include <QPointer>
#include <QQmlEngine>
#include <QQuickWindow>
#include <QTextBoundaryFinder>

using namespace Qt::StringLiterals;

namespace {
constexpr Log::Literal tag = u"Service";

// The first count user-perceived characters, so a log line never splits an emoji.
QString firstCharacters(const QString &text, int count)
{
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    qsizetype end = 0;
    for (int i = 0; i < count; ++i) {
        end = finder.toNextBoundary();
        if (end == -1)
            return text;
    }
    return text.first(end);
}
} // namespace

RewriteSessions::RewriteSessions(
    AccessibilityHelper &textAccess, Workspace *workspace, Rewriter &rewriter, QObject *parent)
    : QObject(parent)
    , m_textAccess(textAccess)
    , m_workspace(workspace)
    , m_rewriter(rewriter)
{
}

// The sessions go before the factory and engine their windows came from.
RewriteSessions::~RewriteSessions()
{
    m_session.reset();
    qDeleteAll(findChildren<RewriteSession *>(Qt::FindDirectChildrenOnly));
}

PopupWindowController *RewriteSessions::popupWindowController() const
{
    return m_session ? m_session->popupWindowController() : nullptr;
}

QString RewriteSessions::tooLongMessage(qsizetype length)
{
    return tr("This text is too long to rewrite: %1 characters, where %2 is the most. Select a shorter part.")
        .arg(QLocale().toString(length), QLocale().toString(maxTextLength));
}

void RewriteSessions::triggerHumanize()
{
    if (m_capturing)
        return; // joins the capture under way
    m_capturing = true;
    const int capture = ++m_captures;
    // Nothing captured is no error: the popup then says that no text was selected.
    m_textAccess.captureSelectedText([self = QPointer(this), capture](const Capture &captured) {
        if (!self || capture != self->m_captures)
            return;
        self->m_capturing = false;
        self->showPopup(captured);
    });
}

void RewriteSessions::humanizeSelectedText(const QString &text)
{
    Log::write(u"🔧", tag, u"humanizeSelectedText called");
    if (text.isEmpty()) {
        Log::write(u"❌", tag, u"No text in pasteboard");
        return;
    }
    if (text.size() > maxTextLength) {
        Log::write(u"❌", tag, { u"Text too long: ", text.size(), u" characters" });
        showPopup({ text, {} });
        return;
    }
    Log::write(u"🔧", tag, { u"Got text from service: ", Log::Private(firstCharacters(text, 50)), u"..." });
    // The latest handed text wins over a capture still under way.
    m_capturing = false;
    const int capture = ++m_captures;
    m_textAccess.captureHandedText(text, [self = QPointer(this), capture](const Capture &captured) {
        if (self && capture == self->m_captures)
            self->showPopup(captured);
    });
}

void RewriteSessions::showPopup(const Capture &capture)
{
    const bool tooLong = capture.text && capture.text->size() > maxTextLength;
    Capture shown = capture;
    // Only the start of a refused text goes on: enough to recognise it by.
    if (tooLong)
        shown.text = capture.text->first(PopupViewModel::previewLength);
    if (m_session) {
        m_session->end();
        retire(std::move(m_session));
    }
    m_session = std::make_unique<RewriteSession>(
        shown, RewriteSession::Services { m_textAccess, m_workspace, m_rewriter, popupWindows() });
    connect(m_session.get(), &RewriteSession::settingsRequested, this, &RewriteSessions::settingsRequested,
        Qt::QueuedConnection);
    if (tooLong)
        m_session->refuse(tooLongMessage(capture.text->size()));
    m_session->showPopup();
    popupWindows().prepareNext(m_session->popupWindowController()->window());
}

// An ended session goes once its popup is out of the way and no Replace of it is still
// writing; never inside the call that ended it.
void RewriteSessions::retire(std::unique_ptr<RewriteSession> session)
{
    RewriteSession *ended = session.release();
    ended->setParent(this);
    if (ended->isIdle())
        ended->deleteLater();
    else
        connect(ended, &RewriteSession::idle, ended, &QObject::deleteLater);
}

PopupWindowFactory &RewriteSessions::popupWindows()
{
    if (!m_popupWindows) {
        m_popupEngine = std::make_unique<QQmlEngine>();
        m_popupWindows = std::make_unique<PopupWindowFactory>(*m_popupEngine);
    }
    return *m_popupWindows;
}
