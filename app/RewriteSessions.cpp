#include "RewriteSessions.h"

#include "Characters.h"
#include "Log.h"
#include "PopupWindowController.h"
#include "PopupWindowFactory.h"
#include "QmlEngine.h"
#include "UndoNotice.h"

#include <QQuickWindow>

using namespace Qt::StringLiterals;

namespace {
constexpr Log::Literal tag = u"Service";

// A tone's name chooses that tone; anything else is the user's own instruction.
void ask(RewriteSession &session, const QString &asked)
{
    if (asked.isEmpty())
        return;
    if (RewriteSession::toneNames().contains(asked))
        session.selectTone(asked);
    else
        session.useInstruction(asked);
}
} // namespace

RewriteSessions::RewriteSessions(const RewriteSession::Services &services, QmlEngine &qml, QObject *parent)
    : QObject(parent)
    , m_services(services)
    , m_qml(qml)
    , m_undo(services.textAccess, services.workspace)
{
    connect(&m_undo, &ReplaceUndo::canUndoChanged, this, &RewriteSessions::canUndoChanged);
    connect(&m_undo, &ReplaceUndo::undone, this, [this](bool restored, const QString &message) {
        notice().say(message, false, !restored, m_popupPlace);
    });
}

// The sessions, with their popups, go before the factory their windows came from.
RewriteSessions::~RewriteSessions()
{
    m_capturing.reset();
    m_session.reset();
    qDeleteAll(findChildren<RewriteSession *>(Qt::FindDirectChildrenOnly));
}

std::unique_ptr<RewriteSession> RewriteSessions::newSession()
{
    auto session = std::make_unique<RewriteSession>(m_services);
    RewriteSession *created = session.get();
    connect(created, &RewriteSession::captured, this, [this, created] { showPopup(created); });
    connect(created, &RewriteSession::settingsRequested, this, &RewriteSessions::settingsRequested,
        Qt::QueuedConnection);
    connect(created, &RewriteSession::finished, this, &RewriteSessions::rewriteFinished);
    connect(created, &RewriteSession::closeRequested, this, [this, created] {
        if (created == m_session.get() && m_popup && m_popup->window())
            m_popupPlace = m_popup->window()->geometry();
    });
    connect(created, &RewriteSession::replaced, this, [this, created] { offerUndo(created); });
    return session;
}

void RewriteSessions::triggerHumanize()
{
    trigger({});
}

void RewriteSessions::triggerWithInstruction(const QString &instruction)
{
    trigger(instruction);
}

void RewriteSessions::trigger(const QString &instruction)
{
    if (m_capturing) {
        // Joins the capture under way, which rewrites with the words asked last.
        m_capturing->useInstruction(instruction);
        return;
    }
    m_capturing = newSession();
    m_capturing->useInstruction(instruction);
    // Nothing captured is no error: the popup then says that no text was selected.
    m_capturing->captureSelectedText();
}

bool RewriteSessions::humanizeSelectedText(const QString &text)
{
    return humanize(text, {});
}

bool RewriteSessions::rewriteAgain(const QString &text, const QString &asked)
{
    return humanize(text, asked);
}

bool RewriteSessions::humanize(const QString &text, const QString &asked)
{
    Log::write(u"🔧", tag, u"humanizeSelectedText called");
    if (text.isEmpty()) {
        Log::write(u"❌", tag, u"No text in pasteboard");
        return true;
    }
    // The latest handed text wins over a capture still under way.
    m_capturing = newSession();
    ask(*m_capturing, asked);
    if (text.size() > maxTextLength) {
        Log::write(u"❌", tag, { u"Text too long: ", text.size(), u" characters" });
        m_capturing->takeCapture({ text, {} });
        return false;
    }
    Log::write(u"🔧", tag, { u"Got text from service: ", Log::Private(Characters::first(text, 50)), u"..." });
    m_capturing->captureHandedText(text);
    return true;
}

void RewriteSessions::showPopup(RewriteSession *captured)
{
    if (captured != m_capturing.get())
        return;
    if (m_session) {
        m_session->end();
        retire(std::move(m_session));
    }
    if (m_notice)
        m_notice->close();
    m_session = std::move(m_capturing);
    Log::write(u"🎯", u"AppDelegate", { u"Stored previous app: ", Log::Public(m_session->applicationName()) });
    auto popup = std::make_unique<PopupWindowController>(*m_session, popupWindows());
    m_popup = popup.get();
    m_session->setView(std::move(popup));
    m_popup->showWindow(m_services.workspace);
    popupWindows().prepareNext(m_popup->window());
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

void RewriteSessions::offerUndo(RewriteSession *replaced)
{
    m_undo.remember(*replaced);
    if (const auto &place = replaced->writtenPlace())
        m_writtenInto = place->application;
    if (m_undo.canUndo())
        notice().say(tr("Replaced."), true, false, m_popupPlace);
}

void RewriteSessions::undoLastRewrite()
{
    if (m_notice)
        m_notice->close();
    m_undo.undo();
}

UndoNotice &RewriteSessions::notice()
{
    if (!m_notice) {
        m_notice = std::make_unique<UndoNotice>(m_qml.get());
        connect(m_notice.get(), &UndoNotice::undoRequested, this, &RewriteSessions::undoLastRewrite);
        // The keyboard goes back to where the user was typing; a click on Undo still
        // reaches the notice.
        connect(m_notice.get(), &UndoNotice::keyboardTaken, this, [this] {
            if (m_services.workspace && m_writtenInto)
                m_services.workspace->activate(*m_writtenInto, [](bool) {});
        });
    }
    return *m_notice;
}

PopupWindowFactory &RewriteSessions::popupWindows()
{
    if (!m_popupWindows)
        m_popupWindows = std::make_unique<PopupWindowFactory>(m_qml.get());
    return *m_popupWindows;
}
