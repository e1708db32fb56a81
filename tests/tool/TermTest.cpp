// The interactive session, between two pseudo-terminals: one for the user, one for the device.

#include "Terminals.h"

#include <sys/file.h>
#include <sys/resource.h>

#include <atomic>
#include <fstream>
#include <sstream>
#include <thread>

namespace
{

/// Replaces all digits by 0, so that times of day compare equal.
std::string masked(std::string text)
{
    std::replace_if(
        text.begin(), text.end(), [](char any) { return any >= '0' && any <= '9'; }, '0');
    return text;
}

class Term : public OnTerminal
{
public:
    explicit Term(const std::string& port, const std::vector<std::string>& options = {})
        : OnTerminal(wordsFor(port, options))
    {
    }

    /// Reads the output slowly.
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

private:
    static std::vector<std::string> wordsFor(const std::string& port, const std::vector<std::string>& options)
    {
        std::vector<std::string> words{"uart", "term", port};
        words.insert(words.end(), options.begin(), options.end());
        return words;
    }
};

constexpr auto endKey = "\x1d";
const std::string ready = "; Ctrl-] ends\r\n";

struct Row {
    std::string title;
    std::vector<std::string> options;
    std::string typed;
    std::string sent;      ///< what the device receives
    std::string answered;  ///< by the device
    std::string shown;
};

const Row rows[] = {
    {"keys are sent unchanged, Enter as CR", {}, "a\x03\r", "a\x03\r", "ok\r\n", "ok\r\r\n"},
    {"Enter sends the requested line ending", {"--eol", "crlf"}, "a\r", "a\r\n", ".", "."},
    {"local echo shows what is typed", {"-e"}, "ab\r", "ab\r", ".", "ab\r\n."},
    {"each line begins with its time", {"-t"}, "\r", "\r", "a\r\nb.", "[00:00:00.000] a\r\r\n[00:00:00.000] b."},
    {"hex in and out, one line per burst", {"--hex"}, "de a", "\xde", "\x01\x02", "01 02\r\n"},
    {"a digit alone is not sent", {"--hex", "-e"}, "1 23", "\x23", "\xff", "23\r\nff\r\n"},
};

TEST(Term, TransfersInBothDirections)
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

TEST(Term, EndsWhileThePortSendsWithoutAPause)
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
    term.signal(SIGTERM);
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

TEST(Term, RestoresTheTerminalWhileItIsStopped)
{
    const Device device;
    Term term{device.name};
    term.shown(ready);
    term.signal(SIGTSTP);
    ASSERT_TRUE(waitUntil([&] { return term.changedTo(WUNTRACED); }));
    EXPECT_TRUE(term.isAsBefore());
    term.signal(SIGCONT);
    ASSERT_TRUE(waitUntil([&] { return !term.isAsBefore(); }));
    term.type("\x03");  // no signal, but a key
    EXPECT_EQ("\x03", readUntil(device.master, "\x03"));
    term.type(endKey);
    EXPECT_EQ(0, term.ended());
}

TEST(Term, LeavesNothingInRawModeAfterAnySignal)
{
    const struct rlimit noCore = {0, 0};
    setrlimit(RLIMIT_CORE, &noCore);
    const std::vector<int> others = {SIGKILL, SIGSTOP, SIGTSTP, SIGTTIN,  SIGTTOU,
                                     SIGCONT, SIGCHLD, SIGURG,  SIGWINCH, SIGPIPE};
    const Device device;
    const struct termios before = device.settings();
    for (int number = 1; number < NSIG; ++number) {
        const bool isReserved = number > SIGSYS && number < SIGRTMIN;
        if (isReserved || std::find(others.begin(), others.end(), number) != others.end())
            continue;
        SCOPED_TRACE(number);
        Term term{device.name};
        term.shown(ready);
        term.signal(number);
        EXPECT_EQ(128 + number, term.ended());
        EXPECT_EQ(before.c_lflag, device.settings().c_lflag);
        EXPECT_EQ(before.c_cflag, device.settings().c_cflag);
    }
}

TEST(Term, ReportsWhoUsesThePortThatIsBack)
{
    const std::string link = testing::TempDir() + "serialcomm-used-" + std::to_string(getpid());
    unlink(link.c_str());
    auto device = std::make_unique<Device>();
    ASSERT_EQ(0, symlink(device->name.c_str(), link.c_str()));
    Term term{link};
    term.shown(ready);
    device.reset();
    term.shown("ends\r\n");

    const Device other;
    const int user = open(other.name.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_EQ(0, flock(user, LOCK_EX));
    unlink(link.c_str());
    ASSERT_EQ(0, symlink(other.name.c_str(), link.c_str()));
    EXPECT_EQ("serialcomm: " + link + " is back but in use by tool_uart_test (process " + std::to_string(getpid()) +
                  ")\r\n",
              term.shown("\n"));
    close(user);
    EXPECT_EQ("serialcomm: " + link + " is back\r\n", term.shown("\n"));
    term.type(endKey);
    EXPECT_EQ(0, term.ended());
    unlink(link.c_str());
}

TEST(Term, EndsWhenItsInputEndsWhileThePortIsGone)
{
    auto device = std::make_unique<Device>();
    Piped term{{"uart", "term", device->name}};
    readUntil(term.errors, "Ctrl-] ends\n");
    const std::string name = device->name;
    device.reset();
    readUntil(term.errors, "ends\n");
    term.give("hello\n");
    term.endInput();
    EXPECT_EQ("serialcomm: " + name +
                  " is gone: unplugged, or closed at the other side; 6 bytes of the input were not sent\n",
              readAll(term.errors));
    EXPECT_EQ(1, term.ended());
}

TEST(Term, KeepsPipedInputWhileThePortIsGone)
{
    const std::string link = testing::TempDir() + "serialcomm-kept-" + std::to_string(getpid());
    unlink(link.c_str());
    auto device = std::make_unique<Device>();
    ASSERT_EQ(0, symlink(device->name.c_str(), link.c_str()));
    Piped term{{"uart", "term", link}};
    readUntil(term.errors, "Ctrl-] ends\n");
    device.reset();
    readUntil(term.errors, "ends\n");
    term.give("hello\n");
    const Device other;
    unlink(link.c_str());
    ASSERT_EQ(0, symlink(other.name.c_str(), link.c_str()));
    EXPECT_EQ("hello\r", readUntil(other.master, "\r"));
    term.endInput();
    EXPECT_EQ(0, term.ended());
    unlink(link.c_str());
}

TEST(Term, PassesEveryByteThatIsPiped)
{
    const Device device;
    Piped term{{"uart", "term", device.name}};
    term.give("a\x1d"
              "b\n");
    EXPECT_EQ("a\x1d"
              "b\r",
              readUntil(device.master, "\r"));
    term.endInput();
    EXPECT_EQ(0, term.ended());
}

TEST(Term, KeepsPipedInputUntilAProgramOpensThePort)
{
    Piped term{{"uart", "term", "pty"}};
    const std::string name = readUntil(term.output, "\n");
    term.give("hello\n");
    term.endInput();
    poll(nullptr, 0, 1200);  // longer than the wait for an answer
    const int port = open(name.substr(0, name.size() - 1).c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    EXPECT_EQ("hello\r", readUntil(port, "\r"));
    EXPECT_EQ(0, term.ended());
    close(port);
}

TEST(Term, EndsTheLastLine)
{
    const Device device;
    Term term{device.name};
    term.shown(ready);
    device.send("ok\r");
    term.shown("ok\r");
    term.type(endKey);
    EXPECT_EQ("\r\n", term.shown("\n"));
    EXPECT_EQ(0, term.ended());
}

}  // namespace
