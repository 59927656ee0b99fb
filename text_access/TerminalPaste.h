#pragma once

#include "Platform.h"

#include <QString>

#include <optional>

// Terminal emulators pass Ctrl+C and Ctrl+V to the program running inside them, where
// Ctrl+C interrupts the job: they are never sent a synthesized copy or paste. Their
// selection is read from PRIMARY, and a rewrite is left on the clipboard and on PRIMARY
// for the user to paste with the key that terminal knows.
struct TerminalPaste
{
    enum class Keys {
        ShiftInsert, // the X terminals of old: Shift+Insert or the middle button paste PRIMARY
        CtrlShiftV, // every newer terminal: Ctrl+Shift+V pastes the clipboard
    };

    Keys keys = Keys::CtrlShiftV;

    // How the user pastes there, for a sentence: "Shift+Insert or the middle button".
    QString howToPaste() const;
};

// The paste of app's terminal, known by its window class (or its name where it has none);
// nullopt when app is not a terminal.
std::optional<TerminalPaste> terminalPaste(const RunningApplication &app);

inline bool isTerminal(const RunningApplication &app)
{
    return terminalPaste(app).has_value();
}
