// Verbs for serial ports in their own process: slow and absent programs at the other end, signals, much data.

#include "Terminals.h"

#include <atomic>
#include <cctype>
#include <cstdio>
#include <memory>
#include <thread>

namespace
{

std::string numbered(size_t size)
{
    std::string bytes(size, '\0');
    for (size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<char>(i * 7 + i / 256 + i / 65536);
    return bytes;
}

/// serialcomm that writes its input to a new pseudo-terminal.
class PtyWriter : public Piped
{
public:
    explicit PtyWriter(const std::string& bytes, uid_t user = 0)
        : Piped({"uart", "write", "pty", "-"}, user), giver{[this, bytes] {
              size_t given = 0;
              while (given < bytes.size()) {
                  const ssize_t count = write(input, bytes.data() + given, bytes.size() - given);
                  if (count <= 0)
                      break;
                  given += static_cast<size_t>(count);
              }
              endInput();
          }}
    {
        name = readUntil(output, "\n");
        name.resize(name.size() - std::min<size_t>(name.size(), 1));
    }
    ~PtyWriter() override
    {
        end();
        giver.join();
    }

    [[nodiscard]] int openSlave() const { return open(name.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC); }

    std::string name;

private:
    std::thread giver;
};

/// Reads up to `size` bytes at a time with a pause before each.
std::string readSlowly(int fd, size_t total, size_t size, int pauseMs)
{
    std::string bytes;
    std::string piece(size, '\0');
    while (bytes.size() < total) {
        poll(nullptr, 0, pauseMs);
        struct pollfd input = {fd, POLLIN, 0};
        if (poll(&input, 1, 20'000) <= 0)
            break;
        const ssize_t count = read(fd, piece.data(), piece.size());
        if (count <= 0)
            break;
        bytes.append(piece, 0, static_cast<size_t>(count));
    }
    return bytes;
}

struct Reader {
    std::string title;
    size_t total;
    int opensAfterMs;
    int readsAfterMs;
    size_t pieceSize;
    int pauseMs;
};

const Reader readers[] = {
    {"fast", 20'000, 0, 0, 4096, 0},
    {"fast, much", 1'000'000, 0, 0, 65536, 0},
    {"a few bytes at a time", 20'000, 0, 0, 97, 0},
    {"slow but steady, for longer than the limit for stalls", 20'000, 0, 0, 4096, 650},
    {"slow, much", 1'000'000, 0, 0, 4096, 2},
    {"opens later than the limit for stalls", 20'000, 5500, 0, 4096, 0},
    {"opens late, much", 1'000'000, 1500, 0, 4096, 0},
    {"reads late", 20'000, 0, 2500, 4096, 0},
    {"reads late, much", 1'000'000, 0, 2500, 65536, 0},
};

class PtyReaders : public testing::TestWithParam<Reader>
{
};

TEST_P(PtyReaders, GetEveryByte)
{
    const Reader& reader = GetParam();
    const std::string bytes = numbered(reader.total);
    PtyWriter writer{bytes};
    poll(nullptr, 0, reader.opensAfterMs);
    const int port = writer.openSlave();
    poll(nullptr, 0, reader.readsAfterMs);
    EXPECT_TRUE(bytes == readSlowly(port, bytes.size(), reader.pieceSize, reader.pauseMs));
    EXPECT_EQ(0, writer.ended());
    EXPECT_EQ("", readAll(writer.errors));
    close(port);
}

INSTANTIATE_TEST_SUITE_P(Uart, PtyReaders, testing::ValuesIn(readers), [](const auto& row) {
    std::string name = row.param.title + std::to_string(row.param.total);
    std::replace_if(
        name.begin(), name.end(), [](char any) { return isalnum(any) == 0; }, '_');
    return name;
});

TEST(PtyWrite, WaitsUntilThePortIsSetUp)
{
    PtyWriter writer{"hello"};
    const int port = writer.openSlave();
    poll(nullptr, 0, 300);
    tcflush(port, TCIOFLUSH);
    EXPECT_EQ("hello", readUntil(port, "hello"));
    EXPECT_EQ(0, writer.ended());
    close(port);
}

TEST(PtyWrite, ReportsWhatWasDiscarded)
{
    PtyWriter writer{"hello"};
    const int port = writer.openSlave();
    int waiting = 0;
    EXPECT_TRUE(waitUntil([&] { return ioctl(port, FIONREAD, &waiting) == 0 && waiting == 5; }));
    tcflush(port, TCIFLUSH);
    EXPECT_EQ("serialcomm: " + writer.name +
                  ": the other side discarded its input before reading everything; 0 bytes were sent, 5 were not\n",
              readAll(writer.errors));
    EXPECT_EQ(1, writer.ended());
    close(port);
}

TEST(PtyWrite, ReportsWhatWasNotReadAtTheEnd)
{
    const std::string bytes = numbered(20'000);
    PtyWriter writer{bytes};
    const int port = writer.openSlave();
    EXPECT_EQ(100U, readSlowly(port, 100, 100, 0).size());
    close(port);
    EXPECT_EQ("serialcomm: " + writer.name +
                  ": the other side closed the port before reading everything; 100 bytes were sent, 19900 were not\n",
              readAll(writer.errors));
    EXPECT_EQ(1, writer.ended());
}

TEST(PtyWrite, ReportsWhatNobodyReads)
{
    PtyWriter writer{"hello"};
    const int port = writer.openSlave();
    EXPECT_EQ("serialcomm: /dev/ptmx: nothing could be sent for 5 s at 115200 8N1; 0 bytes were sent, 5 were not\n",
              readAll(writer.errors));
    EXPECT_EQ(1, writer.ended());
    close(port);
}

TEST(PtyWrite, ReachesAProgramInCanonicalMode)
{
    std::string lines;
    for (int i = 0; i < 400; ++i)
        lines += "line " + std::to_string(i) + std::string(40, '.') + '\n';
    PtyWriter writer{lines};
    const int port = writer.openSlave();
    struct termios settings {
    };
    tcgetattr(port, &settings);
    settings.c_lflag |= ICANON;
    tcsetattr(port, TCSAFLUSH, &settings);
    EXPECT_TRUE(lines == readSlowly(port, lines.size(), 4096, 0));
    EXPECT_EQ(0, writer.ended());
    close(port);
}

TEST(PtyWrite, CountsALineWithoutItsEndAsUnread)
{
    PtyWriter writer{"hello"};
    const int port = writer.openSlave();
    struct termios settings {
    };
    tcgetattr(port, &settings);
    settings.c_lflag |= ICANON;
    tcsetattr(port, TCSAFLUSH, &settings);
    poll(nullptr, 0, 500);  // nothing is readable
    close(port);
    EXPECT_EQ("serialcomm: " + writer.name +
                  ": the other side closed the port before reading everything; 0 bytes were sent, 5 were not\n",
              readAll(writer.errors));
    EXPECT_EQ(1, writer.ended());
}

TEST(PtyWrite, ReachesAProgramThatReadsExclusively)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can run the program as another user";
    const std::string bytes = numbered(20'000);
    PtyWriter writer{bytes, 65534};
    const int port = writer.openSlave();
    EXPECT_EQ(0, ioctl(port, TIOCEXCL));
    poll(nullptr, 0, 1500);
    EXPECT_TRUE(bytes == readSlowly(port, bytes.size(), 4096, 10));
    EXPECT_EQ(0, writer.ended());
    EXPECT_EQ("", readAll(writer.errors));
    close(port);
}

/// More than the kernel accepts while nobody reads.
const std::string muchText(120'000, 'x');

TEST(Write, ContinuesAfterItWasStopped)
{
    const Device device;
    Piped writer{{"uart", "write", device.name, muchText, "--eol", "none"}};
    EXPECT_EQ("x", readUntil(device.master, "x"));
    writer.signal(SIGTSTP);
    ASSERT_TRUE(waitUntil([&] { return writer.changedTo(WUNTRACED); }));
    writer.signal(SIGCONT);
    ASSERT_TRUE(waitUntil([&] { return writer.changedTo(WCONTINUED); }));
    EXPECT_EQ(muchText.size() - 1, readSlowly(device.master, muchText.size() - 1, 4096, 0).size());
    EXPECT_EQ(0, writer.ended());
}

/// "N bytes were sent, M were not" at the end of a line, as N + M; 0 for any other line.
size_t accountedFor(const std::string& line)
{
    const size_t start = line.rfind("; ");
    unsigned long sent = 0;
    unsigned long notSent = 0;
    const bool parsed = start != std::string::npos &&
                        std::sscanf(line.c_str() + start, "; %lu bytes were sent, %lu were not", &sent, &notSent) == 2;
    return parsed && sent > 0 && notSent > 0 ? sent + notSent : 0;
}

TEST(Write, ReportsHowMuchWasSentWhenItIsInterrupted)
{
    const Device device;
    Piped writer{{"uart", "write", device.name, muchText, "--eol", "none"}};
    EXPECT_EQ("x", readUntil(device.master, "x"));
    writer.signal(SIGINT);
    const std::string errors = readAll(writer.errors);
    EXPECT_EQ(muchText.size(), accountedFor(errors)) << errors;
    EXPECT_EQ(128 + SIGINT, writer.ended());
}

TEST(Write, ReportsHowMuchWasSentWhenThePortDisappears)
{
    auto device = std::make_unique<Device>();
    Piped writer{{"uart", "write", device->name, muchText, "--eol", "none"}};
    const std::string some(8192, 'x');
    EXPECT_EQ(some, readUntil(device->master, some));
    device.reset();
    const std::string errors = readAll(writer.errors);
    EXPECT_EQ(muchText.size(), accountedFor(errors)) << errors;
    EXPECT_EQ(1, writer.ended());
}

TEST(Write, HasATimeLimit)
{
    const Device device;
    Piped writer{{"uart", "write", device.name, muchText, "--eol", "none"}};
    const std::string errors = readAll(writer.errors);
    EXPECT_NE(std::string::npos, errors.find("nothing could be sent for 5 s")) << errors;
    EXPECT_EQ(muchText.size(), accountedFor(errors));
    EXPECT_EQ(1, writer.ended());
}

/// The first bytes arrive before the last are known, and there is no limit to their number.
TEST(Write, Streams)
{
    const Device device;
    Piped writer{{"uart", "write", device.name, "-"}};
    writer.give("first");
    EXPECT_EQ("first", readUntil(device.master, "first"));
    const size_t total = size_t{17} * 1024 * 1024;
    std::thread giver{[&] {
        const std::string piece(65536, 'x');
        for (size_t given = 0; given < total; given += piece.size())
            writer.give(piece);
        writer.endInput();
    }};
    EXPECT_EQ(total, readSlowly(device.master, total, 65536, 0).size());
    giver.join();
    EXPECT_EQ(0, writer.ended());
}

/// Sends back what it receives, until it is told to end.
class Loop
{
public:
    explicit Loop(const Device& device)
        : thread{[this, &device] {
              fcntl(device.master, F_SETFL, O_RDWR | O_NONBLOCK);
              std::string waiting;
              std::string piece(4096, '\0');
              while (!done) {
                  struct pollfd port = {device.master, static_cast<short>(waiting.empty() ? POLLIN : POLLOUT), 0};
                  if (poll(&port, 1, 10) <= 0 || (port.revents & (POLLIN | POLLOUT)) == 0)
                      continue;
                  if (waiting.empty()) {
                      const ssize_t count = read(device.master, piece.data(), piece.size());
                      waiting.assign(piece, 0, static_cast<size_t>(std::max<ssize_t>(count, 0)));
                  } else {
                      const ssize_t count = write(device.master, waiting.data(), waiting.size());
                      waiting.erase(0, static_cast<size_t>(std::max<ssize_t>(count, 0)));
                  }
              }
          }}
    {
    }
    ~Loop()
    {
        done = true;
        thread.join();
    }
    Loop(const Loop&) = delete;
    Loop& operator=(const Loop&) = delete;

private:
    std::atomic<bool> done{false};
    std::thread thread;
};

TEST(Ask, ReceivesWhileItSends)
{
    const Device device;
    const Loop loop{device};
    const std::string bytes = numbered(102'400);
    Piped ask{{"uart", "ask", device.name, "-"}};
    std::thread giver{[&] {
        ask.give(bytes);
        ask.endInput();
    }};
    EXPECT_TRUE(bytes == readAll(ask.output));
    EXPECT_EQ(0, ask.ended());
    giver.join();
}

TEST(Pipe, TransfersBytesInBothDirections)
{
    const Device device;
    const Loop loop{device};
    const std::string bytes = numbered(102'400);
    for (const bool counted : {false, true}) {
        SCOPED_TRACE(counted);
        std::vector<std::string> words{"uart", "pipe", device.name};
        if (counted)
            words.insert(words.end(), {"--count", "102400"});
        Piped pipe{words};
        std::thread giver{[&] {
            pipe.give(bytes);
            if (!counted)
                pipe.endInput();
        }};
        EXPECT_TRUE(bytes == readAll(pipe.output));
        EXPECT_EQ(0, pipe.ended());
        EXPECT_EQ("", readAll(pipe.errors));
        giver.join();
    }
}

TEST(Pipe, ShowsItsProgressOnATerminal)
{
    const Device device;
    OnTerminal pipe{{"uart", "pipe", device.name}};
    EXPECT_TRUE(waitUntil([&] { return device.isSetUp(); }));
    poll(nullptr, 0, 1100);
    device.send("abc");
    EXPECT_EQ("abc\r\x1b[K0 bytes sent, 3 received", pipe.shown("received"));
    pipe.signal(SIGTERM);
    EXPECT_EQ(128 + SIGTERM, pipe.ended());
}

TEST(Pipe, ReportsMissingBytes)
{
    const Device device;
    Piped pipe{{"uart", "pipe", device.name, "--count", "5"}};
    pipe.give("?");
    EXPECT_EQ("?", readUntil(device.master, "?"));
    device.send("abc");
    pipe.endInput();
    EXPECT_EQ("abc", readAll(pipe.output));
    EXPECT_EQ("serialcomm: " + device.name + ": received 3 of 5 bytes before the timeout of 1 s\n",
              readAll(pipe.errors));
    EXPECT_EQ(1, pipe.ended());
}

TEST(Reading, ShowsTheBurstThatASignalInterrupts)
{
    const Device device;
    Piped read{{"uart", "read", device.name, "--hex"}};
    EXPECT_TRUE(waitUntil([&] { return device.isSetUp(); }));
    device.send("ab");
    EXPECT_TRUE(waitUntil([&] { return device.hasBeenRead(); }));
    read.signal(SIGTERM);
    EXPECT_EQ("61 62\n", readAll(read.output));
    EXPECT_EQ(128 + SIGTERM, read.ended());
}

TEST(Reading, ShowsTheBurstDuringWhichThePortDisappears)
{
    auto device = std::make_unique<Device>();
    Piped read{{"uart", "read", device->name, "--hex"}};
    EXPECT_TRUE(waitUntil([&] { return device->isSetUp(); }));
    device->send("ab");
    EXPECT_TRUE(waitUntil([&] { return device->hasBeenRead(); }));
    device.reset();
    EXPECT_EQ("61 62\n", readAll(read.output));
    EXPECT_EQ(1, read.ended());
}

struct Answer {
    std::string title;
    std::string text;
    std::string shown;
};

TEST(Answer, IsNotOverwrittenOnATerminal)
{
    const Answer rows[] = {
        {"with its line end", "ok\n", "ok\r\n"},
        {"without a line end", "ok", "ok\r\n"},
        {"with CR alone", "ok\r", "ok\r\r\n"},
        {"lines that end in CR", "one\rtwo\r", "one\r\r\ntwo\r\r\n"},
        {"lines that end in CR LF", "one\r\ntwo\r\n", "one\r\r\ntwo\r\r\n"},
    };
    for (const Answer& row : rows) {
        SCOPED_TRACE(row.title);
        const Device device;
        OnTerminal ask{{"uart", "ask", device.name, "?", "--timeout", "0.3"}};
        EXPECT_EQ("?\r", readUntil(device.master, "\r"));
        device.send(row.text);
        EXPECT_EQ(0, ask.ended());
        EXPECT_EQ(row.shown, ask.shownSoFar());
    }
}

}  // namespace
