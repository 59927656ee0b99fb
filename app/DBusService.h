#pragma once

#include <QDBusContext>
#include <QObject>
#include <QString>

// The program on the session bus: app.tessary.Tessary at /app/tessary/Tessary, so
// other programs (a desktop shortcut running `tessary --trigger`, a file manager
// action, the menu entry's Settings action) can ask for a rewrite or for Settings.
// Owning the name also keeps the program to one instance per session.
class DBusService : public QObject, protected QDBusContext
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "app.tessary.Tessary")

public:
    static const QString serviceName;
    static const QString objectPath;

    // What a second start asks of the running instance.
    enum class Request { Trigger, ShowSettings };

    explicit DBusService(QObject *parent = nullptr);
    ~DBusService() override;

    // false when the bus is unreachable or another instance owns the name.
    bool registerService();
    // Asks the running instance; false when none answers. A Trigger with an instruction
    // rewrites with those words instead of the tone.
    static bool askRunningInstance(Request request, const QString &instruction = {});

public Q_SLOTS:
    // Opens the popup for this text, as the hotkey does after capturing it. A text over
    // the limit gets an error reply, besides the popup that says so.
    Q_SCRIPTABLE void HumanizeSelectedText(const QString &text);
    // Captures the selection of the window in front and opens the popup.
    Q_SCRIPTABLE void Trigger();
    // As Trigger, rewriting with the user's own words instead of the tone (what a saved
    // instruction's shortcut runs where the desktop binds the keys).
    Q_SCRIPTABLE void TriggerWithInstruction(const QString &instruction);
    // Opens the settings window, in front: desktops without a tray have no other way there.
    Q_SCRIPTABLE void ShowSettings();
    // Takes the last Replace back, as the tray menu's "Undo last rewrite" does; with
    // nothing to take back, an error reply says so.
    Q_SCRIPTABLE void UndoLastRewrite();

    // Not on the bus: whether there is a Replace to take back.
    void setUndoAvailable(bool available) { m_undoAvailable = available; }

Q_SIGNALS:
    void humanizeRequested(const QString &text);
    void triggerRequested();
    void triggerWithInstructionRequested(const QString &instruction);
    void settingsRequested();
    void undoRequested();

private:
    bool m_registered = false;
    bool m_undoAvailable = false;
};
