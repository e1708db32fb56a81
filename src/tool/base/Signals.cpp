#include "base/Signals.h"

#include "base/Failure.h"

#include <fcntl.h>
#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>

namespace
{

volatile sig_atomic_t caught = 0;
timer_t alarmTimer;
void (*leaveHook)() = nullptr;
void (*enterHook)() = nullptr;
std::array<struct sigaction, NSIG> oldActions;

bool isOneOf(int number, std::initializer_list<int> numbers)
{
    return std::find(numbers.begin(), numbers.end(), number) != numbers.end();
}

/// A signal may arrive just before a system call that then blocks, so a timer keeps sending SIGALRM to interrupt it.
extern "C" void recordSignal(int number, siginfo_t* info, void* /*context*/)
{
    if (number == SIGALRM && info->si_code == SI_TIMER)
        return;
    const bool isFault = isOneOf(number, {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS}) && info->si_code > 0;
    if (isFault) {  // raised again on return; ends the program
        if (leaveHook != nullptr)
            leaveHook();
        sigaction(number, &oldActions[static_cast<size_t>(number)], nullptr);
        return;
    }
    caught = number;
    const struct itimerspec tenth = {{0, 100'000'000}, {0, 100'000'000}};
    timer_settime(alarmTimer, 0, &tenth, nullptr);
}

extern "C" void stopProgram(int number)
{
    const int error = errno;
    leaveHook();
    struct sigaction handler {
    };
    struct sigaction byDefault {
    };
    sigset_t stops;
    sigemptyset(&stops);
    sigaddset(&stops, number);
    sigaction(number, &byDefault, &handler);
    raise(number);
    sigprocmask(SIG_UNBLOCK, &stops, nullptr);  // stops here, until SIGCONT
    sigprocmask(SIG_BLOCK, &stops, nullptr);
    sigaction(number, &handler, nullptr);
    errno = error;
}

extern "C" void continueProgram(int /*number*/)
{
    const int error = errno;
    enterHook();
    errno = error;
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

void catchSignals()
{
    timer_create(CLOCK_MONOTONIC, nullptr, &alarmTimer);  // without a sigevent: sends SIGALRM

    struct sigaction action {
    };
    action.sa_sigaction = recordSignal;
    action.sa_flags = SA_SIGINFO;  // without SA_RESTART: system calls end with EINTR
    sigfillset(&action.sa_mask);
    for (int number = 1; number < NSIG; ++number) {
        if (isOneOf(number, {SIGKILL, SIGSTOP, SIGTSTP, SIGTTIN, SIGTTOU, SIGCONT, SIGCHLD, SIGURG, SIGWINCH, SIGPIPE}))
            continue;
        struct sigaction& old = oldActions[static_cast<size_t>(number)];
        sigaction(number, &action, &old);
        const bool forUs =
            isOneOf(number, {SIGINT, SIGQUIT, SIGTERM, SIGALRM});  // a shell's background jobs ignore some
        if (old.sa_handler == SIG_IGN && !forUs)                   // such as SIGHUP, by nohup
            sigaction(number, &old, nullptr);
    }

    struct sigaction ignore {
    };
    ignore.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &ignore, nullptr);
}

void setStopHooks(void (*leave)(), void (*enter)())
{
    struct sigaction action {
    };
    sigfillset(&action.sa_mask);
    leaveHook = leave;
    enterHook = enter;
    action.sa_handler = leave == nullptr ? SIG_DFL : stopProgram;
    sigaction(SIGTSTP, &action, nullptr);
    action.sa_handler = enter == nullptr ? SIG_DFL : continueProgram;
    sigaction(SIGCONT, &action, nullptr);
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
    _exit(128 + number);  // if the signal does not end this process, such as PID 1 of a container
}
