#pragma once

#include "Platform.h"

// Terminal emulators pass Ctrl+C to the program running inside them, where it interrupts
// the job; they are never sent a synthesized copy or paste.
bool isTerminal(const RunningApplication &app);
