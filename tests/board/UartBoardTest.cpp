// The port /dev/ttymxc0. Its other end is the host, which sends back what comes while tests/board/run runs this
// program.
#include "serialComm/Uart.h"

#include "Board.h"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>

using std::chrono::steady_clock;
using UartOnBoard = OnBoard;

static const char* const port = "/dev/ttymxc0";

static std::string seenByAnotherProgram()
{
    return outputOf("stty -F /dev/ttymxc0 -g");
}

TEST_F(UartOnBoard, InitSetsThePortAndTheDestructorRestoresIt)
{
    outputOf("stty -F /dev/ttymxc0 9600 sane cs7 parenb hupcl min 1 time 0");
    const std::string before = seenByAnotherProgram();
    struct termios found {
    };
    const int second = open(port, O_RDWR | O_NOCTTY);
    ASSERT_EQ(0, tcgetattr(second, &found));
    close(second);

    std::string during;
    const auto life = [&](const char* path) {
        return [&during, path](ScriptedKernel& kernel) {
            Uart uart{path, 115200, 2, "odd", true};
            kernel.returned(uart.init());
            during = seenByAnotherProgram();
        };
    };
    check({
        {"a tty: set, and restored at the end", life(port),
         "DEBUG Baud rate: 4098\n"
         "DEBUG Parity: 768\n"
         "open(\"/dev/ttymxc0\", O_RDWR | O_NOCTTY) = 7\n"
         "tcgetattr(7, {cflag 0x0, VTIME 0, speeds 0 0}) = 0 [" +
             hex(&found, sizeof found) +
             "]\n"
             "cfsetispeed({cflag 0x1bf2, VTIME 5, speeds 0 0}, 4098)\n"
             "cfsetospeed({cflag 0x1bf2, VTIME 5, speeds 4098 0}, 4098)\n"
             "tcflush(7, TCIOFLUSH) = 0\n"
             "tcsetattr(7, TCSANOW, {cflag 0x1bf2, VTIME 5, speeds 4098 4098}) = 0\n"
             "ptsname(7) = NULL\n"
             "returned true\n"
             "tcsetattr(7, TCSANOW, {cflag 0xdad, VTIME 0, speeds 13 13, and more}) = 0\n"
             "close(7) = 0\n"},
    });
    EXPECT_EQ(0U, during.find("0:0:1bf2:0:0:0:0:0:0:5:0:")) << during;
    EXPECT_EQ(before, seenByAnotherProgram());
    check({
        {"no such port", life("/dev/ttymxc9"),
         "DEBUG Baud rate: 4098\n"
         "DEBUG Parity: 768\n"
         "open(\"/dev/ttymxc9\", O_RDWR | O_NOCTTY) = -1 ENOENT\n"
         "ERROR Cannot open serial device on path /dev/ttymxc9\n"
         "returned false\n"},
        {"a bus is no port", life("/dev/i2c-4"),
         "DEBUG Baud rate: 4098\n"
         "DEBUG Parity: 768\n"
         "open(\"/dev/i2c-4\", O_RDWR | O_NOCTTY) = 7\n"
         "tcgetattr(7, {cflag 0x0, VTIME 0, speeds 0 0}) = -1 ENOTTY\n"
         "cfsetispeed({cflag 0x1bf2, VTIME 5, speeds 0 0}, 4098)\n"
         "cfsetospeed({cflag 0x1bf2, VTIME 5, speeds 4098 0}, 4098)\n"
         "tcflush(7, TCIOFLUSH) = -1 ENOTTY\n"
         "ERROR Cannot clear terminal attributes\n"
         "tcsetattr(7, TCSANOW, {cflag 0x1bf2, VTIME 5, speeds 4098 4098}) = -1 ENOTTY\n"
         "ERROR Failed to set new attributes\n"
         "returned false\n"
         "tcsetattr(7, TCSANOW, {cflag 0x0, VTIME 0, speeds 0 0}) = -1 ENOTTY\n"
         "close(7) = 0\n"},
    });
}

static std::function<void(ScriptedKernel&)> reads(Uart& uart, size_t size)
{
    return [&uart, size](ScriptedKernel& kernel) {
        bool error = false;
        kernel.returned(uart.read(size, &error));
        kernel.add(error ? "error" : "no error");
    };
}

TEST_F(UartOnBoard, NobodySpeaks)
{
    Uart waits{port, 115200, 1, "none", true};
    ASSERT_TRUE(opened(waits));
    Uart doesNotWait{port, 115200, 1, "none", false};
    ASSERT_TRUE(opened(doesNotWait));

    const steady_clock::time_point start = steady_clock::now();
    check({
        {"blocking: half a second", reads(waits, 4), "read(7, [00 00 00 00], 4) = 0\nreturned []\nno error\n"},
    });
    const std::chrono::duration<double> waited = steady_clock::now() - start;
    EXPECT_GE(waited.count(), 0.49);
    EXPECT_LT(waited.count(), 5);
    check({
        {"non-blocking", reads(doesNotWait, 4),
         "read(8, [00 00 00 00], 4) = -1 EAGAIN\nERROR Uart read failed: 11\nreturned []\nerror\n"},
        {"of nothing", reads(waits, 0), "read(7, NULL, 0) = 0\nreturned []\nno error\n"},
        {"write of nothing", [&](ScriptedKernel& kernel) { kernel.returned(waits.write({})); },
         "write(7, NULL, 0) = 0\nreturned true\n"},
    });
}

TEST_F(UartOnBoard, WhatTheHostSendsBackIsWhatWasSent)
{
    if (!hostAnswers()) {
        GTEST_SKIP() << "nobody at the other end; tests/board/run has somebody there";
    }
    Uart uart{port, 115200, 1, "none", true};
    ASSERT_TRUE(opened(uart));
    while (!uart.read(4096).empty()) {
        // left over by whoever spoke before
    }

    check({
        {"one byte",
         [&](ScriptedKernel& kernel) {
             const ByteArray data{0x3f};
             kernel.callersBuffer(data);
             kernel.returned(uart.write(data));
             kernel.returned(uart.read(64));
         },
         "write(7, caller's [3f], 1) = 1\n"
         "returned true\n"
         "read(7, [" +
             zeros(64) +
             "], 64) = 1 [3f]\n"
             "returned [3f]\n"},
    });

    ByteArray every(256);
    for (size_t i = 0; i < every.size(); ++i) {
        every[i] = static_cast<uint8_t>(i);
    }
    EXPECT_TRUE(uart.write(every));
    ByteArray received;
    while (received.size() < every.size()) {
        const ByteArray part = uart.read(256);
        ASSERT_FALSE(part.empty()) << "half a second of silence after " << received.size() << " bytes";
        received.insert(received.end(), part.begin(), part.end());
    }
    EXPECT_EQ(every, received);
}
