#include "base/Signals.h"

#include "base/Failure.h"

#include <fcntl.h>
#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace
{

volatile sig_atomic_t caught = 0;
timer_t again;

/// A signal may come just before a system call that then blocks: SIGALRM follows it up until the program has ended.
extern "C" void note(int number)
{
    if (number == SIGALRM)
        return;
    caught = number;
    const struct itimerspec tenth = {{0, 100'000'000}, {0, 100'000'000}};
    timer_settime(again, 0, &tenth, nullptr);
}

}  // namespace

void fillStandardDescriptors()
{
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
        if (fcntl(fd, F_GETFD) < 0 && open("/dev/null", fd == STDIN_FILENO ? O_RDONLY : O_WRONLY) != fd) {
            perror("serialcomm: /dev/null");
            std::exit(EXIT_FAILURE);
        }
    }
}

void noteSignals()
{
    timer_create(CLOCK_MONOTONIC, nullptr, &again);  // no record of the event wanted: SIGALRM

    struct sigaction action {
    };
    action.sa_handler = note;  // without SA_RESTART: system calls end with EINTR
    sigfillset(&action.sa_mask);
    for (const int number : {SIGINT, SIGTERM, SIGQUIT, SIGALRM})
        sigaction(number, &action, nullptr);

    struct sigaction hangup {
    };
    sigaction(SIGHUP, nullptr, &hangup);
    if (hangup.sa_handler != SIG_IGN)  // started by nohup
        sigaction(SIGHUP, &action, nullptr);

    action.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &action, nullptr);
}

bool signalled()
{
    return caught != 0;
}

void throwIfSignalled()
{
    if (signalled())
        throw Interrupted{caught};
}

void endBySignal(int number)
{
    signal(number, SIG_DFL);
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, number);
    sigprocmask(SIG_UNBLOCK, &blocked, nullptr);
    raise(number);
    _exit(128 + number);  // where the signal does not end a process, as the first one of a container
}
