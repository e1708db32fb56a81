#include "serialComm/Uart.h"

#include "support/Table.h"

#include <termios.h>

#include <cerrno>
#include <cstring>
#include <limits>

template <>
struct Bench<Uart> {
    static Uart make() { return {"/dev/ttyS1", 9600, 1, "none", true}; }
    static Script opening() { return {answers(7), answers(0), answers(0), answers(0), names("")}; }
    static Script closing() { return {answers(0), answers(0)}; }
};

static const char* const source = "src/lib/serialComm/Uart.cpp";

/// The attributes that the port had before us.
static ByteArray found()
{
    struct termios attributes;
    memset(&attributes, 0, sizeof attributes);
    attributes.c_cflag = 0xcbd;
    attributes.c_cc[VTIME] = 9;
    const auto* bytes = reinterpret_cast<const uint8_t*>(&attributes);
    return {bytes, bytes + sizeof attributes};
}

static std::function<void(ScriptedKernel&)> life(int baud, int stopBits, const std::string& parity, bool blocking)
{
    return [=](ScriptedKernel& kernel) {
        Uart port{"/dev/ttyS1", baud, stopBits, parity, blocking};
        kernel.returned(port.init());
    };
}

TEST(UartInit, ChecksOpensAndSetsThePort)
{
    const auto evenTwoStop = life(115200, 2, "even", true);
    const Lives row{source, "bool Uart::init()"};
    row("a tty: set, and restored at the end",
        {answers(7), answers(0, found()), answers(0), answers(0), names(""), answers(0), answers(0)}, evenTwoStop,
        "DEBUG Baud rate: 4098\nDEBUG Parity: 256\nopen(\"/dev/ttyS1\", O_RDWR | O_NOCTTY) = 7\n"
        "tcgetattr(7, {cflag 0x0, VTIME 0, speeds 0 0}) = 0 [60 bytes]\n"
        "cfsetispeed({cflag 0x19f2, VTIME 5, speeds 0 0}, 4098)\n"
        "cfsetospeed({cflag 0x19f2, VTIME 5, speeds 4098 0}, 4098)\ntcflush(7, TCIOFLUSH) = 0\n"
        "tcsetattr(7, TCSANOW, {cflag 0x19f2, VTIME 5, speeds 4098 4098}) = 0\nptsname(7) = NULL\n"
        "returned true\ntcsetattr(7, TCSANOW, {cflag 0xcbd, VTIME 9, speeds 0 0}) = 0\nclose(7) = 0\n");
    row("a pseudo-terminal master: its slave is unlocked and named; descriptor 0 is one",
        {answers(0), answers(0, found()), answers(0), answers(0), names("/dev/pts/9"), answers(0), answers(0),
         fails(EIO), fails(EIO)},
        life(9600, 1, "odd", false),
        "DEBUG Baud rate: 13\nDEBUG Parity: 768\nopen(\"/dev/ttyS1\", O_RDWR | O_NOCTTY | O_NONBLOCK) = 0\n"
        "tcgetattr(0, {cflag 0x0, VTIME 0, speeds 0 0}) = 0 [60 bytes]\ncfsetispeed({cflag 0xbbd, VTIME 5, speeds 0 "
        "0}, 13)\n"
        "cfsetospeed({cflag 0xbbd, VTIME 5, speeds 13 0}, 13)\ntcflush(0, TCIOFLUSH) = 0\n"
        "tcsetattr(0, TCSANOW, {cflag 0xbbd, VTIME 5, speeds 13 13}) = 0\nptsname(0) = /dev/pts/9\n"
        "grantpt(0) = 0\nunlockpt(0) = 0\nINFO UART slave pts: /dev/pts/9\nreturned true\n"
        "tcsetattr(0, TCSANOW, {cflag 0xcbd, VTIME 9, speeds 0 0}) = -1 EIO\nclose(0) = -1 EIO\n");
    row("not a terminal: the saved attributes are all zero",
        {answers(7), fails(ENOTTY), fails(ENOTTY), fails(ENOTTY), fails(ENOTTY), answers(0)},
        life(110, 1, "none", true),
        "DEBUG Baud rate: 3\nDEBUG Parity: 0\nopen(\"/dev/ttyS1\", O_RDWR | O_NOCTTY) = 7\n"
        "tcgetattr(7, {cflag 0x0, VTIME 0, speeds 0 0}) = -1 ENOTTY\n"
        "cfsetispeed({cflag 0x8b3, VTIME 5, speeds 0 0}, 3)\n"
        "cfsetospeed({cflag 0x8b3, VTIME 5, speeds 3 0}, 3)\ntcflush(7, TCIOFLUSH) = -1 ENOTTY\n"
        "ERROR Cannot clear terminal attributes\n"
        "tcsetattr(7, TCSANOW, {cflag 0x8b3, VTIME 5, speeds 3 3}) = -1 ENOTTY\n"
        "ERROR Failed to set new attributes\nreturned false\n"
        "tcsetattr(7, TCSANOW, {cflag 0x0, VTIME 0, speeds 0 0}) = -1 ENOTTY\nclose(7) = 0\n");
    row("no such port", {fails(ENOENT)}, evenTwoStop,
        "DEBUG Baud rate: 4098\nDEBUG Parity: 256\nopen(\"/dev/ttyS1\", O_RDWR | O_NOCTTY) = -1 ENOENT\n"
        "ERROR Cannot open serial device on path /dev/ttyS1\nreturned false\n");
    row("a wrong rate is the first thing looked at", {}, life(1800, 3, "Even", true),
        "ERROR Unsupported baud rate: 1800\nreturned false\n");
    row("then the parity", {}, life(115200, 3, "Even", true),
        "DEBUG Baud rate: 4098\nERROR Wrong parity set: Even\nreturned false\n");
    row("then the stop bits", {}, life(115200, 3, "even", true),
        "DEBUG Baud rate: 4098\nDEBUG Parity: 256\nERROR Unsupported stop bits: 3\nreturned false\n");
    row(
        "never opened, nothing is called", {},
        [](ScriptedKernel&) {
            const Uart port{"", 0, 0, "", true};
        },
        "");
}

TEST(UartInit, ReportsAFailedUnlock)
{
    const Lives row{source, "bool Uart::init()"};
    const std::string until = "DEBUG Baud rate: 13\nDEBUG Parity: 0\nopen(\"/dev/ttyS1\", O_RDWR | O_NOCTTY) = 7\n"
                              "tcgetattr(7, {cflag 0x0, VTIME 0, speeds 0 0}) = 0\n"
                              "cfsetispeed({cflag 0x8bd, VTIME 5, speeds 0 0}, 13)\n"
                              "cfsetospeed({cflag 0x8bd, VTIME 5, speeds 13 0}, 13)\ntcflush(7, TCIOFLUSH) = 0\n"
                              "tcsetattr(7, TCSANOW, {cflag 0x8bd, VTIME 5, speeds 13 13}) = 0\n"
                              "ptsname(7) = /dev/pts/9\n";
    const std::string then = "ERROR Failed to unlock pts /dev/pts/9\nreturned false\n"
                             "tcsetattr(7, TCSANOW, {cflag 0x0, VTIME 0, speeds 0 0}) = 0\nclose(7) = 0\n";
    row("refused by grantpt",
        {answers(7), answers(0), answers(0), answers(0), names("/dev/pts/9"), fails(EACCES), answers(0), answers(0)},
        life(9600, 1, "none", true), until + "grantpt(7) = -1 EACCES\n" + then);
    row("refused by unlockpt",
        {answers(7), answers(0), answers(0), answers(0), names("/dev/pts/9"), answers(0), fails(EINVAL), answers(0),
         answers(0)},
        life(9600, 1, "none", true), until + "grantpt(7) = 0\nunlockpt(7) = -1 EINVAL\n" + then);
}

TEST(UartInit, ASecondTimeRestoresAndClosesBeforeItOpens)
{
    recordLog(log4cplus::ERROR_LOG_LEVEL);
    ScriptedKernel kernel{{answers(7), answers(0, found()), answers(0), answers(0), names(""), answers(0), answers(0),
                           answers(8), answers(0, found()), answers(0), answers(0), names(""), answers(0), answers(0)}};
    {
        Uart port{"/dev/ttyS1", 9600, 1, "none", true};
        EXPECT_TRUE(port.init());
        kernel.add("again");
        EXPECT_TRUE(port.init());
    }
    const std::string& timeline = kernel.timeline();
    EXPECT_EQ(
        "again\n"
        "tcsetattr(7, TCSANOW, {cflag 0xcbd, VTIME 9, speeds 0 0}) = 0\nclose(7) = 0\n"
        "open(\"/dev/ttyS1\", O_RDWR | O_NOCTTY) = 8\ntcgetattr(8, {cflag 0xcbd, VTIME 9, speeds 0 0}) = 0 [60 bytes]\n"
        "cfsetispeed({cflag 0x8bd, VTIME 5, speeds 0 0}, 13)\n"
        "cfsetospeed({cflag 0x8bd, VTIME 5, speeds 13 0}, 13)\ntcflush(8, TCIOFLUSH) = 0\n"
        "tcsetattr(8, TCSANOW, {cflag 0x8bd, VTIME 5, speeds 13 13}) = 0\nptsname(8) = NULL\n"
        "tcsetattr(8, TCSANOW, {cflag 0xcbd, VTIME 9, speeds 0 0}) = 0\nclose(8) = 0\n",
        timeline.substr(timeline.find("again")));
}

TEST(UartInit, KnowsTheseRatesParitiesAndStopBitsAlone)
{
    recordLog();
    const auto firstLineAfter = [](const std::string& until, int baud, int stopBits, const std::string& parity) {
        ScriptedKernel kernel{{}};
        Uart port{"/dev/ttyS1", baud, stopBits, parity, true};
        EXPECT_FALSE(port.init());
        const std::string rest = kernel.timeline().substr(until.size());
        return rest.substr(0, rest.find('\n'));
    };

    const struct {
        int baud;
        int constant;
    } rates[] = {
        {110, 3},        {150, 5},        {200, 6},        {300, 7},        {600, 8},        {1200, 9},
        {2400, 11},      {4800, 12},      {9600, 13},      {19200, 14},     {38400, 15},     {57600, 4097},
        {115200, 4098},  {230400, 4099},  {460800, 4100},  {500000, 4101},  {576000, 4102},  {921600, 4103},
        {1000000, 4104}, {1152000, 4105}, {1500000, 4106}, {2000000, 4107}, {2500000, 4108}, {3000000, 4109},
        {3500000, 4110}, {4000000, 4111},
    };
    for (const auto& rate : rates) {
        EXPECT_EQ("DEBUG Baud rate: " + std::to_string(rate.constant), firstLineAfter("", rate.baud, 1, "no such"));
    }
    for (const int baud : {-9600, -1, 0, 1, 50, 75, 134, 1800, 14400, 28800, 115201, 4000001}) {
        EXPECT_EQ("ERROR Unsupported baud rate: " + std::to_string(baud), firstLineAfter("", baud, 1, "none"));
    }

    const std::string rateLine = "DEBUG Baud rate: 13\n";
    for (const char* parity : {"", "None", "EVEN", "Odd", "none ", "mark", "space", "n"}) {
        EXPECT_EQ(std::string{"ERROR Wrong parity set: "} + parity, firstLineAfter(rateLine, 9600, 1, parity));
    }
    for (const int stopBits : {-1, 0, 3}) {
        EXPECT_EQ("ERROR Unsupported stop bits: " + std::to_string(stopBits),
                  firstLineAfter(rateLine + "DEBUG Parity: 768\n", 9600, stopBits, "odd"));
    }
}

TEST(UartWrite, SucceedsOnTheExactCountAlone)
{
    const auto two = [](Uart& port, ScriptedKernel& kernel) {
        const ByteArray data{0x68, 0x69};
        kernel.callersBuffer(data);
        errno = ENOSPC;
        kernel.returned(port.write(data));
    };
    const Transfers<Uart> row{source, "bool Uart::write(const ByteArray&)"};
    row("all went out, of the caller's storage", State::open, {answers(2)}, two,
        "write(7, caller's [68 69], 2) = 2\nreturned true\n");
    row("failed: the errno is the write's", State::open, {fails(EIO)}, two,
        "write(7, caller's [68 69], 2) = -1 EIO\nERROR Uart write failed: 5\nreturned false\n");
    row("short: errno as it stands", State::open, {{1, EAGAIN, {}, {}}}, two,
        "write(7, caller's [68 69], 2) = 1 EAGAIN\nERROR Uart write failed: 11\nreturned false\n");
    row(
        "of nothing", State::open, {answers(0)},
        [](Uart& port, ScriptedKernel& kernel) { kernel.returned(port.write({})); },
        "write(7, NULL, 0) = 0\nreturned true\n");
    row("closed: no call is made", State::closed, {}, two, "ERROR Uart write failed: closed\nreturned false\n");
}

TEST(UartRead, GivesWhatArrivedAndSaysWhetherItFailed)
{
    const auto reads = [](size_t size, bool before) {
        return [=](Uart& port, ScriptedKernel& kernel) {
            bool error = before;
            kernel.returned(port.read(size, &error));
            kernel.add(error ? "error" : "no error");
        };
    };
    const auto withoutFlag = [](Uart& port, ScriptedKernel& kernel) { kernel.returned(port.read(4)); };
    const Transfers<Uart> row{source, "ByteArray Uart::read(size_t, bool*)"};
    row("as much as asked for", State::open, {answers(2, {1, 2})}, reads(2, true),
        "read(7, [00 00], 2) = 2 [01 02]\nreturned [01 02]\nno error\n");
    row("less: cut to what arrived", State::open, {answers(1, {1})}, reads(4, true),
        "read(7, [00 00 00 00], 4) = 1 [01]\nreturned [01]\nno error\n");
    row("nothing is no error", State::open, {answers(0)}, reads(4, true),
        "read(7, [00 00 00 00], 4) = 0\nreturned []\nno error\n");
    row("of nothing", State::open, {answers(0)}, reads(0, true), "read(7, NULL, 0) = 0\nreturned []\nno error\n");
    row("failed: the errno is the read's", State::open, {fails(EAGAIN)}, reads(4, false),
        "read(7, [00 00 00 00], 4) = -1 EAGAIN\nERROR Uart read failed: 11\nreturned []\nerror\n");
    row("closed: no call is made", State::closed, {}, reads(4, false),
        "ERROR Uart read failed: closed\nreturned []\nerror\n");
    row("without a flag, arrived", State::open, {answers(1, {1})}, withoutFlag,
        "read(7, [00 00 00 00], 4) = 1 [01]\nreturned [01]\n");
    row("without a flag, failed", State::open, {fails(EIO)}, withoutFlag,
        "read(7, [00 00 00 00], 4) = -1 EIO\nERROR Uart read failed: 5\nreturned []\n");
    row("without a flag, closed", State::closed, {}, withoutFlag, "ERROR Uart read failed: closed\nreturned []\n");
    row(
        "an impossible size throws before anything else", State::closed, {},
        [](Uart& port, ScriptedKernel& kernel) {
            kernel.threw([&] { port.read(std::numeric_limits<size_t>::max()); });
        },
        "threw cannot create std::vector larger than max_size()\n");
}
