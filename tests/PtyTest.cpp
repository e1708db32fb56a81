// Tests with the real kernel: pseudo-terminals, files and device nodes that every machine has.
#include "serialComm/I2c.h"
#include "serialComm/Spi.h"
#include "serialComm/Uart.h"

#include "support/LineSpeeds.h"
#include "support/Process.h"
#include "support/RealKernel.h"

#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <optional>
#include <string>
#include <thread>
#include <vector>

using std::chrono::steady_clock;
using testing::AllOf;
using testing::ElementsAre;
using testing::Ge;
using testing::IsEmpty;
using testing::Lt;
using testing::StartsWith;

TEST_F(RealKernel, MasterAndSlaveExchangeBytes)
{
    Uart master = newPseudoTerminal();
    Uart slave{slaveOf(master), 9600, 2, "even", true};
    ASSERT_TRUE(slave.init());

    ByteArray every(256);
    for (size_t i = 0; i < every.size(); ++i) {
        every[i] = static_cast<uint8_t>(i);
    }
    bool error = true;
    EXPECT_TRUE(master.write(every));
    EXPECT_EQ(every, slave.read(1000, &error)) << "raw mode translates no byte";
    EXPECT_FALSE(error);
    EXPECT_TRUE(slave.write(every));
    EXPECT_EQ(every, master.read(256));

    EXPECT_TRUE(master.write(bytes("0123456789")));
    EXPECT_EQ(bytes("0123"), slave.read(4));
    EXPECT_EQ(bytes("456789"), slave.read(64));
    EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(RealKernel, OpeningDiscardsWhatIsWaiting)
{
    Uart master = newPseudoTerminal();
    const std::string path = slaveOf(master);
    Uart first{path, 9600, 1, "none", true};
    Uart second{path, 9600, 1, "none", true};
    ASSERT_TRUE(first.init());
    ASSERT_TRUE(master.write(bytes("old")));
    ASSERT_TRUE(second.init());
    ASSERT_TRUE(master.write(bytes("new")));
    EXPECT_EQ(bytes("new"), second.read(64));
}

TEST_F(RealKernel, ABlockingReadWaitsHalfASecond)
{
    Uart master = newPseudoTerminal();
    Uart slave{slaveOf(master), 9600, 1, "none", true};
    ASSERT_TRUE(slave.init());

    bool error = true;
    const steady_clock::time_point start = steady_clock::now();
    EXPECT_EQ(ByteArray{}, slave.read(64, &error));
    const std::chrono::duration<double> waited = steady_clock::now() - start;
    EXPECT_THAT(waited.count(), AllOf(Ge(0.49), Lt(5.0)));
    EXPECT_FALSE(error);
    EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(RealKernel, ANonBlockingPortReportsEagain)
{
    Uart master{"/dev/ptmx", 115200, 1, "none", false};
    Uart slave{slaveOf(master), 115200, 1, "none", false};
    ASSERT_TRUE(slave.init());

    bool error = false;
    EXPECT_EQ(ByteArray{}, slave.read(64, &error));
    EXPECT_TRUE(error);
    EXPECT_FALSE(master.write(ByteArray(1 << 20))) << "more than the queue holds";
    EXPECT_FALSE(master.write(ByteArray(1 << 20)));
    EXPECT_THAT(lines(), ElementsAre("ERROR Uart read failed: 11", StartsWith("ERROR Uart write failed: "),
                                     "ERROR Uart write failed: 11"));
}

TEST_F(RealKernel, TheOtherSideIsClosed)
{
    std::optional<Uart> master;
    master.emplace("/dev/ptmx", 115200, 1, "none", true);
    {
        Uart slave{slaveOf(*master), 115200, 1, "none", true};
        ASSERT_TRUE(slave.init());
    }
    bool error = false;
    EXPECT_EQ(ByteArray{}, master->read(64, &error));
    EXPECT_TRUE(error);
    EXPECT_THAT(lines(), ElementsAre("ERROR Uart read failed: 5"));

    Uart slave{slaveOf(*master), 115200, 1, "none", true};
    ASSERT_TRUE(slave.init());
    master.reset();
    EXPECT_EQ(ByteArray{}, slave.read(64, &error)) << "a hung-up tty reads as empty";
    EXPECT_FALSE(error);
    EXPECT_FALSE(slave.write(bytes("x")));
    EXPECT_THAT(lines(), ElementsAre("ERROR Uart write failed: 5"));
}

/// Destroys a port once the calling thread sleeps in a call on the other side.
static std::thread destroyDuringNextCall(std::optional<Uart>& port)
{
    return std::thread{[&port, caller = gettid()] {
        waitUntilSleeping(caller);
        port.reset();
    }};
}

TEST_F(RealKernel, TheOtherSideIsClosedDuringACall)
{
    std::optional<Uart> master;
    std::optional<Uart> slave;
    const auto open = [&] {
        master.emplace("/dev/ptmx", 115200, 1, "none", true);
        slave.emplace(slaveOf(*master), 115200, 1, "none", true);
        ASSERT_TRUE(slave->init());
    };
    bool error = false;

    open();
    std::thread closer = destroyDuringNextCall(slave);
    EXPECT_EQ(ByteArray{}, master->read(64, &error)) << "would otherwise never return";
    EXPECT_TRUE(error);
    closer.join();
    EXPECT_THAT(lines(), ElementsAre("ERROR Uart read failed: 5"));

    open();
    closer = destroyDuringNextCall(master);
    EXPECT_EQ(ByteArray{}, slave->read(64, &error));
    closer.join();
    if (error) {  // the read returned at the close; otherwise at the hangup that follows
        EXPECT_THAT(lines(), ElementsAre("ERROR Uart read failed: 5"));
    }
    EXPECT_EQ(ByteArray{}, slave->read(64, &error)) << "a hung-up tty reads as empty";
    EXPECT_FALSE(error);
    EXPECT_THAT(lines(), IsEmpty());

    open();
    closer = destroyDuringNextCall(master);
    EXPECT_FALSE(slave->write(ByteArray(1 << 20))) << "nobody reads";
    closer.join();
    EXPECT_THAT(lines(), ElementsAre(StartsWith("ERROR Uart write failed: ")));
}

/// The kernel's c_cflag, read without the C library, which adds the input speed since glibc 2.42.
static unsigned kernelFlags(int fd)
{
    unsigned attributes[16] = {};  // c_iflag, c_oflag, c_cflag, c_lflag, and control characters
    EXPECT_EQ(0, ioctl(fd, TCGETS, attributes));
    return attributes[2] & ~unsigned{CIBAUD};
}

TEST_F(RealKernel, TheKernelAppliesEachSpeedParityAndNumberOfStopBits)
{
    Uart master = newPseudoTerminal();
    const std::string name = slaveOf(master);
    const int second = open(name.c_str(), O_RDWR | O_NOCTTY);
    struct termios attributes {
    };
    ASSERT_EQ(0, tcgetattr(second, &attributes));
    attributes.c_lflag = ECHO;  // tcsetattr() fails if it changes nothing and the kernel clears PARENB
    ASSERT_EQ(0, tcsetattr(second, TCSANOW, &attributes));
    for (const LineSpeed& speed : lineSpeeds) {
        for (const ParityFlags& parity : parities) {
            for (const int stopBits : {1, 2}) {
                SCOPED_TRACE(std::to_string(speed.baud) + ", " + parity.name + ", " + std::to_string(stopBits));
                Uart slave{name, speed.baud, stopBits, parity.name, true};
                ASSERT_TRUE(slave.init());

                const unsigned flags = speed.code | parity.flags | (stopBits == 2 ? CSTOPB : 0) | commonFlags;
                EXPECT_EQ(flags & ~unsigned{PARENB}, kernelFlags(second)) << "a pseudo-terminal clears PARENB";
                ASSERT_EQ(0, tcgetattr(second, &attributes));
                EXPECT_EQ(speed.constant, cfgetispeed(&attributes));
                EXPECT_EQ(speed.constant, cfgetospeed(&attributes));
            }
        }
    }
    close(second);
}

TEST_F(RealKernel, TheDestructorRestoresTheAttributes)
{
    Uart master = newPseudoTerminal();
    const std::string name = slaveOf(master);
    const int second = open(name.c_str(), O_RDWR | O_NOCTTY);
    struct termios before {
    };
    struct termios during {
    };
    struct termios after {
    };
    ASSERT_EQ(0, tcgetattr(second, &before));
    before.c_lflag = ECHO | ICANON;
    before.c_iflag = ICRNL;
    ASSERT_EQ(0, tcsetattr(second, TCSANOW, &before));
    ASSERT_EQ(0, tcgetattr(second, &before));
    {
        Uart slave{name, 19200, 2, "none", true};
        ASSERT_TRUE(slave.init());
        ASSERT_EQ(0, tcgetattr(second, &during));
    }
    ASSERT_EQ(0, tcgetattr(second, &after));
    close(second);

    EXPECT_EQ(0U, during.c_iflag | during.c_oflag | during.c_lflag);
    EXPECT_EQ(5, during.c_cc[VTIME]);
    EXPECT_EQ(0, during.c_cc[VMIN]);
    EXPECT_EQ(0, memcmp(&before, &after, sizeof before));
}

TEST_F(RealKernel, ANodeOfTheWrongKindIsClosedInTheEnd)
{
    const size_t before = resourcesInUse().descriptors;
    {
        char file[] = "/tmp/serialComm-test-XXXXXX";
        const int created = mkstemp(file);
        Uart ordinary{file, 9600, 1, "none", true};
        EXPECT_FALSE(ordinary.init());
        EXPECT_TRUE(ordinary.write(bytes("still open")));
        EXPECT_EQ(before + 2, resourcesInUse().descriptors);
        close(created);
        unlink(file);
    }
    EXPECT_EQ(before, resourcesInUse().descriptors);
    EXPECT_THAT(lines(), ElementsAre("ERROR Cannot clear terminal attributes", "ERROR Failed to set new attributes"));

    Uart missing{"/dev/no-such-port", 9600, 1, "none", true};
    EXPECT_FALSE(missing.init());
    EXPECT_EQ(ByteArray{}, missing.read(4));
    EXPECT_FALSE(missing.write(bytes("x")));
    I2c bus{"/dev/null", 0x48};
    EXPECT_FALSE(bus.init());
    Spi chip{"/dev/no-such-node", 1000, 0};
    EXPECT_FALSE(chip.init());
    EXPECT_EQ(ByteArray(3), chip.read(3));
    EXPECT_EQ(before, resourcesInUse().descriptors);
    EXPECT_THAT(lines(), ElementsAre("ERROR Cannot open serial device on path /dev/no-such-port",
                                     "ERROR Uart read failed: closed", "ERROR Uart write failed: closed",
                                     "ERROR ioctl failed", "ERROR Failed to open spi device: /dev/no-such-node",
                                     "ERROR SPI can't read spi message. errno: 9"));
}

TEST_F(RealKernel, ASecondInitLeaksNoDescriptor)
{
    const size_t before = resourcesInUse().descriptors;
    {
        Uart master = newPseudoTerminal();
        for (int i = 0; i < 100; ++i) {
            ASSERT_TRUE(master.init());
        }
        EXPECT_EQ(before + 1, resourcesInUse().descriptors);
    }
    EXPECT_EQ(before, resourcesInUse().descriptors);
}

TEST_F(RealKernel, ACallInterruptedByASignalIsNotRetried)
{
    Uart master = newPseudoTerminal();
    Uart slave{slaveOf(master), 115200, 1, "none", true};
    ASSERT_TRUE(slave.init());
    bool error = false;

    for (Uart* port : {&master, &slave}) {
        const Interrupter interrupter;
        EXPECT_EQ(ByteArray{}, port->read(64, &error));
        EXPECT_TRUE(error);
    }
    EXPECT_THAT(lines(), ElementsAre("ERROR Uart read failed: 4", "ERROR Uart read failed: 4"));

    // A write that fills the queue is cut short and leaves errno alone; one that finds the queue full fails with EINTR.
    std::vector<std::string> log{"ERROR Uart write failed: 0"};
    while (log == std::vector<std::string>{"ERROR Uart write failed: 0"}) {
        const Interrupter interrupter;
        errno = 0;
        EXPECT_FALSE(slave.write(ByteArray(1 << 20)));
        log = lines();
    }
    EXPECT_THAT(log, ElementsAre("ERROR Uart write failed: 4"));
}

TEST_F(RealKernel, TenThousandTransfersLeakNothing)
{
    Uart master = newPseudoTerminal();
    Uart slave{slaveOf(master), 115200, 1, "none", true};
    ASSERT_TRUE(slave.init());
    const ByteArray sent(64, 0x55);
    const auto transfers = [&](int count) {
        for (int i = 0; i < count; ++i) {
            ASSERT_TRUE(master.write(sent));
            ASSERT_EQ(sent, slave.read(64));
        }
    };
    transfers(1000);
    const size_t descriptors = resourcesInUse().descriptors;
    [[maybe_unused]] const long kibibytes = resourcesInUse().residentKiB;
    transfers(10000);
    EXPECT_EQ(descriptors, resourcesInUse().descriptors);
#ifndef __SANITIZE_ADDRESS__  // it keeps freed memory for a while, and detects leaks itself
    EXPECT_LT(resourcesInUse().residentKiB - kibibytes, 256);
#endif
}

TEST_F(RealKernel, TwoThreadsReadAndWriteOnePort)
{
    Uart master = newPseudoTerminal();
    Uart slave{slaveOf(master), 115200, 1, "none", true};
    ASSERT_TRUE(slave.init());

    std::thread echo{[&slave] {
        for (size_t received = 0; received < 64000;) {
            const ByteArray part = slave.read(64);
            ASSERT_TRUE(slave.write(part));
            received += part.size();
        }
    }};
    std::thread writer{[&master] {
        for (size_t i = 0; i < 1000; ++i) {
            ASSERT_TRUE(master.write(ByteArray(64, static_cast<uint8_t>(i))));
        }
    }};
    ByteArray received;
    while (received.size() < 64000) {
        const ByteArray part = master.read(256);
        received.insert(received.end(), part.begin(), part.end());
    }
    writer.join();
    echo.join();
    for (size_t i = 0; i < received.size(); ++i) {
        ASSERT_EQ(static_cast<uint8_t>(i / 64), received[i]) << "byte " << i;
    }
    EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(RealKernel, ThreadsWithTheirOwnPortsAreIndependent)
{
    Uart firstMaster = newPseudoTerminal();
    Uart secondMaster = newPseudoTerminal();
    const std::string firstSlave = slaveOf(firstMaster);
    const std::string secondSlave = slaveOf(secondMaster);

    const auto echoes = [](Uart& master, const std::string& slaveName) {
        Uart slave{slaveName, 115200, 1, "none", true};
        ASSERT_TRUE(slave.init());
        for (int i = 0; i < 1000; ++i) {
            const ByteArray sent(static_cast<size_t>(1 + i % 64), static_cast<uint8_t>(i));
            ASSERT_TRUE(master.write(sent));
            ASSERT_EQ(sent, slave.read(64));
            Uart broken{"/dev/no-such-port", 115200, 1, "none", true};
            ASSERT_FALSE(broken.init());
        }
    };
    std::thread first{echoes, std::ref(firstMaster), firstSlave};
    std::thread second{echoes, std::ref(secondMaster), secondSlave};
    first.join();
    second.join();
    EXPECT_EQ(2000U, lines().size());
}
