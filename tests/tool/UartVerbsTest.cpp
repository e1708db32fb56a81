// The verbs for serial ports in this process, with a device at the other end that answers as each row says.

#include "FakeKernel.h"
#include "Terminals.h"
#include "base/Failure.h"
#include "uart/Values.h"

#include <sys/ioctl.h>

#include <atomic>
#include <thread>

namespace
{

struct Row {
    std::string title;
    std::vector<std::string> words;  ///< of the command, with PORT for the port
    std::string input;
    std::string sent;                  ///< what the device receives
    std::vector<std::string> answers;  ///< what it then sends, with pauses between them that end a burst
    int status;
    std::string out;
    std::string err;
};

std::string withPort(std::string text, const std::string& port)
{
    const size_t at = text.find("PORT");
    return at == std::string::npos ? text : text.replace(at, 4, port);
}

/// Answers when it has received what it waits for; if that is nothing, as soon as the port is set up.
class Answering
{
public:
    Answering(const Device& device, const Row& row)
        : thread{[&] {
              if (row.sent.empty())
                  waitUntil([&] { return device.isSetUp() || done; });
              got = readWhile(device.master, [&](const std::string& text) { return text.size() < row.sent.size(); });
              for (const std::string& answer : row.answers) {
                  device.send(answer);
                  poll(nullptr, 0, &answer == &row.answers.back() ? 0 : 150);
              }
          }}
    {
    }
    ~Answering() { whatItGot(); }
    Answering(const Answering&) = delete;
    Answering& operator=(const Answering&) = delete;

    std::string whatItGot()
    {
        done = true;
        if (thread.joinable())
            thread.join();
        return got;
    }

private:
    std::atomic<bool> done{false};
    std::string got;
    std::thread thread;
};

void expectOutcome(const Row& row)
{
    SCOPED_TRACE(row.title);
    const Device device;
    Answering answering{device, row};
    std::vector<std::string> words{"uart"};
    for (const std::string& word : row.words)
        words.push_back(withPort(word, device.name));
    const Outcome outcome = tool(words, row.input);
    EXPECT_EQ(row.sent, answering.whatItGot());
    EXPECT_EQ(row.status, outcome.status);
    EXPECT_EQ(row.out, outcome.out);
    EXPECT_EQ(withPort(row.err, device.name), outcome.err);
}

const std::string tryOther = "\n  try: another --baud or --eol, or check whether TX and RX are swapped\n";

const Row asked[] = {
    {"text with CR", {"ask", "PORT", "a", "b", "--timeout", "0.3"}, "", "a b\r", {"ok\n"}, 0, "ok\n", ""},
    {"escapes",
     {"ask", "PORT", R"(\x00\xff\t)", "--eol", "none", "--timeout", "0.3"},
     "",
     std::string("\0\xff\t", 3),
     {"ok"},
     0,
     "ok",
     ""},
    {"hex",
     {"ask", "PORT", "--hex", "de", "ad", "--timeout", "0.3"},
     "",
     "\xde\xad",
     {"\x01\x02", "\x03"},
     0,
     "01 02\n03\n",
     ""},
    {"standard input", {"ask", "PORT", "-", "--timeout", "0.3"}, "raw\n", "raw\n", {"ok"}, 0, "ok", ""},
    {"no answer: one second is the default",
     {"ask", "PORT", "a"},
     "",
     "a\r",
     {},
     1,
     "",
     "serialcomm: PORT: no answer within 1 s at 115200 8N1" + tryOther},
    {"any number of seconds",
     {"ask", "PORT", "a", "--timeout", "0.125"},
     "",
     "a\r",
     {},
     1,
     "",
     "serialcomm: PORT: no answer within 0.125 s at 115200 8N1" + tryOther},
    {"the first ending",
     {"ask", "PORT", "a", "--until", "ok", "--until", "error", "--timeout", "20"},
     "",
     "a\r",
     {"o", "k"},
     0,
     "ok",
     ""},
    {"the second ending",
     {"ask", "PORT", "a", "--until", "ok", "--until", "error", "--timeout", "20"},
     "",
     "a\r",
     {"err", "or"},
     12,
     "error",
     ""},
    {"the third ending, which is the first to come",
     {"ask", "PORT", "a", "--until", "c", "--until", "b", "--until", "a", "--timeout", "20"},
     "",
     "a\r",
     {"abc"},
     13,
     "abc",
     ""},
    {"an ending in hex",
     {"ask", "PORT", "--hex", "01", "--until", "0d 0a", "--timeout", "20"},
     "",
     "\x01",
     {"\r\n"},
     0,
     "0d 0a\n",
     ""},
    {"no ending",
     {"ask", "PORT", "a", "--until", "ok", "--until", "no", "--timeout", "0.3"},
     "",
     "a\r",
     {"o", "x"},
     1,
     "ox",
     "serialcomm: PORT: received 2 bytes, but no \"ok\" or \"no\" before the timeout of 0.3 s\n"},
    {"no ending before the deadline",
     {"ask", "PORT", "a", "--until", "ok", "--deadline", "0.2"},
     "",
     "a\r",
     {"x"},
     1,
     "x",
     "serialcomm: PORT: received 1 byte, but no \"ok\" before the deadline of 0.2 s\n"},
    {"a line", {"ask", "PORT", "a", "--line", "--timeout", "20"}, "", "a\r", {"\r\no", "k\r\nmore\r\n"}, 0, "ok\n", ""},
    {"a line as JSON",
     {"ask", "PORT", "a", "--line", "--json", "--timeout", "20"},
     "",
     "a\r",
     {"ok\r"},
     0,
     "{\"bytes\":[111,107],\"text\":\"ok\"}\n",
     ""},
    {"a line that does not end",
     {"ask", "PORT", "a", "--line", "--timeout", "0.3"},
     "",
     "a\r",
     {"ok"},
     1,
     "ok\n",
     "serialcomm: PORT: received 2 bytes, but no line end before the timeout of 0.3 s\n"},
    {"an echo", {"ask", "PORT", "ab", "--skip-echo", "--timeout", "0.3"}, "", "ab\r", {"a", "b\rok"}, 0, "ok", ""},
    {"an echo with LF added",
     {"ask", "PORT", "ab", "--skip-echo", "--timeout", "0.3"},
     "",
     "ab\r",
     {"ab\r\nok"},
     0,
     "ok",
     ""},
    {"nothing but an echo",
     {"ask", "PORT", "ab", "--skip-echo", "--timeout", "0.3"},
     "",
     "ab\r",
     {"ab\r"},
     1,
     "",
     "serialcomm: PORT: no answer within 0.3 s at 115200 8N1" + tryOther},
    {"an answer that begins like an echo",
     {"ask", "PORT", "ab", "--skip-echo", "--timeout", "0.3"},
     "",
     "ab\r",
     {"ab", "c"},
     0,
     "abc",
     ""},
    {"an answer like the beginning of an echo",
     {"ask", "PORT", "ab", "--skip-echo", "--timeout", "0.3"},
     "",
     "ab\r",
     {"a"},
     0,
     "a",
     ""},
    {"the question comes back later",
     {"ask", "PORT", "a", "--skip-echo", "--timeout", "0.3"},
     "",
     "a\r",
     {"a\rb", "a\r"},
     0,
     "ba\r",
     ""},
    {"a character split between two bursts",
     {"ask", "PORT", "a", "--json", "--timeout", "0.4"},
     "",
     "a\r",
     {"x\xe2\x82", "\xac y"},
     0,
     "{\"bytes\":[120,226,130],\"text\":\"x\"}\n{\"bytes\":[172,32,121],\"text\":\"\u20ac y\"}\n",
     ""},
    {"no UTF-8",
     {"ask", "PORT", "a", "--json", "--timeout", "0.3"},
     "",
     "a\r",
     {"\xff\x80"},
     0,
     "{\"bytes\":[255,128],\"text\":\"\ufffd\ufffd\"}\n",
     ""},
};

TEST(UartVerbs, Ask)
{
    for (const Row& row : asked)
        expectOutcome(row);
}

const Row read[] = {
    {"a number of bytes", {"read", "PORT", "3"}, "", "", {"abcd"}, 0, "abc", ""},
    {"fewer bytes",
     {"read", "PORT", "3", "--timeout", "0.3"},
     "",
     "",
     {"ab"},
     1,
     "ab",
     "serialcomm: PORT: received 2 of 3 bytes before the timeout of 0.3 s\n"},
    {"nothing",
     {"read", "PORT", "--timeout", "0.3", "-b", "9600", "--parity", "even", "--stop-bits", "2"},
     "",
     "",
     {},
     1,
     "",
     "serialcomm: PORT: nothing received within 0.3 s at 9600 8E2\n  try: another --baud, or check whether TX and RX "
     "are swapped\n"},
    {"a deadline while data comes",
     {"read", "PORT", "--deadline", "0.4"},
     "",
     "",
     {"a", "b", "c", "d", "e", "f"},
     0,
     "abc",
     ""},
    {"an ending", {"read", "PORT", "--until", "b", "--until", "c"}, "", "", {"a", "c"}, 12, "ac", ""},
    {"a line", {"read", "PORT", "--line"}, "", "", {"a", "b\nc"}, 0, "ab\n", ""},
};

TEST(UartVerbs, Read)
{
    for (const Row& row : read)
        expectOutcome(row);
}

const Row written[] = {
    {"text", {"write", "PORT", "a", "b", "--eol", "crlf"}, "", "a b\r\n", {}, 0, "", ""},
    {"standard input", {"write", "PORT", "-"}, "a\n", "a\n", {}, 0, "", ""},
    {"hex", {"write", "PORT", "--hex", "0x00ff"}, "", std::string("\0\xff", 2), {}, 0, "", ""},
};

TEST(UartVerbs, Write)
{
    for (const Row& row : written)
        expectOutcome(row);
}

/// The port is closed only when the driver's queue is empty, and then the chip's transmitter.
TEST(UartVerbs, WriteWaitsUntilTheDriverHasSentAll)
{
    FakeKernel kernel;
    kernel.outputQueue = {0, 1, 2, 3, 3};
    int looksUntilEmpty = 3;
    kernel.port = [&](unsigned long request, void* argument) -> std::optional<long> {
        if (request != TIOCSERGETLSR)
            return {};
        *static_cast<unsigned int*>(argument) = --looksUntilEmpty > 0 ? 0 : TIOCSER_TEMT;
        return 0;
    };
    expectOutcome({"text", {"write", "PORT", "abc"}, "", "abc\r", {}, 0, "", ""});
    EXPECT_TRUE(kernel.outputQueue.empty());
    EXPECT_EQ(0, looksUntilEmpty);
}

TEST(UartVerbs, WriteReportsThatSendingFailed)
{
    FakeKernel kernel;
    kernel.port = [](unsigned long request, void* /*argument*/) {
        return request == TCSBRK ? std::optional<long>{-EIO} : std::nullopt;
    };
    expectOutcome(
        {"text", {"write", "PORT", "abc"}, "", "abc\r", {}, 1, "", "serialcomm: PORT: sending: the port is gone\n"});
}

TEST(UartVerbs, NameWhyAPortDoesNotOpen)
{
    FakeKernel kernel;
    const auto port = std::make_shared<FakeSpi>();
    kernel.devices["/dev/ttyX"] = port;
    const struct {
        int error;
        const char* cause;
    } rows[] = {{EMFILE, "Too many open files"}, {EIO, "Input/output error"}};
    for (const auto& row : rows) {
        port->openError = row.error;
        const Outcome outcome = tool("uart read ttyX 1");
        EXPECT_EQ(3, outcome.status);
        EXPECT_EQ(std::string{"serialcomm: /dev/ttyX: "} + row.cause + '\n', outcome.err);
    }
}

TEST(UartVerbs, AskTakesALimitedQuestion)
{
    const ByteArray tooMuch(16 * 1024 * 1024 + 1, 'x');
    EXPECT_EQ("serialcomm: standard input: more than 16777216 bytes\n",
              tool({"uart", "ask", "ttyX", "-"}, {tooMuch.begin(), tooMuch.end()}).err);
}

/// The help shows the defaults that the parser uses.
TEST(UartVerbs, HelpNamesTheDefaultsThatAreUsed)
{
    const std::string help = tool("uart ask --help").out;
    for (const char* const line :
         {"Any baud rate; default: 115200", "Parity: none, even or odd; default: none", "Stop bits: 1 or 2; default: 1",
          "Line ending sent: cr, lf, crlf or none; default: cr",
          "Stop after this many seconds without data; default: 1", "opening discards waiting input"})
        EXPECT_NE(std::string::npos, help.find(line)) << line;
    EXPECT_EQ("61 0d  115200 8N1\n", tool("uart write ttyX a -n").out);
    EXPECT_EQ(std::string::npos, tool("uart read --help").out.find("without data; default"));
}

TEST(UartVerbs, BaudRates)
{
    const struct {
        const char* text;
        const char* message;
    } rows[] = {
        {"0", "baud rate 0: must be 1 to 4294967295"},
        {"4294967296", "baud rate 4294967296: must be 1 to 4294967295"},
        {"fast", "baud rate \"fast\": must be a decimal number, such as 115200"},
    };
    for (const auto& row : rows) {
        try {
            uart::parseBaudRate(row.text);
            ADD_FAILURE() << row.text;
        } catch (const Failure& failure) {
            EXPECT_EQ(row.message, failure.message);
        }
    }
    const std::string offered = tool("--complete uart read ttyX -b 9").out;
    EXPECT_EQ("9600\n921600\n", offered);
}

}  // namespace
