#pragma once

#include <QObject>
#include <QStringList>

class KeyboardGrab;

// Ctrl+Alt+H for the whole desktop, through a key grab taken at launch: a grab needs no
// accessibility, so nothing waits for the accessibility bus. When the grab cannot be had
// (another program holds the shortcut), the tray says so and the menu still works.
class Shortcut : public QObject
{
    Q_OBJECT

public:
    // keyboardGrab is null where the desktop offers none (it runs `tessary --trigger`).
    explicit Shortcut(KeyboardGrab *keyboardGrab, QObject *parent = nullptr);
    ~Shortcut() override;

    // Takes the shortcut for the session.
    void startKeyGrab();
    // The decision for one key press, in Keys codes and flags: true when it was the
    // shortcut, whose rewrite is then queued (never run inside the key handler).
    bool handleEvent(int keyCode, quint64 flags);
    static bool isHotkey(int keyCode, quint64 flags);
    bool isRunning() const { return m_running; }
    // The saved instructions' own shortcuts: sequences[i] (a key sequence's portable text,
    // empty for none) rewrites the selection with instructions[i]. Taken with the grab,
    // and again whenever they change.
    void setInstructionShortcuts(const QStringList &instructions, const QStringList &sequences);

Q_SIGNALS:
    void triggered();
    void instructionTriggered(const QString &instruction);
    void availabilityChanged(bool available);

private:
    void grabInstructionShortcuts();

    KeyboardGrab *m_keyboardGrab;
    bool m_running = false; // Ctrl+Alt+H is ours
    bool m_started = false; // the grab was asked for
    QStringList m_instructions; // each with a shortcut, in the order of m_sequences
    QStringList m_sequences;
};
