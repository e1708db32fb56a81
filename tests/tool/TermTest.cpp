// The interactive session, between two pseudo-terminals: the one that it is operated from and the one behind which the
// device is.

#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <string.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace
{

using std::chrono::steady_clock;

/// Reads as long as the text is not whole; half a minute at most.
template <typename Condition>
std::string readWhile(int fd, Condition goesOn)
{
    std::string text;
    const auto deadline = steady_clock::now() + std::chrono::seconds{30};
    while (goesOn(text) && steady_clock::now() < deadline) {
        struct pollfd input = {fd, POLLIN, 0};
        char byte = 0;
        if (poll(&input, 1, 100) > 0 && read(fd, &byte, 1) == 1)
            text += byte;
    }
    return text;
}

std::string readUntil(int fd, const std::string& end)
{
    return readWhile(fd, [&](const std::string& text) {
        return text.size() < end.size() || text.compare(text.size() - end.size(), end.size(), end) != 0;
    });
}

/// The digits of a time of day are all the same.
std::string masked(std::string text)
{
    std::replace_if(
        text.begin(), text.end(), [](char any) { return any >= '0' && any <= '9'; }, '0');
    return text;
}

/// The master of a pseudo-terminal, raw on both sides.
struct Device {
    Device()
    {
        int slave = -1;
        std::array<char, 64> path{};
        EXPECT_EQ(0, openpty(&master, &slave, path.data(), nullptr, nullptr));
        name = path.data();
        fcntl(master, F_SETFD, FD_CLOEXEC);  // a session that held it open would never see it close
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

    int master = -1;
    std::string name;
};

/// serialcomm uart term on a terminal of its own.
class Term
{
public:
    explicit Term(const std::string& port, const std::vector<std::string>& options = {})
    {
        EXPECT_EQ(0, openpty(&screen, &terminal, nullptr, nullptr, nullptr));
        tcgetattr(terminal, &before);
        process = fork();
        if (process == 0) {
            for (const int fd : {0, 1, 2})
                dup2(terminal, fd);
            for (const int fd : {screen, terminal})
                close(fd);
            std::vector<std::string> words{SERIALCOMM, "uart", "term", port};
            words.insert(words.end(), options.begin(), options.end());
            std::vector<char*> arguments(words.size() + 1);
            std::transform(words.begin(), words.end(), arguments.begin(), [](auto& word) { return word.data(); });
            execv(arguments[0], arguments.data());
            _exit(127);
        }
    }
    ~Term()
    {
        if (process > 0) {
            kill(process, SIGKILL);
            waitpid(process, nullptr, 0);
        }
        close(screen);
        close(terminal);
    }
    Term(const Term&) = delete;
    Term& operator=(const Term&) = delete;

    void type(const std::string& keys) const
    {
        EXPECT_EQ(static_cast<ssize_t>(keys.size()), write(screen, keys.data(), keys.size()));
    }

    std::string shown(const std::string& end) const { return readUntil(screen, end); }

    std::string shown(size_t size) const
    {
        return readWhile(screen, [=](const std::string& text) { return text.size() < size; });
    }

    /// Reads slowly what is shown.
    void lookUntil(const std::atomic<bool>& done) const
    {
        std::array<char, 256> text{};
        while (!done) {
            struct pollfd input = {screen, POLLIN, 0};
            if (poll(&input, 1, 10) > 0) {
                EXPECT_LT(0, read(screen, text.data(), text.size()));
            }
            poll(nullptr, 0, 10);
        }
    }

    void terminate() const { kill(process, SIGTERM); }

    /// The exit status; the terminal has to be as it was.
    int ended()
    {
        int status = 0;
        const auto deadline = steady_clock::now() + std::chrono::seconds{30};
        pid_t done = 0;
        while ((done = waitpid(process, &status, WNOHANG)) == 0 && steady_clock::now() < deadline)
            poll(nullptr, 0, 10);
        if (done == 0)
            return -1;
        process = -1;
        struct termios after {
        };
        tcgetattr(terminal, &after);
        EXPECT_EQ(before.c_lflag, after.c_lflag);
        EXPECT_EQ(before.c_iflag, after.c_iflag);
        return WEXITSTATUS(status);
    }

private:
    int screen = -1;
    int terminal = -1;
    struct termios before {
    };
    pid_t process = -1;
};

constexpr auto endKey = "\x1d";
const std::string ready = "; Ctrl-] ends\r\n";

struct Row {
    std::string title;
    std::vector<std::string> options;
    std::string typed;
    std::string sent;      ///< what the device gets
    std::string answered;  ///< by the device
    std::string shown;
};

const Row rows[] = {
    {"keys go out as they are, Enter as CR", {}, "a\x03\r", "a\x03\r", "ok\r\n", "ok\r\r\n"},
    {"Enter sends the line end asked for", {"--eol", "crlf"}, "a\r", "a\r\n", ".", "."},
    {"local echo shows what is typed", {"-e"}, "ab\r", "ab\r", ".", "ab\r\n."},
    {"each line begins with its time", {"-t"}, "\r", "\r", "a\r\nb.", "[00:00:00.000] a\r\r\n[00:00:00.000] b."},
    {"hex in and out, a burst a line", {"--hex"}, "de a", "\xde", "\x01\x02", "01 02\r\n"},
    {"a digit alone is not sent", {"--hex", "-e"}, "1 23", "\x23", "\xff", "23\r\nff\r\n"},
};

TEST(Term, CarriesBothWays)
{
    for (const Row& row : rows) {
        SCOPED_TRACE(row.title);
        const Device device;
        Term term{device.name, row.options};
        EXPECT_EQ("serialcomm: " + device.name + " at 115200 8N1" + ready, term.shown(ready));
        term.type(row.typed);
        EXPECT_EQ(row.sent, readUntil(device.master, row.sent));
        device.send(row.answered);
        EXPECT_EQ(masked(row.shown), masked(term.shown(row.shown.size())));
        term.type(endKey);
        EXPECT_EQ(0, term.ended());
    }
}

TEST(Term, WaitsForThePortToComeBack)
{
    const std::string link = testing::TempDir() + "serialcomm-port-" + std::to_string(getpid());
    unlink(link.c_str());
    auto device = std::make_unique<Device>();
    ASSERT_EQ(0, symlink(device->name.c_str(), link.c_str()));
    Term term{link};
    term.shown(ready);
    device.reset();
    EXPECT_EQ("serialcomm: " + link + " is gone; waiting for it to come back, Ctrl-] ends\r\n", term.shown("ends\r\n"));

    const Device other;
    unlink(link.c_str());
    ASSERT_EQ(0, symlink(other.name.c_str(), link.c_str()));
    EXPECT_EQ("serialcomm: " + link + " is back\r\n", term.shown("\n"));
    term.type("x");
    EXPECT_EQ("x", readUntil(other.master, "x"));
    term.type(endKey);
    EXPECT_EQ(0, term.ended());
    unlink(link.c_str());
}

TEST(Term, EndsWhileThePortIsGone)
{
    auto device = std::make_unique<Device>();
    Term term{device->name};
    term.shown(ready);
    device.reset();
    term.shown("ends\r\n");
    term.type(endKey);
    EXPECT_EQ(0, term.ended());
}

TEST(Term, EndsWhileThePortTalksWithoutAPause)
{
    const Device device;
    Term term{device.name};
    term.shown(ready);
    fcntl(device.master, F_SETFL, O_RDWR | O_NONBLOCK);
    std::atomic<bool> done{false};
    std::thread talker{[&] {
        const std::string text(4096, 'x');
        while (!done) {
            struct pollfd output = {device.master, POLLOUT, 0};
            if (poll(&output, 1, 10) > 0) {
                EXPECT_NE(0, write(device.master, text.data(), text.size()));
            }
        }
    }};
    std::thread reader{[&] { term.lookUntil(done); }};
    poll(nullptr, 0, 300);
    term.type(endKey);
    EXPECT_EQ(0, term.ended());
    done = true;
    talker.join();
    reader.join();
}

TEST(Term, LeavesTheTerminalAsItWasAfterASignal)
{
    const Device device;
    Term term{device.name};
    term.shown(ready);
    term.terminate();
    EXPECT_EQ(128 + SIGTERM, term.ended());
}

TEST(Term, AppendsTheSessionToAFile)
{
    const std::string log = testing::TempDir() + "serialcomm-log-" + std::to_string(getpid());
    std::ofstream{log} << "before\n";
    const Device device;
    Term term{device.name, {"--log", log}};
    term.shown(ready);
    device.send("data\n");
    term.shown("data\r\n");
    term.type(endKey);
    EXPECT_EQ(0, term.ended());
    std::stringstream text;
    text << std::ifstream{log}.rdbuf();
    EXPECT_EQ("before\ndata\n", text.str());
    unlink(log.c_str());

    Term refused{device.name, {"--log", "/nowhere/log"}};
    EXPECT_EQ("serialcomm: /nowhere/log: No such file or directory\r\n", refused.shown("\n"));
    EXPECT_EQ(3, refused.ended());
}

}  // namespace
