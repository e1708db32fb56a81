// Why a command ends early: thrown where it is noticed, printed and turned into the exit status in main().
#pragma once

#include <string>

enum Status {
    Done = 0,
    TransferFailed = 1,
    WrongCommandLine = 2,
    CannotOpen = 3,
};

struct Failure {
    Status status;
    std::string message;
    std::string hint = {};
};

/// The program was told to end, by a signal or because nobody reads its output any more (SIGPIPE).
struct Interrupted {
    int signal;
};
