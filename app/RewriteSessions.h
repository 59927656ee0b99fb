#pragma once

#include "ReplaceUndo.h"
#include "RewriteSession.h"

#include <QObject>
#include <QRect>
#include <QString>

#include <memory>

class PopupWindowController;
class PopupWindowFactory;
class QmlEngine;
class UndoNotice;

// Where rewrite requests arrive (the shortcut, the tray menu, D-Bus) and become one
// rewrite session at a time, shown in its popup. Requests cannot pile up: one that
// arrives while a capture is under way joins it, and a new session ends the one before it.
class RewriteSessions : public QObject
{
    Q_OBJECT

public:
    static constexpr qsizetype maxTextLength = RewriteSession::maxTextLength;

    RewriteSessions(const RewriteSession::Services &services, QmlEngine &qml, QObject *parent = nullptr);
    ~RewriteSessions() override;

    // Captures the selection of the window in front and shows its rewrite.
    void triggerHumanize();
    // The D-Bus entry: a rewrite of text handed over by another program. false when the
    // text is refused (over the limit): the popup says so, and so does the caller's reply.
    bool humanizeSelectedText(const QString &text);
    // As triggerHumanize, with the user's own words instead of the tone (a saved
    // instruction's shortcut).
    void triggerWithInstruction(const QString &instruction);
    // A text rewritten again as it was before: `asked` is a tone's name or an instruction.
    bool rewriteAgain(const QString &text, const QString &asked);

    RewriteSession *session() const { return m_session.get(); }
    PopupWindowController *popupWindowController() const { return m_session ? m_popup : nullptr; }
    static QString tooLongMessage(qsizetype length) { return RewriteSession::tooLongMessage(length); }

    // Takes the last Replace back (the notice's Undo, the tray menu, D-Bus); the notice
    // says how it ended.
    void undoLastRewrite();
    bool canUndo() const { return m_undo.canUndo(); }
    UndoNotice *undoNotice() const { return m_notice.get(); }

Q_SIGNALS:
    // A popup's error is fixed in Settings, and the user asked to go there.
    void settingsRequested();
    // A rewrite ended with a text (every session's RewriteSession::finished).
    void rewriteFinished(
        const QString &original, const QString &result, const QString &tone, const QString &application);
    // Whether there is a Replace to take back.
    void canUndoChanged(bool canUndo);

private:
    std::unique_ptr<RewriteSession> newSession();
    void trigger(const QString &instruction);
    bool humanize(const QString &text, const QString &asked);
    void showPopup(RewriteSession *captured);
    PopupWindowFactory &popupWindows();
    void retire(std::unique_ptr<RewriteSession> session);
    void offerUndo(RewriteSession *replaced);
    UndoNotice &notice();

    const RewriteSession::Services m_services;
    QmlEngine &m_qml;
    std::unique_ptr<PopupWindowFactory> m_popupWindows;
    std::unique_ptr<RewriteSession> m_capturing; // joined by triggers until it has its text
    std::unique_ptr<RewriteSession> m_session; // the one shown
    PopupWindowController *m_popup = nullptr; // the view of m_session, which owns it
    ReplaceUndo m_undo;
    std::unique_ptr<UndoNotice> m_notice;
    QRect m_popupPlace; // where the last popup stood, for the notice after its Replace
    std::optional<RunningApplication> m_writtenInto; // the window of the last Replace
};
