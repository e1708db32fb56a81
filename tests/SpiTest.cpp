#include "serialComm/Spi.h"

#include "support/Table.h"

#include <cerrno>
#include <limits>

template <>
struct Bench<Spi> {
    static Spi make() { return {"/dev/spidev2.0", 500000, 3}; }
    static Script opening() { return {answers(7), answers(0), answers(0), answers(0), answers(0)}; }
    static Script closing() { return {answers(0)}; }
};

static const char* const source = "src/lib/serialComm/Spi.cpp";

/// A 32-bit value as it lies in memory.
static ByteArray word(uint32_t value)
{
    const auto* bytes = reinterpret_cast<const uint8_t*>(&value);
    return {bytes, bytes + sizeof value};
}

/// A derived class's setMaxSpeed() is the one that init() calls.
class SlowerSpi : public Spi
{
public:
    using Spi::Spi;
    bool setMaxSpeed(int hz) override { return Spi::setMaxSpeed(hz / 2); }
};

TEST(SpiInit, AppliesModeAndClockAndGoesOnWhenRefused)
{
    const auto life = [](ScriptedKernel& kernel) {
        Spi device{"/dev/spidev2.0", 500000, 3};
        kernel.returned(device.init());
    };
    const Lives row{source, "virtual bool Spi::init()"};
    row(
        "what the driver reports back replaces what was asked for",
        {answers(7), answers(0), answers(0, {1}), answers(0), answers(0, word(480000)), answers(1, {0x40}), answers(0)},
        [](ScriptedKernel& kernel) {
            Spi device{"/dev/spidev2.0", 500000, 3};
            kernel.returned(device.init());
            kernel.expectLinesFrom(source, "virtual ByteArray Spi::read(size_t)");
            kernel.returned(device.read(1));
        },
        "TRACE Enter: path: /dev/spidev2.0\nopen(\"/dev/spidev2.0\", O_RDWR) = 7\n"
        "ioctl(7, SPI_IOC_WR_MODE, [03]) = 0\nioctl(7, SPI_IOC_RD_MODE, [03]) = 0 [01]\n"
        "TRACE Enter: Speed: 500000 (from "
        "src/lib/serialComm/Spi.cpp, virtual bool Spi::setMaxSpeed(int))\n"
        "ioctl(7, SPI_IOC_WR_MAX_SPEED_HZ, 500000) = 0\n"
        "ioctl(7, SPI_IOC_RD_MAX_SPEED_HZ, 500000) = 0 [00 53 07 00]\n"
        "DEBUG SPI set speed Hz: 480000 (from src/lib/serialComm/Spi.cpp, virtual bool Spi::setMaxSpeed(int))\n"
        "INFO Leave: SPI initialized with speed Hz: 480000\nreturned true\nTRACE Enter: \n"
        "ioctl(7, SPI_IOC_MESSAGE(1), {tx NULL, rx [00], len 1, 480000 Hz, 8 bits}) = 1 [40]\n"
        "TRACE Leave: \nreturned [40]\nclose(7) = 0\n");
    row("no such node", {fails(ENOENT)}, life,
        "TRACE Enter: path: /dev/spidev2.0\nopen(\"/dev/spidev2.0\", O_RDWR) = -1 ENOENT\n"
        "ERROR Failed to open spi device: /dev/spidev2.0\nreturned false\n");
    row("everything refused", {answers(0), fails(EINVAL), fails(EINVAL), fails(EINVAL), fails(EINVAL), answers(0)},
        life,
        "TRACE Enter: path: /dev/spidev2.0\nopen(\"/dev/spidev2.0\", O_RDWR) = 0\n"
        "ioctl(0, SPI_IOC_WR_MODE, [03]) = -1 EINVAL\nERROR SPI can't set spi write mode\n"
        "ioctl(0, SPI_IOC_RD_MODE, [03]) = -1 EINVAL\nERROR SPI can't set spi read mode\n"
        "TRACE Enter: Speed: 500000 (from "
        "src/lib/serialComm/Spi.cpp, virtual bool Spi::setMaxSpeed(int))\n"
        "ioctl(0, SPI_IOC_WR_MAX_SPEED_HZ, 500000) = -1 EINVAL\n"
        "ERROR SPI can't set write max speed hz (from src/lib/serialComm/Spi.cpp, virtual bool "
        "Spi::setMaxSpeed(int))\nioctl(0, SPI_IOC_RD_MAX_SPEED_HZ, 500000) = -1 EINVAL\n"
        "ERROR SPI can't get max speed hz (from src/lib/serialComm/Spi.cpp, virtual bool "
        "Spi::setMaxSpeed(int))\n"
        "DEBUG SPI set speed Hz: 500000 (from src/lib/serialComm/Spi.cpp, virtual bool Spi::setMaxSpeed(int))\n"
        "INFO Leave: SPI initialized with speed Hz: 500000\nreturned true\nclose(0) = 0\n");
    row(
        "only -1 is a refusal; a derived setMaxSpeed is the one called",
        {answers(7), answers(-2), answers(-2), answers(-2), answers(-2), answers(0)},
        [](ScriptedKernel& kernel) {
            recordLog(log4cplus::INFO_LOG_LEVEL);
            SlowerSpi device{"/dev/spidev2.0", 500000, 3};
            kernel.returned(device.init());
            recordLog();
        },
        "open(\"/dev/spidev2.0\", O_RDWR) = 7\nioctl(7, SPI_IOC_WR_MODE, [03]) = -2\n"
        "ioctl(7, SPI_IOC_RD_MODE, [03]) = -2\nioctl(7, SPI_IOC_WR_MAX_SPEED_HZ, 250000) = -2\n"
        "ioctl(7, SPI_IOC_RD_MAX_SPEED_HZ, 500000) = -2\n"
        "INFO Leave: SPI initialized with speed Hz: 500000\nreturned true\nclose(7) = 0\n");
    row(
        "a second init closes the earlier descriptor just before it opens",
        {answers(7), answers(0), answers(0), answers(0), answers(0), answers(0), fails(ENODEV)},
        [](ScriptedKernel& kernel) {
            recordLog(log4cplus::ERROR_LOG_LEVEL);
            Spi device{"/dev/spidev2.0", 500000, 3};
            kernel.returned(device.init());
            kernel.returned(device.init());
            recordLog();
        },
        "open(\"/dev/spidev2.0\", O_RDWR) = 7\nioctl(7, SPI_IOC_WR_MODE, [03]) = 0\n"
        "ioctl(7, SPI_IOC_RD_MODE, [03]) = 0\nioctl(7, SPI_IOC_WR_MAX_SPEED_HZ, 500000) = 0\n"
        "ioctl(7, SPI_IOC_RD_MAX_SPEED_HZ, 500000) = 0\nreturned true\nclose(7) = 0\n"
        "open(\"/dev/spidev2.0\", O_RDWR) = -1 ENODEV\nERROR Failed to open spi device: /dev/spidev2.0\n"
        "returned false\n");
    row(
        "never opened, nothing is called", {},
        [](ScriptedKernel&) {
            const Spi device{"/dev/x", 1, 0};
        },
        "");
}

TEST(SpiSetMaxSpeed, KeepsWhatTheDriverReports)
{
    const Transfers<Spi> row{source, "virtual bool Spi::setMaxSpeed(int)"};
    row(
        "before init", State::closed, {fails(EBADF), fails(EBADF)},
        [](Spi& device, ScriptedKernel& kernel) { kernel.returned(device.setMaxSpeed(1000)); },
        "TRACE Enter: Speed: 1000\nioctl(-1, SPI_IOC_WR_MAX_SPEED_HZ, 1000) = -1 EBADF\n"
        "ERROR SPI can't set write max speed hz\n"
        "ioctl(-1, SPI_IOC_RD_MAX_SPEED_HZ, 500000) = -1 EBADF\nERROR SPI can't get max speed hz\n"
        "DEBUG SPI set speed Hz: 500000\nreturned true\n");
    row(
        "a negative clock goes out as the same 32 bits", State::open, {answers(0), answers(0, word(7))},
        [](Spi& device, ScriptedKernel& kernel) { kernel.returned(device.setMaxSpeed(-1)); },
        "TRACE Enter: Speed: -1\nioctl(7, SPI_IOC_WR_MAX_SPEED_HZ, 4294967295) = 0\n"
        "ioctl(7, SPI_IOC_RD_MAX_SPEED_HZ, 500000) = 0 [07 00 00 00]\nDEBUG SPI set speed Hz: 7\n"
        "returned true\n");
}

TEST(SpiRead, IsFullLengthWhateverTheDriverAnswers)
{
    const auto two = [](Spi& device, ScriptedKernel& kernel) { kernel.returned(device.read(2)); };
    const Transfers<Spi> row{source, "virtual ByteArray Spi::read(size_t)"};
    row("done", State::open, {answers(2, {0xef, 0x40})}, two,
        "TRACE Enter: \n"
        "ioctl(7, SPI_IOC_MESSAGE(1), {tx NULL, rx [00 00], len 2, 500000 Hz, 8 bits}) = 2 [ef 40]\n"
        "TRACE Leave: \nreturned [ef 40]\n");
    row("failed: the errno is the request's", State::closed, {fails(ESHUTDOWN)}, two,
        "TRACE Enter: \n"
        "ioctl(-1, SPI_IOC_MESSAGE(1), {tx NULL, rx [00 00], len 2, 500000 Hz, 8 bits}) = -1 ESHUTDOWN\n"
        "ERROR SPI can't read spi message. errno: 108\nTRACE Leave: \nreturned [00 00]\n");
    row(
        "of nothing: an answer of 0 counts as failed", State::open, {{0, EAGAIN, {}, {}}},
        [](Spi& device, ScriptedKernel& kernel) { kernel.returned(device.read(0)); },
        "TRACE Enter: \n"
        "ioctl(7, SPI_IOC_MESSAGE(1), {tx NULL, rx NULL, len 0, 500000 Hz, 8 bits}) = 0 EAGAIN\n"
        "ERROR SPI can't read spi message. errno: 11\nTRACE Leave: \nreturned []\n");
    row(
        "an impossible length throws before the call", State::open, {},
        [](Spi& device, ScriptedKernel& kernel) {
            kernel.threw([&] { device.read(std::numeric_limits<size_t>::max()); });
        },
        "TRACE Enter: \nthrew cannot create std::vector larger than max_size()\n");
}

TEST(SpiWrite, IsTrueWhateverTheDriverAnswers)
{
    const auto two = [](Spi& device, ScriptedKernel& kernel) {
        const ByteArray data{0x06, 0x07};
        kernel.callersBuffer(data);
        kernel.returned(device.write(data));
    };
    const Transfers<Spi> row{source, "virtual bool Spi::write(const ByteArray&)"};
    row("done, out of the caller's storage", State::open, {answers(2)}, two,
        "TRACE Enter: \n"
        "ioctl(7, SPI_IOC_MESSAGE(1), {tx caller's [06 07], rx NULL, len 2, 500000 Hz, 8 bits}) = 2\n"
        "TRACE Leave: \nreturned true\n");
    row("failed: the errno is the request's", State::open, {fails(EMSGSIZE)}, two,
        "TRACE Enter: \n"
        "ioctl(7, SPI_IOC_MESSAGE(1), {tx caller's [06 07], rx NULL, len 2, 500000 Hz, 8 bits}) = -1 "
        "EMSGSIZE\nERROR SPI can't send message. errno: 90\nTRACE Leave: \nreturned true\n");
    row(
        "of nothing: an answer of 0 counts as failed", State::open, {{0, EAGAIN, {}, {}}},
        [](Spi& device, ScriptedKernel& kernel) { kernel.returned(device.write({})); },
        "TRACE Enter: \n"
        "ioctl(7, SPI_IOC_MESSAGE(1), {tx NULL, rx NULL, len 0, 500000 Hz, 8 bits}) = 0 EAGAIN\n"
        "ERROR SPI can't send message. errno: 11\nTRACE Leave: \nreturned true\n");
}

TEST(SpiWriteRead, IsAsLongAsTheLongerOfTheTwo)
{
    const auto sends = [](ByteArray data, size_t len) {
        return [data = std::move(data), len](Spi& device, ScriptedKernel& kernel) {
            kernel.callersBuffer(data);
            kernel.returned(device.writeRead(data, len));
        };
    };
    const Transfers<Spi> row{source, "virtual ByteArray Spi::writeRead(const ByteArray&, size_t)"};
    row("more to receive: a copy filled up with zero bytes goes out", State::open, {answers(4, {0, 0xef, 0x40, 0x14})},
        sends({0x9f, 0x01}, 4),
        "ioctl(7, SPI_IOC_MESSAGE(1), {tx [9f 01 00 00], rx [00 00 00 00], len 4, 500000 Hz, 8 bits}) = 4 "
        "[00 ef 40 14]\nreturned [00 ef 40 14]\n");
    row("more to send: the caller's storage goes out", State::open, {answers(3, {1, 2, 3})},
        sends({0x9f, 0x01, 0x02}, 1),
        "ioctl(7, SPI_IOC_MESSAGE(1), {tx caller's [9f 01 02], rx [00 00 00], len 3, 500000 Hz, 8 bits}) "
        "= 3 [01 02 03]\nreturned [01 02 03]\n");
    row("as much of both", State::open, {answers(1, {5})}, sends({0x9f}, 1),
        "ioctl(7, SPI_IOC_MESSAGE(1), {tx caller's [9f], rx [00], len 1, 500000 Hz, 8 bits}) = 1 [05]\n"
        "returned [05]\n");
    row("nothing to send", State::open, {answers(2, {5, 6})}, sends({}, 2),
        "ioctl(7, SPI_IOC_MESSAGE(1), {tx [00 00], rx [00 00], len 2, 500000 Hz, 8 bits}) = 2 [05 06]\n"
        "returned [05 06]\n");
    row("nothing at all", State::open, {{0, EAGAIN, {}, {}}}, sends({}, 0),
        "ioctl(7, SPI_IOC_MESSAGE(1), {tx NULL, rx NULL, len 0, 500000 Hz, 8 bits}) = 0 EAGAIN\n"
        "ERROR SPI can't send/read message. ret:0\nreturned []\n");
    row("failed", State::closed, {fails(EBADF)}, sends({0x9f}, 2),
        "ioctl(-1, SPI_IOC_MESSAGE(1), {tx [9f 00], rx [00 00], len 2, 500000 Hz, 8 bits}) = -1 EBADF\n"
        "ERROR SPI can't send/read message. ret:-1\nreturned [00 00]\n");
    row(
        "an impossible length throws", State::open, {},
        [](Spi& device, ScriptedKernel& kernel) {
            kernel.threw([&] { device.writeRead({1}, std::numeric_limits<size_t>::max()); });
        },
        "threw cannot create std::vector larger than max_size()\n");
}

TEST(SpiTransfers, AreRefusedFrom4GiBOn)
{
    constexpr size_t tooLong = size_t{1} << 32U;
    const Transfers<Spi> read{source, "virtual ByteArray Spi::read(size_t)"};
    read(
        "to receive", State::open, {},
        [&](Spi& device, ScriptedKernel&) { EXPECT_EQ(tooLong, device.read(tooLong).size()); },
        "TRACE Enter: \nERROR SPI can't read spi message. errno: 90\nTRACE Leave: \n");
    const Transfers<Spi> write{source, "virtual bool Spi::write(const ByteArray&)"};
    write(
        "to send", State::open, {},
        [&](Spi& device, ScriptedKernel&) { EXPECT_TRUE(device.write(ByteArray(tooLong))); },
        "TRACE Enter: \nERROR SPI can't send message. errno: 90\nTRACE Leave: \n");
    const Transfers<Spi> writeRead{source, "virtual ByteArray Spi::writeRead(const ByteArray&, size_t)"};
    writeRead(
        "both", State::open, {},
        [&](Spi& device, ScriptedKernel&) { EXPECT_EQ(tooLong, device.writeRead({1}, tooLong).size()); },
        "ERROR SPI can't send/read message. ret:-1\n");
}
