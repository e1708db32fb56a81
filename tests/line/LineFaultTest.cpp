// Line with a kernel that answers from a script: each request fails in each way, and drivers do less than they say.
#include "serialComm/Line.h"

#include "support/ScriptedKernel.h"

#include <asm/termbits.h>  // not <termios.h>: both define the same names
#include <linux/serial.h>
#include <poll.h>
#include <string.h>
#include <sys/ioctl.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

using std::chrono::milliseconds;

/// A pause of the code under test is answered from the script as well. Other threads may wait for descriptors.
extern "C" int poll(pollfd* descriptors, nfds_t count, int time)
{
    ScriptedKernel* kernel = ScriptedKernel::ofThisThread();
    if (kernel == nullptr) {
        const timespec limit{time / 1000, time % 1000 * 1000000L};
        return ppoll(descriptors, count, time < 0 ? nullptr : &limit, nullptr);
    }
    const std::string call = "poll(" + std::to_string(count) + ", " + std::to_string(time) + ")";
    const Answer answer = kernel->next(call);
    kernel->finish(call, answer);
    return static_cast<int>(answer.result);
}

template <class Record>
static Answer gives(const Record& record)
{
    const auto* first = reinterpret_cast<const uint8_t*>(&record);
    return answers(0, ByteArray(first, first + sizeof record));
}

static Answer attributes(tcflag_t flags, speed_t rate)
{
    termios2 record{};
    record.c_cflag = flags;
    record.c_ispeed = record.c_ospeed = rate;
    return gives(record);
}

static Answer rs485(uint32_t flags, uint32_t before, uint32_t after)
{
    serial_rs485 record{};
    record.flags = flags;
    record.delay_rts_before_send = before;
    record.delay_rts_after_send = after;
    return gives(record);
}

static Answer serialFlags(int flags)
{
    serial_struct record{};
    record.flags = flags;
    return gives(record);
}

constexpr tcflag_t usual = B9600 | CS8 | CREAD | CLOCAL;
constexpr int lowLatency = 0x2000;  // ASYNC_LOW_LATENCY

/// The lines of a timeline with this word at their beginning.
static std::string linesOf(const std::string& timeline, const std::string& word)
{
    std::string found;
    std::istringstream stream{timeline};
    for (std::string line; std::getline(stream, line);) {
        found += line.rfind(word, 0) == 0 ? line + "\n" : "";
    }
    return found;
}

class LineFaults : public testing::Test
{
protected:
    LineFaults()
    {
        recordLog();
        ScriptedKernel kernel{{answers(7), attributes(usual, 9600)}};
        EXPECT_TRUE(line->init());
    }
    ~LineFaults() override
    {
        ScriptedKernel kernel{{answers(0)}};
        line.reset();
    }

    std::optional<Line> line{"/dev/ttyS1"};
};

struct Step {
    const char* call;
    Answer success;
};

TEST_F(LineFaults, EachCallOfEachOperationFailsWithOneLine)
{
    Line::Settings mark;
    mark.parity = Line::Parity::Mark;
    Line::Rs485 bus;
    bus.delayBeforeSendMs = 1;
    const struct {
        const char* operation;
        std::vector<Step> steps;
        std::function<bool()> call;
    } table[] = {
        {"settings", {{"TCGETS2", attributes(usual, 9600)}}, [&] { return line->settings().has_value(); }},
        {"setSettings",
         {{"TCGETS2", attributes(usual, 9600)},
          {"TCSETS2", answers(0)},
          {"TCGETS2", attributes(usual | PARENB | PARODD | CMSPAR, 9600)}},
         [&] { return line->setSettings(mark); }},
        {"rs485", {{"TIOCGRS485", rs485(1, 0, 0)}}, [&] { return line->rs485().has_value(); }},
        {"setRs485",
         {{"TIOCSRS485", answers(0)}, {"TIOCGRS485", rs485(SER_RS485_ENABLED | SER_RS485_RTS_ON_SEND, 1, 0)}},
         [&] { return line->setRs485(bus); }},
        {"hardware", {{"TIOCGSERIAL", serialFlags(0)}}, [&] { return line->hardware().has_value(); }},
        {"setLowLatency",
         {{"TIOCGSERIAL", serialFlags(0)}, {"TIOCSSERIAL", answers(0)}, {"TIOCGSERIAL", serialFlags(lowLatency)}},
         [&] { return line->setLowLatency(true); }},
        {"modemLines", {{"TIOCMGET", gives(0)}}, [&] { return line->modemLines().has_value(); }},
        {"setDtr", {{"TIOCMBIS", answers(0)}, {"TIOCMGET", gives(TIOCM_DTR)}}, [&] { return line->setDtr(true); }},
        {"setRts", {{"TIOCMBIC", answers(0)}, {"TIOCMGET", gives(TIOCM_DTR)}}, [&] { return line->setRts(false); }},
        {"sendBreak",
         {{"TIOCSBRK", answers(0)}, {nullptr, answers(0)}, {"TIOCCBRK", answers(0)}},
         [&] { return line->sendBreak(milliseconds{10}); }},
        {"counters", {{"TIOCGICOUNT", answers(0)}}, [&] { return line->counters().has_value(); }},
        {"unread", {{"FIONREAD", gives(0)}}, [&] { return line->unread().has_value(); }},
        {"unsent", {{"TIOCOUTQ", gives(0)}}, [&] { return line->unsent().has_value(); }},
        {"drain",
         {{"TIOCOUTQ", gives(3)}, {"drain", answers(0)}, {"TIOCOUTQ", gives(0)}, {nullptr, gives(TIOCSER_TEMT)}},
         [&] { return line->drain(milliseconds{60000}); }},
        {"waitReadable", {{"poll", answers(0)}}, [&] { return line->waitReadable(milliseconds{1}).has_value(); }},
    };
    const std::pair<int, const char*> failures[] = {
        {ENOTTY, "not supported by this driver, errno: 25"},
        {EINVAL, "not supported by this driver, or the value is refused, errno: 22"},
        {EIO, "the port is gone, errno: 5"},
        {EPERM, "Operation not permitted, errno: 1"},
    };
    for (const auto& row : table) {
        SCOPED_TRACE(row.operation);
        Script script;
        for (const Step& step : row.steps) {
            for (const auto& [error, reason] : failures) {
                if (step.call == nullptr) {
                    continue;
                }
                Script failing = script;
                failing.push_back(fails(error));
                ScriptedKernel kernel{failing};
                EXPECT_FALSE(row.call());
                EXPECT_EQ(std::string{"ERROR Line "} + step.call + " failed on /dev/ttyS1: " + reason + "\n",
                          linesOf(kernel.timeline(), "ERROR"));
            }
            script.push_back(step.success);
        }
        ScriptedKernel kernel{script};
        EXPECT_TRUE(row.call());
        EXPECT_EQ("", linesOf(kernel.timeline(), "ERROR"));
    }
}

TEST_F(LineFaults, ADriverThatDoesSomethingElseFailsWithWhatIsInForce)
{
    Line::Settings fast;
    fast.baudRate = 250000;
    Line::Rs485 bus;
    bus.delayAfterSendMs = 200;
    const Answer done = answers(0);
    const struct {
        Script script;
        std::function<bool()> call;
        const char* line;
    } table[] = {
        {{attributes(usual, 9600), done, attributes(usual, 9600)},
         [&] { return line->setSettings(fast); },
         "settings differ on /dev/ttyS1: asked for 250000 8N1, in force 9600 8N1"},
        {{attributes(usual, 9600), done, attributes(usual, 255001)},
         [&] { return line->setSettings(fast); },
         "settings differ on /dev/ttyS1: asked for 250000 8N1, in force 255001 8N1"},
        {{done, rs485(SER_RS485_ENABLED | SER_RS485_RTS_ON_SEND, 0, 100)},
         [&] { return line->setRs485(bus); },
         "RS-485 differs on /dev/ttyS1: asked for on, RTS 1 on send, delays 0 200 ms, in force on, RTS 1 on send, "
         "delays "
         "0 100 ms"},
        {{done, rs485(0, 0, 0)},
         [&] { return line->setRs485(bus); },
         "RS-485 differs on /dev/ttyS1: asked for on, RTS 1 on send, delays 0 200 ms, in force off"},
        {{done, rs485(SER_RS485_ENABLED | SER_RS485_RX_DURING_TX, 0, 0)},
         [&] {
             return line->setRs485({false, true, false, 0, 0});
         },
         "RS-485 differs on /dev/ttyS1: asked for off, in force on, RTS 0 on send, delays 0 0 ms, receiving during "
         "send"},
        {{serialFlags(0), done, serialFlags(0)},
         [&] { return line->setLowLatency(true); },
         "low latency differs on /dev/ttyS1: in force 0"},
        {{done, gives(TIOCM_RTS)}, [&] { return line->setDtr(true); }, "DTR differs on /dev/ttyS1: in force 0"},
        {{done, gives(TIOCM_RTS)}, [&] { return line->setRts(false); }, "RTS differs on /dev/ttyS1: in force 1"},
        {{gives(5)},
         [&] { return line->drain(milliseconds{0}); },
         "drain failed on /dev/ttyS1: 5 bytes are left after 0 ms"},
        {{gives(0), gives(0)},
         [&] { return line->drain(milliseconds{0}); },
         "drain failed on /dev/ttyS1: 0 bytes are left after 0 ms"},
        {{gives(5), fails(EINTR)},
         [&] { return line->drain(milliseconds{60000}); },
         "drain failed on /dev/ttyS1: Interrupted system call, errno: 4"},
        {{gives(0), fails(ENOTTY), fails(EIO)},
         [&] { return line->drain(milliseconds{60000}); },
         "TCSBRK failed on /dev/ttyS1: the port is gone, errno: 5"},
    };
    for (const auto& row : table) {
        ScriptedKernel kernel{row.script};
        EXPECT_FALSE(row.call());
        EXPECT_EQ(std::string{"ERROR Line "} + row.line + "\n", linesOf(kernel.timeline(), "ERROR"));
    }
}

TEST_F(LineFaults, ARateRoundedByTheDriverIsTaken)
{
    Line::Settings fast;
    fast.baudRate = 250000;
    for (const speed_t rate : {245000U, 249999U, 255000U}) {
        ScriptedKernel kernel{{attributes(usual, 9600), answers(0), attributes(usual, rate)}};
        EXPECT_TRUE(line->setSettings(fast)) << rate;
    }
}

TEST_F(LineFaults, EveryFrameGoesToTheKernelAndBack)
{
    const struct {
        tcflag_t flags;
        int dataBits;
        Line::Parity parity;
    } table[] = {
        {CS5, 5, Line::Parity::None},
        {CS6 | PARENB, 6, Line::Parity::Even},
        {CS7 | PARENB | PARODD, 7, Line::Parity::Odd},
        {CS8 | PARENB | PARODD | CMSPAR, 8, Line::Parity::Mark},
        {CS8 | PARENB | CMSPAR, 8, Line::Parity::Space},
    };
    for (const auto& row : table) {
        Line::Settings settings;
        settings.dataBits = row.dataBits;
        settings.parity = row.parity;
        const tcflag_t flags = row.flags | B9600 | CREAD | CLOCAL;
        {
            ScriptedKernel kernel{{attributes(usual, 9600), answers(0), attributes(flags, 9600)}};
            EXPECT_TRUE(line->setSettings(settings)) << "read back as another frame";
        }
        ScriptedKernel kernel{{attributes(flags, 9600)}};
        const auto current = line->settings();
        EXPECT_EQ(row.dataBits, current->dataBits);
        EXPECT_EQ(row.parity, current->parity);
    }
}

TEST_F(LineFaults, LinesAndCountersAreTheDrivers)
{
    serial_icounter_struct record{};
    record.rx = 1, record.tx = 2, record.frame = 3, record.overrun = 4, record.parity = 5, record.brk = 6;
    record.buf_overrun = -1;  // it wrapped round
    ScriptedKernel kernel{{gives(record), gives(TIOCM_DTR | TIOCM_CTS | TIOCM_CD),
                           gives(TIOCM_RTS | TIOCM_DSR | TIOCM_RI), answers(0), fails(EINTR), answers(0), gives(0),
                           fails(ENOTTY), answers(0), fails(EINTR)}};
    const auto counters = line->counters();
    EXPECT_EQ(1U, counters->received);
    EXPECT_EQ(2U, counters->sent);
    EXPECT_EQ(3U, counters->framing);
    EXPECT_EQ(4U, counters->overrun);
    EXPECT_EQ(5U, counters->parity);
    EXPECT_EQ(6U, counters->breaks);
    EXPECT_EQ(UINT32_MAX, counters->bufferOverrun);

    const auto some = line->modemLines();
    EXPECT_TRUE(some->dtr && some->cts && some->dcd);
    EXPECT_FALSE(some->rts || some->dsr || some->ri);
    const auto others = line->modemLines();
    EXPECT_TRUE(others->rts && others->dsr && others->ri);
    EXPECT_FALSE(others->dtr || others->cts || others->dcd);

    EXPECT_TRUE(line->sendBreak(milliseconds{10})) << "cut short by a signal, and ended";
    EXPECT_TRUE(line->drain(milliseconds{0})) << "by TCSBRK, where the driver cannot say whether its chip is empty";
    EXPECT_TRUE(line->waitReadable(milliseconds{1})) << "a signal is no failure";
    EXPECT_EQ("", linesOf(kernel.timeline(), "ERROR"));
}
