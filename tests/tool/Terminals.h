// Programs under test, and the other ends of their ports and terminals. All functions that wait do so for an event, for
// at most half a minute.
#pragma once

#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <functional>
#include <string>
#include <vector>

using std::chrono::steady_clock;

/// Writing to a program that has ended fails instead of ending the test.
inline const auto oldPipeAction = signal(SIGPIPE, SIG_IGN);

/// Reads while the condition holds, for at most half a minute.
template <typename Condition>
std::string readWhile(int fd, Condition goesOn)
{
    std::string text;
    const auto deadline = steady_clock::now() + std::chrono::seconds{30};
    while (goesOn(text) && steady_clock::now() < deadline) {
        struct pollfd input = {fd, POLLIN, 0};
        char byte = 0;
        if (poll(&input, 1, 100) <= 0)
            continue;
        const ssize_t count = read(fd, &byte, 1);
        if (count == 0)
            break;        // closed
        if (count < 0) {  // no program has the other side of the terminal open
            poll(nullptr, 0, 5);
            continue;
        }
        text += byte;
    }
    return text;
}

inline std::string readUntil(int fd, const std::string& end)
{
    return readWhile(fd, [&](const std::string& text) {
        return text.size() < end.size() || text.compare(text.size() - end.size(), end.size(), end) != 0;
    });
}

/// Reads until it is closed.
inline std::string readAll(int fd)
{
    return readWhile(fd, [](const std::string& /*text*/) { return true; });
}

inline bool waitUntil(const std::function<bool()>& condition)
{
    const auto deadline = steady_clock::now() + std::chrono::seconds{30};
    bool holds = condition();
    while (!holds && steady_clock::now() < deadline) {
        poll(nullptr, 0, 5);
        holds = condition();
    }
    return holds;
}

/// The master of a pseudo-terminal, raw on both sides.
struct Device {
    Device()
    {
        int slave = -1;
        std::array<char, 64> path{};
        EXPECT_EQ(0, openpty(&master, &slave, path.data(), nullptr, nullptr));
        name = path.data();
        fcntl(master, F_SETFD, FD_CLOEXEC);  // a session that inherited it would never see it close
        struct termios raw {
        };
        tcgetattr(slave, &raw);
        cfmakeraw(&raw);
        tcsetattr(slave, TCSANOW, &raw);
        close(slave);
    }
    ~Device() { close(master); }
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;

    void send(const std::string& text) const
    {
        EXPECT_EQ(static_cast<ssize_t>(text.size()), write(master, text.data(), text.size()));
    }

    [[nodiscard]] struct termios settings() const
    {
        struct termios now {
        };
        tcgetattr(master, &now);
        return now;
    }

    /// Whether a program has set up the port; bytes sent before are discarded.
    [[nodiscard]] bool isSetUp() const { return (settings().c_cflag & CLOCAL) != 0; }

    /// Whether the other side has read all sent bytes.
    [[nodiscard]] bool hasBeenRead() const
    {
        const int slave = open(name.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
        struct pollfd input = {slave, POLLIN, 0};
        const bool read = poll(&input, 1, 0) == 0;
        close(slave);
        return read;
    }

    int master = -1;
    std::string name;
};

/// A running serialcomm; the destructor ends it.
class Process
{
public:
    Process() = default;
    virtual ~Process() { end(); }
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    /// Ends it, if it still runs.
    void end()
    {
        if (number <= 0)
            return;
        kill(number, SIGKILL);
        waitpid(number, nullptr, 0);
        number = 0;
    }

    /// Only while it runs: kill() takes 0 and -1 for more than one process.
    void signal(int which) const
    {
        ASSERT_GT(number, 0) << "the process has ended";
        kill(number, which);
    }

    /// Whether it has been stopped or continued since the last call.
    [[nodiscard]] bool changedTo(int state) const
    {
        return number > 0 && waitpid(number, nullptr, state | WNOHANG) == number;
    }

    /// The exit status as a shell reports it; -1 if it does not end.
    virtual int ended()
    {
        int status = 0;
        if (number <= 0 || !waitUntil([&] { return waitpid(number, &status, WNOHANG) == number; }))
            return -1;
        number = 0;
        return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    }

protected:
    /// In a process group of its own, so that SIGTSTP stops it.
    void start(std::vector<std::string> words, const std::array<int, 3>& streams, uid_t user = 0)
    {
        words.insert(words.begin(), SERIALCOMM);
        std::vector<char*> arguments(words.size() + 1);
        std::transform(words.begin(), words.end(), arguments.begin(), [](auto& word) { return word.data(); });
        number = fork();
        EXPECT_GE(number, 0);
        if (number != 0)
            return;
        setpgid(0, 0);
        for (size_t fd = 0; fd < streams.size(); ++fd)
            dup2(streams[fd], static_cast<int>(fd));
        for (int fd = 3; fd < 64; ++fd)
            close(fd);
        if (user == 0 || setuid(user) == 0)
            execv(arguments[0], arguments.data());
        _exit(127);
    }

private:
    pid_t number = 0;
};

/// With pipes for its standard streams.
class Piped : public Process
{
public:
    explicit Piped(const std::vector<std::string>& words, uid_t user = 0)
    {
        std::array<int, 2> in{};
        std::array<int, 2> out{};
        std::array<int, 2> err{};
        for (auto* const ends : {&in, &out, &err})
            EXPECT_EQ(0, pipe2(ends->data(), O_CLOEXEC));
        start(words, {in[0], out[1], err[1]}, user);
        input = in[1];
        output = out[0];
        errors = err[0];
        for (const int fd : {in[0], out[1], err[1]})
            close(fd);
    }
    ~Piped() override
    {
        endInput();
        close(output);
        close(errors);
    }

    void give(const std::string& text) const
    {
        EXPECT_EQ(static_cast<ssize_t>(text.size()), write(input, text.data(), text.size()));
    }

    void endInput()
    {
        if (input >= 0)
            close(input);
        input = -1;
    }

    int input = -1;
    int output = -1;
    int errors = -1;
};

/// With its own terminal.
class OnTerminal : public Process
{
public:
    explicit OnTerminal(const std::vector<std::string>& words)
    {
        EXPECT_EQ(0, openpty(&screen, &terminal, nullptr, nullptr, nullptr));
        before = settings();
        start(words, {terminal, terminal, terminal});
    }
    ~OnTerminal() override
    {
        close(screen);
        close(terminal);
    }

    void type(const std::string& keys) const
    {
        EXPECT_EQ(static_cast<ssize_t>(keys.size()), write(screen, keys.data(), keys.size()));
    }

    std::string shown(const std::string& end) const { return readUntil(screen, end); }

    std::string shown(size_t size) const
    {
        return readWhile(screen, [=](const std::string& text) { return text.size() < size; });
    }

    [[nodiscard]] std::string shownSoFar() const
    {
        std::string text;
        char byte = 0;
        struct pollfd input = {screen, POLLIN, 0};
        while (poll(&input, 1, 0) > 0 && read(screen, &byte, 1) == 1)
            text += byte;
        return text;
    }

    /// Whether the terminal is as it was before the program started.
    [[nodiscard]] bool isAsBefore() const
    {
        const struct termios now = settings();
        return now.c_lflag == before.c_lflag && now.c_iflag == before.c_iflag;
    }

    int ended() override
    {
        const int status = Process::ended();
        EXPECT_TRUE(isAsBefore());
        return status;
    }

protected:
    int screen = -1;

private:
    [[nodiscard]] struct termios settings() const
    {
        struct termios now {
        };
        tcgetattr(terminal, &now);
        return now;
    }

    int terminal = -1;
    struct termios before {
    };
};
