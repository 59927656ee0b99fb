#pragma once

#include <QObject>
#include <QString>

#include <memory>

struct Capture;
class AccessibilityHelper;
class PopupWindowController;
class PopupWindowFactory;
class QQmlEngine;
class Rewriter;
class RewriteSession;
class Workspace;

// Where rewrite requests arrive (the shortcut, the tray menu, D-Bus) and become one
// rewrite session at a time. Requests cannot pile up: one that arrives while a capture
// is under way joins it, and a new session ends the one before it.
class RewriteSessions : public QObject
{
    Q_OBJECT

public:
    // More than this is not a selection to rewrite; it is refused before anything of
    // it reaches a window or the accessibility bus.
    static constexpr qsizetype maxTextLength = 100000;

    RewriteSessions(
        AccessibilityHelper &textAccess, Workspace *workspace, Rewriter &rewriter, QObject *parent = nullptr);
    ~RewriteSessions() override;

    // Captures the selection of the window in front and shows its rewrite.
    void triggerHumanize();
    // The D-Bus entry: a rewrite of text handed over by another program.
    void humanizeSelectedText(const QString &text);
    void showPopup(const Capture &capture);

    RewriteSession *session() const { return m_session.get(); }
    PopupWindowController *popupWindowController() const;
    static QString tooLongMessage(qsizetype length);

Q_SIGNALS:
    // A popup's error is fixed in Settings, and the user asked to go there.
    void settingsRequested();

private:
    PopupWindowFactory &popupWindows();
    void retire(std::unique_ptr<RewriteSession> session);

    AccessibilityHelper &m_textAccess;
    Workspace *m_workspace;
    Rewriter &m_rewriter;
    int m_captures = 0; // started; an answer for an earlier one is stale
    bool m_capturing = false;
    std::unique_ptr<QQmlEngine> m_popupEngine; // shared by all popups: no compile per popup
    std::unique_ptr<PopupWindowFactory> m_popupWindows;
    std::unique_ptr<RewriteSession> m_session;
};
