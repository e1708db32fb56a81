// Why a command ends early: thrown where the cause is known, printed and turned into the exit status in one place.
#pragma once

#include <string>

enum Status : int {
    Done = 0,
    TransferFailed = 1,
    WrongCommandLine = 2,
    CannotOpen = 3,
};

struct Failure {
    Status status;
    std::string message;    ///< object, cause
    std::string hint = {};  ///< remedy: "try: ..."
};

/// A signal asked the program to end, or nobody reads its output any more (SIGPIPE).
struct Interrupted {
    int signal;
};

/// Ends a successful command with an exit status that tells a script what it found.
struct ExitStatus {
    int status;
};
