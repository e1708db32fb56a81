#pragma once

/// Opens /dev/null where standard input, output or error was closed at start, so that no device becomes one of them.
void fillStandardDescriptors();

/// Catches and records every signal that would end the program. The interrupted system call fails with EINTR; one that
/// starts just after the signal does so within 0.1 s. SIGPIPE is ignored: the write fails with EPIPE.
void catchSignals();

bool signalled();

/// Throws Interrupted if a signal was recorded.
void throwIfSignalled();

/// Calls `leave` before SIGTSTP stops the program or a fault ends it, and `enter` when it continues. Both run in a
/// signal handler. Null pointers remove them.
void setStopHooks(void (*leave)(), void (*enter)());

/// Ends the program by the signal itself, so that a shell loop around it ends as well.
[[noreturn]] void endBySignal(int number);
