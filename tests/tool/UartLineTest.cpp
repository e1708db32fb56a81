// What the verbs do with a Line: settings, modem lines, error counters, and the self-tests. The port is a
// pseudo-terminal; FakeUart answers the requests that a pseudo-terminal does not support.

#include "FakeKernel.h"
#include "Terminals.h"
#include "uart/OpenLine.h"
#include "uart/Values.h"

#include <linux/serial.h>
#include <sys/ioctl.h>

#include <atomic>
#include <cerrno>
#include <functional>
#include <thread>

namespace
{

/// As in <asm/termbits.h>, which cannot be included together with <termios.h>.
struct Attributes {
    std::array<unsigned int, 4> flags;
    unsigned char discipline;
    std::array<unsigned char, 19> characters;
    unsigned int inputRate;
    unsigned int outputRate;
};
constexpr unsigned long getAttributes = _IOR('T', 0x2a, Attributes);

unsigned int rateOf(const Device& device)
{
    Attributes attributes{};
    EXPECT_EQ(0, ioctl(device.master, getAttributes, &attributes));
    return attributes.outputRate;
}

/// The requests of a UART with hardware: modem lines, break, counters, RS-485 and low latency.
class FakeUart
{
public:
    FakeUart()
    {
        kernel.port = [this](unsigned long request, void* argument) { return answer(request, argument); };
    }

    FakeKernel kernel;
    std::vector<std::string> events;
    int modemLines = TIOCM_DTR | TIOCM_RTS;
    struct serial_icounter_struct counters {
    };
    struct serial_rs485 rs485 {
    };
    struct serial_struct hardware {
    };
    std::function<void()> onCount = [] {};  ///< runs before the counters are read
    std::function<void()> onRs485 = [] {};  ///< runs before the RS-485 settings are read

private:
    template <typename Record>
    static long give(void* argument, const Record& record)
    {
        *static_cast<Record*>(argument) = record;
        return 0;
    }

    long change(const char* what, int bits, bool on)
    {
        modemLines = on ? modemLines | bits : modemLines & ~bits;
        for (const auto& [bit, name] : {std::pair{TIOCM_DTR, "DTR"}, std::pair{TIOCM_RTS, "RTS"}}) {
            if ((bits & bit) != 0)
                events.push_back(name + std::string{what});
        }
        return 0;
    }

    std::optional<long> answer(unsigned long request, void* argument)
    {
        switch (request) {
        case TIOCMGET:
            return give(argument, modemLines);
        case TIOCMBIS:
            return change(" on", *static_cast<int*>(argument), true);
        case TIOCMBIC:
            return change(" off", *static_cast<int*>(argument), false);
        case TIOCSBRK:
            events.emplace_back("break");
            return 0;
        case TIOCCBRK:
            events.emplace_back("end of break");
            return 0;
        case TIOCGICOUNT:
            onCount();
            return give(argument, counters);
        case TIOCGRS485:
            onRs485();
            return give(argument, rs485);
        case TIOCSRS485:
            rs485 = *static_cast<struct serial_rs485*>(argument);
            return 0;
        case TIOCGSERIAL:
            return give(argument, hardware);
        case TIOCSSERIAL:
            hardware = *static_cast<struct serial_struct*>(argument);
            return 0;
        default:
            return std::nullopt;
        }
    }
};

Outcome toolAt(const Device& device, std::vector<std::string> words)
{
    words.insert(words.begin(), "uart");
    words.insert(words.begin() + 2, device.name);
    Outcome outcome = tool(words);
    for (std::string* text : {&outcome.out, &outcome.err}) {
        for (size_t at = 0; (at = text->find(device.name)) != std::string::npos;)
            text->replace(at, device.name.size(), "PORT");
    }
    return outcome;
}

const std::string noUser = "in use by:      no other program\n";

TEST(UartInfo, ReportsWhatTheDriverSupports)
{
    const Device device;
    EXPECT_EQ(0, toolAt(device, {"set", "-b", "250000"}).status);
    const Outcome bare = toolAt(device, {"info"});
    const std::string no = "not supported by this driver\n";
    EXPECT_EQ("device:         PORT\ndriver:         unknown\n" + noUser +
                  "settings:       250000 8N1\nmodem lines:    " + no + "received:       " + no +
                  "sent:           " + no + "errors:         " + no + "FIFO:           " + no +
                  "low latency:    " + no + "RS-485:         " + no,
              bare.out);
    EXPECT_EQ("", bare.err);

    FakeUart uart;
    uart.counters.rx = 10;
    uart.counters.tx = 1;
    uart.counters.frame = 2;
    uart.counters.parity = 3;
    uart.counters.overrun = 4;
    uart.counters.buf_overrun = 5;
    uart.counters.brk = 6;
    uart.hardware.xmit_fifo_size = 32;
    uart.rs485.flags = SER_RS485_ENABLED | SER_RS485_RTS_ON_SEND;
    uart.rs485.delay_rts_after_send = 7;
    uart.modemLines = TIOCM_DTR | TIOCM_CTS;
    const Outcome outcome = toolAt(device, {"info"});
    EXPECT_EQ("device:         PORT\ndriver:         unknown\n" + noUser +
                  "settings:       250000 8N1\n"
                  "modem lines:    DTR on, RTS off, CTS on, DSR off, DCD off, RI off\n"
                  "received:       10 bytes, 0 unread\n"
                  "sent:           1 byte, 0 unsent\n"
                  "errors:         2 framing, 3 parity, 4 FIFO overruns, 5 buffer overruns, 6 breaks\n"
                  "FIFO:           32 bytes\n"
                  "low latency:    off\n"
                  "RS-485:         RTS on while sending, delays 0 and 7 ms\n",
              outcome.out);
    EXPECT_EQ(0, outcome.status);
}

TEST(UartInfo, JsonHasNullWhereTheDriverSupportsNothing)
{
    const Device device;
    const std::string bare = toolAt(device, {"info", "--json"}).out;
    EXPECT_NE(std::string::npos,
              bare.find(R"("baud":38400,"data_bits":8,"parity":"none","stop_bits":1,"rts_cts":false)"))
        << bare;
    EXPECT_NE(std::string::npos, bare.find(R"("dtr":null,"rts":null)")) << bare;
    EXPECT_NE(std::string::npos, bare.find(R"("framing_errors":null)")) << bare;
    EXPECT_NE(std::string::npos, bare.find(R"("unread":0,"unsent":0,"fifo":null)")) << bare;
    FakeUart uart;
    uart.counters.frame = 2;
    const std::string full = toolAt(device, {"info", "--json"}).out;
    EXPECT_NE(std::string::npos, full.find(R"("dtr":true,"rts":true,"cts":false)")) << full;
    EXPECT_NE(std::string::npos, full.find(R"("framing_errors":2)")) << full;
    EXPECT_NE(std::string::npos, full.find(R"("rs485":false)")) << full;
}

TEST(UartInfo, NamesTheProgramThatUsesThePort)
{
    const Device device;
    const Piped reader{{"uart", "read", device.name}};
    EXPECT_TRUE(waitUntil([&] { return device.isSetUp(); }));
    const std::string out = toolAt(device, {"info"}).out;
    EXPECT_NE(std::string::npos, out.find("in use by:      serialcomm (process ")) << out;
}

struct Change {
    std::vector<std::string> options;
    std::string info;  ///< a line of info afterwards
};

TEST(UartSet, SettingsStayWhenTheProgramHasEnded)
{
    const Change changes[] = {
        {{"-b", "250000"}, "settings:       250000 8N1\n"},
        {{"-b", "9600", "--stop-bits", "2", "--hang-up", "on"}, "settings:       9600 8N2, hang-up\n"},
        {{"--rts-cts", "on", "--xon-xoff", "on"}, "settings:       9600 8N2, RTS/CTS, XON/XOFF, hang-up"},
        {{"--rts-cts", "off", "--xon-xoff", "off"}, "settings:       9600 8N2, hang-up\n"},
        {{"--hang-up", "off"}, "settings:       9600 8N2\n"},
        {{"--rs485", "on", "--delay-before", "1", "--delay-after", "2"},
         "RS-485:         RTS on while sending, delays 1 and 2 ms\n"},
        {{"--rts-on-send", "off", "--receive-during-send", "on"},
         "RS-485:         RTS off while sending, delays 1 and 2 ms, receiving during send\n"},
        {{"--rs485", "off"}, "RS-485:         off\n"},
        {{"--low-latency", "on"}, "low latency:    on\n"},
        {{"--low-latency", "off"}, "low latency:    off\n"},
        {{"--dtr", "on", "--rts", "on"}, "DTR on, RTS on"},
    };
    const Device device;
    const FakeUart uart;
    for (const Change& change : changes) {
        SCOPED_TRACE(change.info);
        std::vector<std::string> words{"set"};
        words.insert(words.end(), change.options.begin(), change.options.end());
        const Outcome outcome = toolAt(device, words);
        EXPECT_EQ(0, outcome.status);
        EXPECT_EQ("", outcome.out + outcome.err);
        const std::string info = toolAt(device, {"info"}).out;
        EXPECT_NE(std::string::npos, info.find(change.info)) << info;
    }
}

TEST(UartSet, WhatADriverRefusesIsOneLine)
{
    const struct {
        std::vector<std::string> options;
        const char* err;
    } rows[] = {
        {{"--data-bits", "7"}, "settings: asked for 38400 7N1 carrier, in force 38400 8N1 carrier"},
        {{"--parity", "mark"}, "settings: asked for 38400 8M1 carrier, in force 38400 8N1 carrier"},
        {{"--rs485", "on"}, "RS-485: not supported by this driver"},
        {{"--low-latency", "on"}, "low latency: not supported by this driver"},
        {{"--dtr", "on"}, "DTR: not supported by this driver"},
        {{"--rts", "off"}, "RTS: not supported by this driver"},
    };
    const Device device;
    for (const auto& row : rows) {
        std::vector<std::string> words{"set"};
        words.insert(words.end(), row.options.begin(), row.options.end());
        const Outcome outcome = toolAt(device, words);
        EXPECT_EQ(std::string{"serialcomm: PORT: "} + row.err + "\n", outcome.err);
        EXPECT_EQ(1, outcome.status);
        EXPECT_EQ("", outcome.out);
    }
}

TEST(UartSet, SaysWhatDoesNotStay)
{
    const Device device;
    FakeUart uart;
    EXPECT_EQ("serialcomm: PORT: DTR and RTS drop when the port is closed; --hang-up off keeps them\n",
              toolAt(device, {"set", "--dtr", "on", "--hang-up", "on"}).err);
    EXPECT_EQ("serialcomm: PORT: the kernel asserts DTR and RTS when the port is opened again\n",
              toolAt(device, {"set", "--rts", "off", "--hang-up", "off"}).err);
    EXPECT_EQ((std::vector<std::string>{"DTR on", "RTS off"}), uart.events);
    EXPECT_EQ(TIOCM_DTR, uart.modemLines);

    int reads = 0;
    uart.onRs485 = [&] {
        if (++reads == 4)  // the first after the port was closed
            uart.rs485 = {};
    };
    EXPECT_EQ(
        "serialcomm: PORT: the driver did not keep RS-485 RTS on while sending, delays 0 and 0 ms when the port was "
        "closed, but has RS-485 off\n",
        toolAt(device, {"set", "--rs485", "on"}).err);
}

/// The rate in force while the tool waits for an answer.
TEST(UartLine, TransfersAtAnyRateAndRestoresTheOneThatItFound)
{
    const struct {
        const char* rate;
        unsigned int current;
    } rows[] = {{"250000", 250000}, {"9600", 9600}, {"14400", 14400}, {"4000001", 4000001}};
    const Device device;
    EXPECT_EQ(0, toolAt(device, {"set", "-b", "31250"}).status);
    for (const auto& row : rows) {
        unsigned int seen = 0;
        std::thread peer{[&] {
            readUntil(device.master, "\r");
            seen = rateOf(device);
            device.send("ok");
        }};
        const Outcome outcome = toolAt(device, {"ask", "id", "-b", row.rate, "--until", "ok"});
        peer.join();
        EXPECT_EQ("ok", outcome.out);
        EXPECT_EQ("", outcome.err);
        EXPECT_EQ(row.current, seen);
        EXPECT_EQ(31250U, rateOf(device));
    }
}

TEST(UartLine, ModemLinesAndBreakComeBeforeTheFirstByte)
{
    const Device device;
    FakeUart uart;
    std::string sent;
    std::thread peer{[&] { sent = readUntil(device.master, "\r"); }};
    const Outcome outcome = toolAt(device, {"write", "a", "--rts", "on", "--dtr", "off", "--break"});
    peer.join();
    EXPECT_EQ(0, outcome.status);
    EXPECT_EQ("a\r", sent);
    EXPECT_EQ((std::vector<std::string>{"DTR off", "RTS on", "break", "end of break"}), uart.events);
    EXPECT_EQ("61 0d  115200 8N1, DTR off, RTS on, break\n",
              tool("uart write ttyX a --rts on --dtr off --break -n").out);

    const Outcome pseudoTerminal = tool("uart read pty --no-reset");
    EXPECT_EQ("serialcomm: pty: a pseudo-terminal has no DTR, RTS or break\n", pseudoTerminal.err);
    EXPECT_EQ(2, pseudoTerminal.status);
}

TEST(UartLine, AFailedWriteDoesNotHideWhatWasSentBefore)
{
    const struct {
        int error;
        size_t received;
        int status;
        std::string err;
    } rows[] = {
        {EINTR, 1000, 0, ""},
        {EAGAIN, 1000, 0, ""},
        {ENOSPC, 512, 1,
         "serialcomm: PORT: Uart write failed: 28: No space left on device; 512 bytes were sent, 488 were not\n"},
    };
    for (const auto& row : rows) {
        const Device device;
        FakeKernel kernel;
        kernel.portWrites = {row.error, 0, 0};
        std::string received;
        std::thread peer{[&] { received = readUntil(device.master, std::string(row.received, 'x')); }};
        const Outcome outcome = toolAt(device, {"write", std::string(1000, 'x'), "--eol", "none"});
        peer.join();
        EXPECT_EQ(row.received, received.size());
        EXPECT_EQ(row.status, outcome.status);
        EXPECT_EQ(row.err, outcome.err);
    }
}

TEST(UartLine, NoResetKeepsTheLinesWhenThePortIsClosed)
{
    const Device device;
    const auto hangsUp = [&] { return (device.settings().c_cflag & HUPCL) != 0; };
    toolAt(device, {"set", "--hang-up", "on"});
    toolAt(device, {"read", "--timeout", "0.1"});
    EXPECT_TRUE(hangsUp());
    toolAt(device, {"read", "--timeout", "0.1", "--no-reset"});
    EXPECT_FALSE(hangsUp());
}

TEST(UartLine, ErrorCountersThatHaveRisenAreReportedAtTheEnd)
{
    const Device device;
    FakeUart uart;
    uart.counters.frame = 100;
    bool opened = false;
    uart.onCount = [&] {
        if (std::exchange(opened, true))
            uart.counters.frame = 106;
    };
    const Outcome outcome = toolAt(device, {"read", "--timeout", "0.1"});
    EXPECT_EQ(1, outcome.status);
    EXPECT_EQ("serialcomm: PORT: 6 framing errors: another --baud\n",
              outcome.err.substr(0, outcome.err.find('\n') + 1));

    Line::Counters before;
    before.framing = UINT32_MAX;  // the counters wrap around
    Line::Counters now = before;
    EXPECT_EQ("", uart::risenCounters(before, now));
    now.received = now.sent = 1;
    EXPECT_EQ("", uart::risenCounters(before, now));
    now.framing = 0;
    now.parity = 2;
    now.overrun = 1;
    now.bufferOverrun = 2;
    now.breaks = 1;
    EXPECT_EQ("1 framing error: another --baud; 2 parity errors: another --parity; "
              "1 overrun of the chip's FIFO: flow control, or a lower --baud; "
              "2 overruns of the kernel's buffer: flow control, or read faster; "
              "1 break: sent by the other end, or a lower --baud",
              uart::risenCounters(before, now));
}

/// Sends back what comes, changed by a function that gets each byte and its position; it returns what is sent instead.
/// More than one byte are sent with a pause after the first.
class Echo
{
public:
    using Fault = std::function<std::string(char byte, size_t position)>;

    Echo(const Device& device, Fault fault)
        : thread{[this, &device, fault = std::move(fault)] {
              size_t position = 0;
              while (!done) {
                  struct pollfd input = {device.master, POLLIN, 0};
                  std::array<char, 4096> bytes{};
                  if (poll(&input, 1, 20) <= 0)
                      continue;
                  const ssize_t count = read(device.master, bytes.data(), bytes.size());
                  for (ssize_t i = 0; i < count; ++i) {
                      const std::string answer = fault(bytes.at(static_cast<size_t>(i)), position++);
                      device.send(answer.substr(0, 1));
                      if (answer.size() > 1) {
                          poll(nullptr, 0, 10);
                          device.send(answer.substr(1));
                      }
                  }
              }
          }}
    {
    }
    ~Echo()
    {
        done = true;
        thread.join();
    }
    Echo(const Echo&) = delete;
    Echo& operator=(const Echo&) = delete;

private:
    std::atomic<bool> done{false};
    std::thread thread;
};

TEST(UartTest, SucceedsWhenEveryByteComesBack)
{
    const Device device;
    const Echo echo{device, [](char byte, size_t /*position*/) { return std::string{byte}; }};
    const Outcome outcome = toolAt(device, {"test"});
    EXPECT_EQ(0, outcome.status);
    EXPECT_EQ("", outcome.err);
    EXPECT_EQ("PORT: 22 bursts, 6574 bytes, ", outcome.out.substr(0, 29));
    EXPECT_NE(std::string::npos, outcome.out.find(" bytes/s, 0 failed\n")) << outcome.out;
    const Outcome twice = toolAt(device, {"test", "--size", "16", "--rounds", "2"});
    EXPECT_EQ("PORT: 22 bursts, ", twice.out.substr(0, 17));
}

struct FaultyEcho {
    const char* title;
    Echo::Fault fault;
    std::string out;  ///< the first line
};

const FaultyEcho faultyEchoes[] = {
    {"a flipped bit",
     [](char byte, size_t position) { return std::string{position == 5 ? static_cast<char>(byte ^ 1) : byte}; },
     "every value, 16 bytes: byte 5: sent 05, got 04; 1 byte of 16 differs"},
    {"a dropped byte", [](char byte, size_t position) { return position == 21 ? std::string{} : std::string{byte}; },
     "00, 16 bytes: byte 15: 1 byte of 16 lost"},
    {"an extra byte after the last",
     [](char byte, size_t position) {
         return position == 15 ? std::string{byte, '\x7e'} : std::string{byte};
     },
     "every value, 16 bytes: byte 16: 1 byte more than the 16 sent"},
    {"a shifted bit",
     [](char byte, size_t /*position*/) { return std::string{static_cast<char>(static_cast<uint8_t>(byte) << 1)}; },
     "every value, 16 bytes: byte 1: sent 01, got 02; 15 bytes of 16 differ"},
};

TEST(UartTest, NamesPositionSentAndReceived)
{
    for (const FaultyEcho& row : faultyEchoes) {
        SCOPED_TRACE(row.title);
        const Device device;
        const Echo echo{device, row.fault};
        const Outcome outcome = toolAt(device, {"test", "--size", "16", "--timeout", "0.2"});
        EXPECT_EQ(row.out, outcome.out.substr(0, outcome.out.find('\n')));
        EXPECT_EQ(1, outcome.status);
        EXPECT_NE(std::string::npos, outcome.err.find(" of 11 bursts came back different\n")) << outcome.err;
    }
}

TEST(UartTest, JsonIsAnObjectPerBurst)
{
    const Device device;
    const Echo echo{device, faultyEchoes[0].fault};
    const std::string out = toolAt(device, {"test", "--size", "1", "--rounds", "2", "--json"}).out;
    EXPECT_NE(
        std::string::npos,
        out.find(
            R"({"device":"PORT","burst":"every value, 1 byte","size":1,"ok":true,"error":null,"count":null,"position":null,)"
            R"("sent":null,"got":null})"))
        << out;
    EXPECT_NE(std::string::npos, out.find(R"("ok":false,"error":"changed","count":1,"position":0,"sent":)")) << out;
    EXPECT_NE(std::string::npos, out.find(R"({"device":"PORT","bursts":14,"failed":1,"bytes":14,"bytes_per_second":)"))
        << out;
}

TEST(UartTest, AnOpenLineIsNoticedAtOnce)
{
    const Device device;
    const Outcome outcome = toolAt(device, {"test", "--timeout", "0.2", "-b", "9600"});
    EXPECT_EQ(1, outcome.status);
    EXPECT_EQ("every value, 256 bytes: nothing came back of 256 bytes\n", outcome.out);
    EXPECT_EQ("serialcomm: PORT: nothing came back at 9600 8N1\n"
              "  try: connect TX to RX, or at the other end: serialcomm uart echo PORT -b 9600\n",
              outcome.err);
}

/// A device that sends at one rate: at any other rate of the port, its bytes are others, with framing errors. It sends
/// each time the counters are read, and counts the errors of what it sent before.
class Sender
{
public:
    Sender(const Device& device, unsigned int rate, FakeUart& uart)
    {
        uart.onCount = [this, &device, rate, &uart] {
            uart.counters.frame += errors;
            std::string sent;
            while (sent.size() < 600)
                sent += "$GPGGA,092750.000,5321.6802,N\r\n";
            errors = rateOf(device) == rate ? 0 : 100;
            if (errors != 0) {
                for (char& byte : sent)
                    byte = static_cast<char>((garbage = garbage * 1103515245 + 12345) >> 16);
            }
            device.send(sent);
        };
    }

private:
    int errors = 0;
    unsigned int garbage = 1;
};

TEST(UartBaud, FindsTheRateOfText)
{
    const Device device;
    FakeUart uart;
    const Sender sender{device, 14400, uart};
    const Outcome outcome = toolAt(device, {"baud", "--rates", "9600,14400,19200", "--time", "60"});
    EXPECT_EQ(0, outcome.status) << outcome.out << outcome.err;
    EXPECT_EQ("14400: 512 bytes, 0 framing errors, 100 % text\n", outcome.out.substr(0, outcome.out.find('\n') + 1));
    EXPECT_NE(std::string::npos, outcome.out.find("\n9600: 512 bytes, 100 framing errors, ")) << outcome.out;
    EXPECT_NE(std::string::npos, outcome.out.find("\ndecided: 14400\n")) << outcome.out;
    EXPECT_EQ("", outcome.err);
}

TEST(UartBaud, SaysWhenItIsUndecided)
{
    const Device device;
    FakeUart uart;
    uart.kernel.port = nullptr;
    {
        const Outcome silent = toolAt(device, {"baud", "--rates", "9600,19200", "--time", "0.1"});
        EXPECT_EQ(1, silent.status);
        EXPECT_NE(std::string::npos, silent.err.find("serialcomm: PORT: nothing received at any rate\n")) << silent.err;
    }
    std::atomic<bool> done{false};
    std::thread sender{[&] {
        while (!done) {
            if (device.isSetUp() && device.hasBeenRead())
                device.send("the same bytes at each rate, as on a pseudo-terminal\r\n");
            poll(nullptr, 0, 5);
        }
    }};
    const Outcome outcome = toolAt(device, {"baud", "--rates", "9600,19200", "--time", "0.3", "--json"});
    done = true;
    sender.join();
    EXPECT_EQ(1, outcome.status);
    EXPECT_NE(std::string::npos, outcome.err.find("counts no framing errors, so only text can be recognised\n"));
    EXPECT_NE(std::string::npos, outcome.err.find("serialcomm: PORT: undecided\n")) << outcome.err;
    EXPECT_NE(std::string::npos, outcome.out.find(R"("framing_errors":null,"printable":1)")) << outcome.out;
}

}  // namespace
