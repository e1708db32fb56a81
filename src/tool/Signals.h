#pragma once

/// Opens /dev/null where standard input, output or error was closed at start, so that no device becomes one of them.
void fillStandardDescriptors();

/// SIGINT, SIGTERM, SIGHUP and SIGQUIT are noted. The system call they meet ends with EINTR; one that starts a moment
/// later does so within a tenth of a second. SIGPIPE is ignored: writing reports it.
void noteSignals();

bool signalled();

/// Throws Interrupted once a signal came.
void throwIfSignalled();
