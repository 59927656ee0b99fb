#pragma once

#include <QString>

#include <functional>

// What a popup needs of the application around it. The controller implements it; the
// popup never includes the controller.
class PopupHost
{
public:
    virtual ~PopupHost() = default;

    // Gives the keyboard back to the window that was in front when the popup opened;
    // done(true) once it is in front again, done(false) when that cannot be done.
    virtual void returnToPreviousApp(std::function<void(bool returned)> done) = 0;
    // Writes the text over the selection of the window the popup came from, which must
    // be in front; when another window is, the text is left on the clipboard instead.
    virtual void replaceSelectedText(const QString &text, std::function<void(bool replaced)> done) = 0;
    virtual void copyToClipboard(const QString &text) = 0;
    // Why Replace cannot write where the text came from (a terminal, which gets no
    // synthesized paste; a handed text no longer selected there), in one sentence; empty
    // when it can. Asked while the popup is still open: Replace then copies instead, and
    // the popup stays to say so. done runs once, later or at once.
    virtual void checkReplace(std::function<void(const QString &refusal)> done) { done({}); }
    // Shows the settings window, for a failure that is fixed there; the popup goes.
    virtual void openSettings() { }
};
