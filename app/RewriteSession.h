#pragma once

#include "Capture.h"
#include "PopupHost.h"

#include <QObject>

#include <memory>

class AccessibilityHelper;
class PopupViewModel;
class PopupWindowController;
class PopupWindowFactory;
class Rewriter;
class Workspace;

// One rewrite from capture to its end: the captured text and where it came from (taken
// once, at capture), the popup that shows it with its request, tone and result, and
// Replace, Copy and Retry. Replace writes only where the text came from.
class RewriteSession : public QObject, public PopupHost
{
    Q_OBJECT

public:
    struct Services
    {
        AccessibilityHelper &textAccess;
        Workspace *workspace; // null where the desktop tells nothing about its windows
        Rewriter &rewriter;
        PopupWindowFactory &windows;
    };

    RewriteSession(const Capture &capture, const Services &services, QObject *parent = nullptr);
    ~RewriteSession() override;

    // Shows nothing to rewrite, only why (a text over the limit, for instance).
    void refuse(const QString &message);
    // Puts the popup on screen over the window the text came from.
    void showPopup();
    // Closes the popup and stops its request: a newer rewrite takes over.
    void end();

    const CaptureTarget &target() const { return m_target; }
    // Nothing of a Replace is still on its way; an ended session may go.
    bool isIdle() const { return m_replacing == 0; }
    PopupWindowController *popupWindowController() const { return m_popup.get(); }
    PopupViewModel *viewModel() const;

    // PopupHost
    void returnToPreviousApp(std::function<void(bool returned)> done) override;
    void replaceSelectedText(const QString &text, std::function<void(bool replaced)> done) override;
    void copyToClipboard(const QString &text) override;
    void checkReplace(std::function<void(const QString &refusal)> done) override;
    void openSettings() override;

Q_SIGNALS:
    void idle();
    void settingsRequested();

private:
    void replaceDone();
    void waitForCopiedText();

    const CaptureTarget m_target;
    AccessibilityHelper &m_textAccess;
    Workspace *m_workspace;
    std::unique_ptr<PopupWindowController> m_popup;
    int m_replacing = 0; // Replaces between the click and the text written or copied
};
