#pragma once

#include <QObject>

#include <chrono>

class Accessibility;
class KeyboardGrab;

// Ctrl+Alt+H for the whole desktop, through a key grab. When the grab cannot be had
// (another program holds the shortcut), the tray says so and the menu still works.
class Shortcut : public QObject
{
    Q_OBJECT

public:
    // Either backend may be missing: the desktop then offers no key grab, or no
    // accessibility bus to wait for. pollInterval: how often the wait looks again.
    Shortcut(KeyboardGrab *keyboardGrab, Accessibility *accessibility, std::chrono::milliseconds pollInterval,
        QObject *parent = nullptr);
    ~Shortcut() override;

    // Takes the shortcut for the session.
    void startKeyGrab();
    // The decision for one key press, in Keys codes and flags: true when it was the
    // shortcut, whose rewrite is then queued (never run inside the key handler).
    bool handleEvent(int keyCode, quint64 flags);
    static bool isHotkey(int keyCode, quint64 flags);
    // Looks again after each interval until other programs' text can be reached, then
    // takes the shortcut. Never prompts, prints nothing.
    void pollAccessibilityPermission();
    bool isRunning() const { return m_running; }

Q_SIGNALS:
    void triggered();
    void availabilityChanged(bool available);

private:
    KeyboardGrab *m_keyboardGrab;
    Accessibility *m_accessibility;
    std::chrono::milliseconds m_pollInterval;
    bool m_running = false;
};
