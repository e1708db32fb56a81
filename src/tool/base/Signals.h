#pragma once

/// Opens /dev/null where standard input, output or error was closed at start, so that no device becomes one of them.
void fillStandardDescriptors();

/// Every signal that would end the program is noted instead. The system call that is interrupted ends with EINTR; one
/// that starts just after does so within a tenth of a second. SIGPIPE is ignored: a write reports it.
void noteSignals();

bool signalled();

/// Throws Interrupted once a signal came.
void throwIfSignalled();

/// Calls `leave` before SIGTSTP stops the program or a fault ends it, and `enter` when it continues. Both run in a
/// signal handler. Null pointers end this.
void callAroundStop(void (*leave)(), void (*enter)());

/// Ends the program by the signal itself, so that a shell loop around it ends as well.
[[noreturn]] void endBySignal(int number);
