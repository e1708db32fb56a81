// Each bus's driver is taken from its device while an object is open, and given back.
#include "serialComm/I2c.h"
#include "serialComm/Spi.h"
#include "serialComm/Uart.h"

#include "Board.h"

#include <chrono>
#include <optional>
#include <thread>

using Unplugged = OnBoard;

struct Plug {
    const char* driver;
    const char* device;
    const char* node;

    void unbind() const { tell(std::string{driver} + "/unbind", device); }
    void awaitGone() const
    {
        await(node, [this] { return !exists(node); });
    }
    void bind() const
    {
        tell(std::string{driver} + "/bind", device);
        await(node, [this] { return exists(node); });
    }
};

static const Plug i2c{"/sys/bus/platform/drivers/imx-i2c", "30ad0000.i2c", "/dev/i2c-4"};
static const Plug spi{"/sys/bus/spi/drivers/spidev", "spi2.0", "/dev/spidev2.0"};
static const Plug serial{"/sys/bus/platform/drivers/imx-uart", "30860000.serial", "/dev/ttymxc0"};

TEST_F(Unplugged, ASpiNodeSaysShutdown)
{
    std::optional<Spi> flash{std::in_place, "/dev/spidev2.0", 500000, 0};
    ASSERT_TRUE(opened(*flash));
    spi.unbind();
    spi.awaitGone();
    recordLog(log4cplus::ERROR_LOG_LEVEL);
    check({
        {"read", [&](ScriptedKernel& kernel) { kernel.returned(flash->read(1)); },
         "ioctl(7, SPI_IOC_MESSAGE(1), {tx NULL, rx [00], len 1, 500000 Hz, 8 bits}) = -1 ESHUTDOWN\n"
         "ERROR SPI can't read spi message. errno: 108\n"
         "returned [00]\n"},
        {"write", [&](ScriptedKernel& kernel) { kernel.returned(flash->write({6})); },
         "ioctl(7, SPI_IOC_MESSAGE(1), {tx [06], rx NULL, len 1, 500000 Hz, 8 bits}) = -1 ESHUTDOWN\n"
         "ERROR SPI can't send message. errno: 108\n"
         "returned true\n"},
        {"both", [&](ScriptedKernel& kernel) { kernel.returned(flash->writeRead({0x9f}, 2)); },
         "ioctl(7, SPI_IOC_MESSAGE(1), {tx [9f 00], rx [00 00], len 2, 500000 Hz, 8 bits}) = -1 ESHUTDOWN\n"
         "ERROR SPI can't send/read message. ret:-1\n"
         "returned [00 00]\n"},
        {"clock", [&](ScriptedKernel& kernel) { kernel.returned(flash->setMaxSpeed(1000)); },
         "ioctl(7, SPI_IOC_WR_MAX_SPEED_HZ, 1000) = -1 ESHUTDOWN\n"
         "ERROR SPI can't set write max speed hz\n"
         "ioctl(7, SPI_IOC_RD_MAX_SPEED_HZ, 500000) = -1 ESHUTDOWN\n"
         "ERROR SPI can't get max speed hz\n"
         "returned true\n"},
        {"init", [&](ScriptedKernel& kernel) { kernel.returned(flash->init()); },
         "close(7) = 0\n"
         "open(\"/dev/spidev2.0\", O_RDWR) = -1 ENOENT\n"
         "ERROR Failed to open spi device: /dev/spidev2.0\n"
         "returned false\n"},
        {"the end", [&](ScriptedKernel&) { flash.reset(); }, ""},
    });

    spi.bind();
    Spi another{"/dev/spidev2.0", 500000, 0};
    EXPECT_TRUE(another.init());
    EXPECT_EQ((ByteArray{0x00, 0xef, 0x40, 0x14}), another.writeRead({0x9f}, 4));
}

TEST_F(Unplugged, AnI2cBusGoesOnUntilItsLastDescriptorIsClosed)
{
    std::optional<I2c> eeprom{std::in_place, "/dev/i2c-4", 0x50};
    ASSERT_TRUE(opened(*eeprom));
    std::thread unbinding{[] { i2c.unbind(); }};
    i2c.awaitGone();
    recordLog(log4cplus::ERROR_LOG_LEVEL);
    check({
        {"write",
         [&](ScriptedKernel& kernel) {
             kernel.returned(eeprom->write({0, 0xc0}));
         },
         "write(7, [00 c0], 2) = 2\n"
         "returned true\n"},
        {"read", [&](ScriptedKernel& kernel) { kernel.returned(eeprom->readRegister(0, 1)); },
         "write(7, [00], 1) = 1\n"
         "read(7, [00], 1) = 1 [c0]\n"
         "returned [c0]\n"},
        {"combined", [&](ScriptedKernel& kernel) { kernel.returned(eeprom->writeRead({0}, 1)); },
         "ioctl(7, I2C_RDWR, {addr 0x50, flags 0x0, len 1, [00]}, {addr 0x50, flags 0x1, len 1, [00]}) = 2 [c0]\n"
         "returned [c0]\n"},
        {"init", [&](ScriptedKernel& kernel) { kernel.returned(eeprom->init()); },
         "close(7) = 0\n"
         "open(\"/dev/i2c-4\", O_RDWR) = -1 ENOENT\n"
         "ERROR Failed to open i2c device: /dev/i2c-4\n"
         "returned false\n"},
        {"the end", [&](ScriptedKernel&) { eeprom.reset(); }, ""},
    });
    unbinding.join();

    i2c.bind();
    I2c another{"/dev/i2c-4", 0x50};
    EXPECT_TRUE(another.init());
    EXPECT_EQ(ByteArray{0xc0}, another.readRegister(0, 1));
}

TEST_F(Unplugged, AUartReadsAsEmptyAtOnceAndSaysEioOtherwise)
{
    outputOf("stty -F /dev/ttymxc0 9600 sane cs7 parenb hupcl min 1 time 0");
    std::optional<Uart> uart{std::in_place, "/dev/ttymxc0", 115200, 1, "none", true};
    ASSERT_TRUE(opened(*uart));
    serial.unbind();
    serial.awaitGone();
    recordLog(log4cplus::ERROR_LOG_LEVEL);
    check({
        {"read: no error",
         [&](ScriptedKernel& kernel) {
             bool error = true;
             kernel.returned(uart->read(2, &error));
             kernel.add(error ? "error" : "no error");
         },
         "read(7, [00 00], 2) = 0\n"
         "returned []\n"
         "no error\n"},
        {"write", [&](ScriptedKernel& kernel) { kernel.returned(uart->write({1})); },
         "write(7, [01], 1) = -1 EIO\n"
         "ERROR Uart write failed: 5\n"
         "returned false\n"},
        {"the end", [&](ScriptedKernel&) { uart.reset(); },
         "tcsetattr(7, TCSANOW, {cflag 0xdad, VTIME 0, speeds 13 13, and more}) = -1 EIO\n"
         "close(7) = 0\n"},
        {"init",
         [&](ScriptedKernel& kernel) {
             kernel.returned(Uart{"/dev/ttymxc0", 9600, 1, "none", true}.init());
         },
         "open(\"/dev/ttymxc0\", O_RDWR | O_NOCTTY) = -1 ENOENT\n"
         "ERROR Cannot open serial device on path /dev/ttymxc0\n"
         "returned false\n"},
    });

    serial.bind();
    Uart another{"/dev/ttymxc0", 115200, 1, "none", true};
    EXPECT_TRUE(another.init());
    EXPECT_TRUE(another.write({0x3f}));
    if (hostAnswers()) {
        EXPECT_EQ(ByteArray{0x3f}, another.read(64));
    }
}

TEST_F(Unplugged, TheToolSaysThatThePortIsGoneAndDoesNotSpin)
{
    const struct {
        const char* command;
        const char* output;
    } table[] = {
        {"serialcomm uart read /dev/ttymxc0",
         "serialcomm: /dev/ttymxc0 is gone: unplugged, or closed at the other side\n"
         "status 1\n"},
        {"serialcomm uart echo /dev/ttymxc0",
         "serialcomm: /dev/ttymxc0 is gone: unplugged, or closed at the other side\n"
         "status 1\n"},
        {"sleep 4 | serialcomm uart term /dev/ttymxc0",
         "serialcomm: /dev/ttymxc0 at 115200 8N1; Ctrl-] ends\n"
         "serialcomm: /dev/ttymxc0 is gone; waiting for it to come back, Ctrl-] ends\n"
         "serialcomm: /dev/ttymxc0 is back\n"
         "status 0\n"},
    };
    for (const auto& row : table) {
        SCOPED_TRACE(row.command);
        std::string output;
        std::thread tool{[&] {
            output = outputOf("ulimit -t 1; (" + std::string{row.command} + ") 2>&1; echo status $?");  // 1 s of CPU
        }};
        await("the tool has the port",
              [] { return outputOf("ls -l /proc/[0-9]*/fd 2>/dev/null").find("/dev/ttymxc0") != std::string::npos; });
        serial.unbind();
        serial.awaitGone();
        std::this_thread::sleep_for(std::chrono::milliseconds{1500});  // in which it could spin
        serial.bind();
        tool.join();
        EXPECT_EQ(row.output, output);
    }
}
