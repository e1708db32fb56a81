// Line against the kernel itself, with pseudo-terminals, which any machine has.
#include "serialComm/Line.h"
#include "serialComm/Uart.h"

#include "Attributes.h"
#include "support/Process.h"
#include "support/RealKernel.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <thread>

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

/// A port at 9600 baud, open as a Uart and as a Line, and the other end of the cable.
class LineOnPseudoTerminal : public RealKernel
{
protected:
    LineOnPseudoTerminal()
    {
        EXPECT_TRUE(uart->init());
        EXPECT_TRUE(line.init());
    }

    /// "Line TIOCMGET failed on /dev/pts/3: ..."
    std::string error(const std::string& call, const std::string& cause) const
    {
        return "ERROR Line " + call + " failed on " + name + ": " + cause;
    }

    Uart master = newPseudoTerminal();
    const std::string name = slaveOf(master);
    std::optional<Uart> uart{std::in_place, name, 9600, 1, "none", true};
    Line line{name};
};

/// The descriptor of the master whose slave has this name, in this process.
static int descriptorOf(const std::string& slave)
{
    for (int fd = 3; fd < 64; ++fd) {
        const char* its = ptsname(fd);
        if (its != nullptr && slave == its) {
            return fd;
        }
    }
    return -1;
}

static Line::Settings settingsWith(const std::function<void(Line::Settings&)>& change)
{
    Line::Settings settings;
    change(settings);
    return settings;
}

TEST_F(LineOnPseudoTerminal, SettingsAreInForceForEveryProcess)
{
    const struct {
        Line::Settings settings;
        const char* seen;
    } table[] = {
        {settingsWith([](auto& s) { s.baudRate = 250000; }), "BOTHER 250000 250000 CS8 CLOCAL"},
        {settingsWith([](auto& s) { s.baudRate = 4000001; }), "BOTHER 4000001 4000001 CS8 CLOCAL"},
        {settingsWith([](auto& s) { s.baudRate = 1; }), "BOTHER 1 1 CS8 CLOCAL"},
        {settingsWith([](auto& s) { s.stopBits = 2; }), "BOTHER 9600 9600 CS8 CSTOPB CLOCAL"},
        {settingsWith([](auto& s) { s.rtsCts = true; }), "BOTHER 9600 9600 CS8 CRTSCTS CLOCAL"},
        {settingsWith([](auto& s) { s.xonXoff = true; }), "BOTHER 9600 9600 CS8 CLOCAL IXON IXOFF"},
        {settingsWith([](auto& s) { s.ignoreCarrier = false; }), "BOTHER 9600 9600 CS8"},
        {settingsWith([](auto& s) { s.hangUpOnClose = true; }), "BOTHER 9600 9600 CS8 CLOCAL HUPCL"},
        {{}, "BOTHER 9600 9600 CS8 CLOCAL"},
    };
    EXPECT_EQ("9600 9600 CS8 CLOCAL", attributesSeenByAnotherProcess(name)) << "as the Uart made it";
    for (const auto& row : table) {
        EXPECT_TRUE(line.setSettings(row.settings)) << row.seen;
        EXPECT_EQ(row.seen, attributesSeenByAnotherProcess(name));
        const std::optional<Line::Settings> current = line.settings();
        ASSERT_TRUE(current);
        EXPECT_EQ(row.settings.baudRate, current->baudRate);
        EXPECT_EQ(row.settings.stopBits, current->stopBits);
        EXPECT_EQ(row.settings.rtsCts, current->rtsCts);
        EXPECT_EQ(row.settings.xonXoff, current->xonXoff);
        EXPECT_EQ(row.settings.ignoreCarrier, current->ignoreCarrier);
        EXPECT_EQ(row.settings.hangUpOnClose, current->hangUpOnClose);
    }
    EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(LineOnPseudoTerminal, ARateThatIsInForceKeepsItsConstant)
{
    EXPECT_TRUE(line.setSettings(settingsWith([](auto& s) { s.stopBits = 2; })));
    EXPECT_EQ("9600 9600 CS8 CSTOPB CLOCAL", attributesSeenByAnotherProcess(name));
}

TEST_F(LineOnPseudoTerminal, WhatTheDriverChangesFailsWithWhatIsInForce)
{
    // The kernel takes no parity and nothing but 8 bits on a pseudo-terminal, and says nothing.
    const struct {
        Line::Settings settings;
        const char* asked;
        const char* current;
    } table[] = {
        {settingsWith([](auto& s) { s.dataBits = 7; }), "9600 7N1", "9600 8N1"},
        {settingsWith([](auto& s) { s.dataBits = 5, s.stopBits = 2; }), "9600 5N2", "9600 8N2"},
        {settingsWith([](auto& s) { s.parity = Line::Parity::Mark, s.rtsCts = true; }), "9600 8M1 rts/cts",
         "9600 8N1 rts/cts"},
        {settingsWith([](auto& s) { s.parity = Line::Parity::Space, s.xonXoff = true; }), "9600 8S1 xon/xoff",
         "9600 8N1 xon/xoff"},
        {settingsWith([](auto& s) { s.parity = Line::Parity::Odd, s.ignoreCarrier = false; }), "9600 8O1 carrier",
         "9600 8N1 carrier"},
        {settingsWith([](auto& s) { s.parity = Line::Parity::Even, s.hangUpOnClose = true; }), "9600 8E1 hang-up",
         "9600 8N1 hang-up"},
    };
    for (const auto& row : table) {
        EXPECT_FALSE(line.setSettings(row.settings));
        EXPECT_THAT(lines(), ElementsAre("ERROR Line settings differ on " + name + ": asked for " + row.asked +
                                         ", in force " + row.current));
    }
}

TEST_F(LineOnPseudoTerminal, ImpossibleSettingsChangeNothing)
{
    for (const Line::Settings& settings :
         {settingsWith([](auto& s) { s.baudRate = 0; }), settingsWith([](auto& s) { s.dataBits = 4; }),
          settingsWith([](auto& s) { s.dataBits = 9; }), settingsWith([](auto& s) { s.stopBits = 0; }),
          settingsWith([](auto& s) { s.stopBits = 3; })}) {
        EXPECT_FALSE(line.setSettings(settings));
        EXPECT_THAT(lines(), ElementsAre(StartsWith("ERROR Line settings refused on " + name + ": ")));
        EXPECT_EQ("9600 9600 CS8 CLOCAL", attributesSeenByAnotherProcess(name));
    }
}

TEST_F(LineOnPseudoTerminal, XoffStopsWhatTheUartSendsAndXonLetsItGo)
{
    Line other{"/dev/ptmx"};
    ASSERT_TRUE(other.init(descriptorOf(name)));
    ASSERT_TRUE(line.setSettings(settingsWith([](auto& s) { s.xonXoff = true; })));
    ASSERT_TRUE(master.write({0x13}));
    ASSERT_TRUE(uart->read(64).empty()) << "the byte is no data";
    std::thread writer{[this] { EXPECT_TRUE(uart->write(bytes("after XON"))); }};
    EXPECT_FALSE(other.waitReadable(milliseconds{100})->bytes);
    ASSERT_TRUE(master.write({0x11}));
    EXPECT_TRUE(other.waitReadable(milliseconds{5000})->bytes);
    EXPECT_EQ(bytes("after XON"), master.read(64));
    writer.join();
}

TEST_F(LineOnPseudoTerminal, TheUartPutsBackWhatItFound)
{
    ASSERT_TRUE(line.setSettings(settingsWith([](auto& s) { s.stopBits = 2; })));
    uart.reset();
    EXPECT_NE("9600 9600 CS8 CSTOPB CLOCAL", attributesSeenByAnotherProcess(name));
    ASSERT_TRUE(line.setSettings(settingsWith([](auto& s) { s.baudRate = 250000; })));
    {
        Uart second{name, 19200, 1, "none", true};
        ASSERT_TRUE(second.init());
        EXPECT_EQ("19200 19200 CS8 CLOCAL", attributesSeenByAnotherProcess(name));
    }
    // All but a rate without constant; a C library whose constants are plain numbers knows every rate.
    EXPECT_EQ(B9600 == 9600 ? "BOTHER 250000 250000 CS8 CLOCAL" : "BOTHER 19200 19200 CS8 CLOCAL",
              attributesSeenByAnotherProcess(name));
}

TEST_F(LineOnPseudoTerminal, RequestsThatTheDriverLacks)
{
    const struct {
        const char* request;
        std::function<bool()> call;
    } table[] = {
        {"TIOCGRS485", [this] { return line.rs485().has_value(); }},
        {"TIOCSRS485", [this] { return line.setRs485({}); }},
        {"TIOCGSERIAL", [this] { return line.hardware().has_value(); }},
        {"TIOCGSERIAL", [this] { return line.setLowLatency(true); }},
        {"TIOCMGET", [this] { return line.modemLines().has_value(); }},
        {"TIOCMBIS", [this] { return line.setDtr(true); }},
        {"TIOCMBIC", [this] { return line.setRts(false); }},
        {"TIOCGICOUNT", [this] { return line.counters().has_value(); }},
    };
    for (const auto& row : table) {
        EXPECT_FALSE(row.call());
        EXPECT_THAT(lines(), ElementsAre(error(row.request, "not supported by this driver, errno: 25")));
    }
    EXPECT_TRUE(line.sendBreak(milliseconds{1})) << "this driver lacks it and does not say so";
}

TEST_F(LineOnPseudoTerminal, AClosedLineSaysSo)
{
    Line closed{name};
    const struct {
        const char* call;
        std::function<bool()> makes;
    } table[] = {
        {"TCGETS2", [&] { return closed.settings().has_value(); }},
        {"TCGETS2", [&] { return closed.setSettings({}); }},
        {"TIOCSBRK", [&] { return closed.sendBreak(milliseconds{10000}); }},
        {"FIONREAD", [&] { return closed.unread().has_value(); }},
        {"TIOCOUTQ", [&] { return closed.unsent().has_value(); }},
        {"TIOCOUTQ", [&] { return closed.drain(milliseconds{10000}); }},
        {"lock", [&] { return closed.lock(); }},
    };
    for (const auto& row : table) {
        EXPECT_FALSE(row.makes());
        EXPECT_THAT(lines(), ElementsAre(error(row.call, "not open, errno: 9")));
    }
    EXPECT_FALSE(closed.waitReadable(milliseconds{10000}));
    EXPECT_THAT(lines(), ElementsAre(error("poll", "not open")));
}

TEST_F(LineOnPseudoTerminal, BytesWaitingAreCounted)
{
    EXPECT_EQ(0U, line.unread());
    ASSERT_TRUE(master.write(bytes("12345")));
    ASSERT_TRUE(line.waitReadable(milliseconds{5000})->bytes);
    EXPECT_EQ(5U, line.unread());
    EXPECT_EQ(bytes("12"), uart->read(2));
    EXPECT_EQ(3U, line.unread());

    ASSERT_TRUE(uart->write(bytes("out")));
    EXPECT_TRUE(line.drain(milliseconds{5000}));
    EXPECT_EQ(0U, line.unsent());
    EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(LineOnPseudoTerminal, WaitingEndsWithTheFirstOfThem)
{
    int ends[2];
    ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM, 0, ends));
    const auto waits = [&](milliseconds most, int other) {
        const std::optional<Line::Ready> ready = line.waitReadable(most, other);
        return !ready ? "failed"
                      : std::string{ready->bytes ? "bytes " : ""} + (ready->other ? "other " : "") +
                            (ready->hungUp ? "hung up" : "");
    };
    const auto within = [&](milliseconds least, milliseconds most, const std::string& wanted, milliseconds limit) {
        const steady_clock::time_point start = steady_clock::now();
        EXPECT_EQ(wanted, waits(limit, ends[0]));
        EXPECT_GE(steady_clock::now() - start, least);
        EXPECT_LT(steady_clock::now() - start, most);
    };
    within(milliseconds{30}, milliseconds{5000}, "", milliseconds{30});
    within(milliseconds{0}, milliseconds{5000}, "", milliseconds{0});
    within(milliseconds{0}, milliseconds{5000}, "", milliseconds{-1});
    {
        const Interrupter interrupter;
        within(milliseconds{0}, milliseconds{5000}, "", milliseconds{20000});
    }

    ASSERT_EQ(1, write(ends[1], "x", 1));
    within(milliseconds{0}, milliseconds{5000}, "other ", milliseconds::max());
    EXPECT_EQ("", waits(milliseconds{0}, -1));
    ASSERT_TRUE(master.write({1}));
    within(milliseconds{0}, milliseconds{5000}, "bytes other ", milliseconds{20000});
    EXPECT_EQ(ByteArray{1}, uart->read(64));
    close(ends[1]);
    char byte = 0;
    ASSERT_EQ(1, read(ends[0], &byte, 1));
    EXPECT_EQ("other ", waits(milliseconds{20000}, ends[0])) << "closed at its other end";
    close(ends[0]);
    EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(LineOnPseudoTerminal, ALockKeepsOutWhoAsks)
{
    std::optional<Line> second{std::in_place, name};
    ASSERT_TRUE(second->init());
    EXPECT_TRUE(line.lock());
    EXPECT_TRUE(line.lock()) << "it is its own already";
    EXPECT_FALSE(second->lock());
    EXPECT_THAT(lines(), ElementsAre(error("lock", "another program has locked it, errno: 11")));

    EXPECT_TRUE(line.init()) << "closes the descriptor that held it";
    EXPECT_TRUE(second->lock());
    EXPECT_FALSE(line.lock());
    second.reset();
    EXPECT_TRUE(line.lock());
    EXPECT_TRUE(uart->init()) << "who does not ask is not kept out";
}

/// A new pseudo-terminal has IXON without IXOFF.
TEST_F(RealKernel, SettingTheSettingsInForceChangesNothing)
{
    const int master = posix_openpt(O_RDWR | O_NOCTTY);
    ASSERT_TRUE(grantpt(master) == 0 && unlockpt(master) == 0);
    Line line{ptsname(master)};
    EXPECT_EQ(-1, line.descriptor());
    ASSERT_TRUE(line.init());
    EXPECT_EQ(1, isatty(line.descriptor()));
    const std::string before = attributesSeenByAnotherProcess(line.device());
    EXPECT_NE(std::string::npos, before.find(" IXON"));
    EXPECT_TRUE(line.setSettings(*line.settings()));
    EXPECT_EQ(before, attributesSeenByAnotherProcess(line.device()));
    close(master);
}

TEST_F(RealKernel, ALineOnTheMasterOfAPseudoTerminal)
{
    const int descriptor = posix_openpt(O_RDWR | O_NOCTTY);
    ASSERT_TRUE(grantpt(descriptor) == 0 && unlockpt(descriptor) == 0);
    const std::string name = ptsname(descriptor);
    Line line{"/dev/ptmx"};
    ASSERT_TRUE(line.init(descriptor));
    EXPECT_TRUE(line.init(descriptor)) << "once more";
    close(descriptor);  // the Line has its own
    {
        Uart slave{name, 19200, 1, "none", true};
        ASSERT_TRUE(slave.init());
        EXPECT_EQ(19200U, line.settings()->baudRate) << "those of the slave";
        EXPECT_FALSE(line.waitReadable(milliseconds{0})->hungUp);
        ASSERT_TRUE(slave.write(bytes("hello")));
        EXPECT_TRUE(line.waitReadable(milliseconds{5000})->bytes);
        EXPECT_TRUE(line.drain(milliseconds{5000}));
    }
    const std::optional<Line::Ready> ready = line.waitReadable(milliseconds{5000});
    EXPECT_TRUE(ready->bytes && ready->hungUp) << "hung up, and bytes are left";
    EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(RealKernel, WhatIsNoSerialPortIsNotOpened)
{
    const size_t before = resourcesInUse().descriptors;
    const struct {
        const char* path;
        const char* call;
        const char* cause;
    } table[] = {
        {"/dev/no-such-port", "open", "No such file or directory, errno: 2"},
        {"/tmp", "open", "Is a directory, errno: 21"},
        {"/dev/null", "TCGETS2", "not supported by this driver, errno: 25"},
    };
    for (const auto& row : table) {
        Line line{row.path};
        EXPECT_FALSE(line.init());
        EXPECT_THAT(lines(),
                    ElementsAre(std::string{"ERROR Line "} + row.call + " failed on " + row.path + ": " + row.cause));
        EXPECT_FALSE(line.settings());
        EXPECT_THAT(lines(), ElementsAre(StartsWith("ERROR Line TCGETS2 failed on "))) << "it is closed";
    }
    Line line{"/dev/ptmx"};
    EXPECT_FALSE(line.init(-1));
    EXPECT_THAT(lines(), ElementsAre("ERROR Line dup failed on /dev/ptmx: not open, errno: 9"));
    EXPECT_EQ(before, resourcesInUse().descriptors);
}

TEST_F(LineOnPseudoTerminal, ASecondInitAndAFailedOneLeakNoDescriptor)
{
    const size_t before = resourcesInUse().descriptors;
    for (int i = 0; i < 100; ++i) {
        ASSERT_TRUE(line.init());
    }
    EXPECT_EQ(before, resourcesInUse().descriptors);
    EXPECT_FALSE(line.init(-1));
    EXPECT_TRUE(line.settings()) << "the earlier one stays open";
}
