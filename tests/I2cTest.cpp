#include "serialComm/I2c.h"

#include "support/Table.h"

#include <cerrno>
#include <limits>

template <>
struct Bench<I2c> {
    static I2c make() { return {"/dev/i2c-4", 0x48}; }
    static Script opening() { return {answers(7), answers(0)}; }
    static Script closing() { return {answers(0)}; }
};

static const char* const source = "src/lib/serialComm/I2c.cpp";
static constexpr size_t impossible = std::numeric_limits<size_t>::max();

TEST(I2cInit, OpensTheNodeAndBindsTheAddress)
{
    const auto life = [](ScriptedKernel& kernel) {
        I2c device{"/dev/i2c-4", 0x50};
        kernel.returned(device.init());
    };
    const Lives row{source, "virtual bool I2c::init()"};
    row("open and bound", {answers(7), answers(0), answers(0)}, life,
        "TRACE Enter: path: /dev/i2c-4 address 80\nopen(\"/dev/i2c-4\", O_RDWR) = 7\n"
        "ioctl(7, I2C_SLAVE, 0x50) = 0\nTRACE Leave: \nreturned true\nclose(7) = 0\n");
    row("descriptor 0 is a descriptor", {answers(0), answers(0), fails(EIO)}, life,
        "TRACE Enter: path: /dev/i2c-4 address 80\nopen(\"/dev/i2c-4\", O_RDWR) = 0\n"
        "ioctl(0, I2C_SLAVE, 0x50) = 0\nTRACE Leave: \nreturned true\nclose(0) = -1 EIO\n");
    row("no such node", {fails(ENOENT)}, life,
        "TRACE Enter: path: /dev/i2c-4 address 80\nopen(\"/dev/i2c-4\", O_RDWR) = -1 ENOENT\n"
        "ERROR Failed to open i2c device: /dev/i2c-4\nreturned false\n");
    row("address in use by a driver: closed before the line is written", {answers(7), fails(EBUSY), answers(0)}, life,
        "TRACE Enter: path: /dev/i2c-4 address 80\nopen(\"/dev/i2c-4\", O_RDWR) = 7\n"
        "ioctl(7, I2C_SLAVE, 0x50) = -1 EBUSY\nclose(7) = 0\nERROR ioctl failed\nreturned false\n");
    row("any answer but 0 is a refusal", {answers(7), answers(1), answers(0)}, life,
        "TRACE Enter: path: /dev/i2c-4 address 80\nopen(\"/dev/i2c-4\", O_RDWR) = 7\n"
        "ioctl(7, I2C_SLAVE, 0x50) = 1\nclose(7) = 0\nERROR ioctl failed\nreturned false\n");
    row(
        "a negative address goes out as 32 bits", {answers(7), fails(EINVAL), answers(0)},
        [](ScriptedKernel& kernel) {
            I2c device{"/dev/i2c-4", -1};
            kernel.returned(device.init());
        },
        "TRACE Enter: path: /dev/i2c-4 address -1\nopen(\"/dev/i2c-4\", O_RDWR) = 7\n"
        "ioctl(7, I2C_SLAVE, 0xffffffff) = -1 EINVAL\nclose(7) = 0\nERROR ioctl failed\nreturned false\n");
    row(
        "a second init closes the earlier descriptor just before it opens",
        {answers(7), answers(0), answers(0), answers(8), answers(0), answers(0)},
        [](ScriptedKernel& kernel) {
            I2c device{"/dev/i2c-4", 0x50};
            device.init();
            kernel.returned(device.init());
        },
        "TRACE Enter: path: /dev/i2c-4 address 80\nopen(\"/dev/i2c-4\", O_RDWR) = 7\n"
        "ioctl(7, I2C_SLAVE, 0x50) = 0\nTRACE Leave: \nTRACE Enter: path: /dev/i2c-4 address 80\n"
        "close(7) = 0\nopen(\"/dev/i2c-4\", O_RDWR) = 8\nioctl(8, I2C_SLAVE, 0x50) = 0\nTRACE Leave: \n"
        "returned true\nclose(8) = 0\n");
    row(
        "destroyed through the interface, it is closed", {answers(7), answers(0), answers(0)},
        [](ScriptedKernel& kernel) {
            const std::unique_ptr<SyncSerialBase> device = std::make_unique<I2c>("/dev/i2c-4", 0x50);
            kernel.returned(device->init());
        },
        "TRACE Enter: path: /dev/i2c-4 address 80\nopen(\"/dev/i2c-4\", O_RDWR) = 7\n"
        "ioctl(7, I2C_SLAVE, 0x50) = 0\nTRACE Leave: \nreturned true\nclose(7) = 0\n");
    row(
        "never opened, nothing is called", {},
        [](ScriptedKernel&) {
            const I2c device{"/dev/i2c-4", 0x50};
        },
        "");
}

TEST(I2cSetMaxSpeed, IsRefused)
{
    const auto call = [](I2c& device, ScriptedKernel& kernel) { kernel.returned(device.setMaxSpeed(400000)); };
    const char* const refusal = "ERROR I2C set max speed is not supported\nreturned false\n";
    const Transfers<I2c> row{source, "virtual bool I2c::setMaxSpeed(int)"};
    row("open", State::open, {}, call, refusal);
    row("closed", State::closed, {}, call, refusal);
}

TEST(I2cRead, SucceedsOnTheExactCountAlone)
{
    const auto four = [](I2c& device, ScriptedKernel& kernel) { kernel.returned(device.read(4)); };
    const auto none = [](I2c& device, ScriptedKernel& kernel) { kernel.returned(device.read(0)); };
    const Transfers<I2c> row{source, "virtual ByteArray I2c::read(size_t)"};
    row("all arrived", State::open, {answers(4, {1, 2, 3, 4})}, four,
        "TRACE Enter: len: 4\nread(7, [00 00 00 00], 4) = 4 [01 02 03 04]\nTRACE Leave: \n"
        "returned [01 02 03 04]\n");
    row("short: what arrived is dropped", State::open, {answers(2, {1, 2})}, four,
        "TRACE Enter: len: 4\nread(7, [00 00 00 00], 4) = 2 [01 02]\n"
        "ERROR I2C read failed, requested: 4, returned: 2\nreturned []\n");
    row("never opened", State::closed, {fails(EBADF)}, four,
        "TRACE Enter: len: 4\nread(-1, [00 00 00 00], 4) = -1 EBADF\n"
        "ERROR I2C read failed, requested: 4, returned: -1\nreturned []\n");
    row("of nothing", State::open, {answers(0)}, none,
        "TRACE Enter: len: 0\nread(7, NULL, 0) = 0\nTRACE Leave: \nreturned []\n");
    row("of nothing, and even that failed", State::open, {fails(ENXIO)}, none,
        "TRACE Enter: len: 0\nread(7, NULL, 0) = -1 ENXIO\n"
        "ERROR I2C read failed, requested: 0, returned: -1\nreturned []\n");
    row(
        "an impossible length throws before the call", State::open, {},
        [](I2c& device, ScriptedKernel& kernel) { kernel.threw([&] { device.read(impossible); }); },
        "TRACE Enter: len: 18446744073709551615\n"
        "threw cannot create std::vector larger than max_size()\n");
}

TEST(I2cWrite, SucceedsOnTheExactCountAlone)
{
    const auto four = [](I2c& device, ScriptedKernel& kernel) {
        const ByteArray data{0xde, 0xad, 0xbe, 0xef};
        kernel.callersBuffer(data);
        kernel.returned(device.write(data));
    };
    const auto none = [](I2c& device, ScriptedKernel& kernel) { kernel.returned(device.write({})); };
    const Transfers<I2c> row{source, "virtual bool I2c::write(const ByteArray&)"};
    row("all went out, of the caller's storage", State::open, {answers(4)}, four,
        "TRACE Enter: \nwrite(7, caller's [de ad be ef], 4) = 4\nTRACE Leave: \nreturned true\n");
    row("short", State::open, {answers(2)}, four,
        "TRACE Enter: \nwrite(7, caller's [de ad be ef], 4) = 2\n"
        "ERROR I2C write failed, requested: 4, written: 2\nreturned false\n");
    row("never opened", State::closed, {fails(EBADF)}, four,
        "TRACE Enter: \nwrite(-1, caller's [de ad be ef], 4) = -1 EBADF\n"
        "ERROR I2C write failed, requested: 4, written: -1\nreturned false\n");
    row("of nothing", State::open, {answers(0)}, none,
        "TRACE Enter: \nwrite(7, NULL, 0) = 0\nTRACE Leave: \nreturned true\n");
    row("of nothing, and even that failed", State::open, {fails(ENXIO)}, none,
        "TRACE Enter: \nwrite(7, NULL, 0) = -1 ENXIO\n"
        "ERROR I2C write failed, requested: 0, written: -1\nreturned false\n");
}

TEST(I2cWriteRead, IsOneRequestOfTwoMessages)
{
    const auto oneTwo = [](I2c& device, ScriptedKernel& kernel) {
        const ByteArray data{0x05};
        kernel.callersBuffer(data);
        kernel.returned(device.writeRead(data, 2));
    };
    const auto none = [](I2c& device, ScriptedKernel& kernel) { kernel.returned(device.writeRead({}, 0)); };
    const auto sizes = [](size_t size, size_t len) {
        return [=](I2c& device, ScriptedKernel& kernel) { kernel.returned(device.writeRead(ByteArray(size), len)); };
    };
    const char* const tooLong = "ERROR I2C ioctl I2C_RDWR failed, return: -1 error: Message too long\n"
                                "returned []\n";
    const Transfers<I2c> row{source, "virtual ByteArray I2c::writeRead(const ByteArray&, size_t)"};
    row("done", State::open, {answers(2, {0x19, 0x80})}, oneTwo,
        "ioctl(7, I2C_RDWR, {addr 0x48, flags 0x0, len 1, caller's [05]}, {addr 0x48, flags 0x1, len 2, "
        "[00 00]}) = 2 [19 80]\nreturned [19 80]\n");
    row("an answer of 0 is as good", State::open, {answers(0)}, oneTwo,
        "ioctl(7, I2C_RDWR, {addr 0x48, flags 0x0, len 1, caller's [05]}, {addr 0x48, flags 0x1, len 2, "
        "[00 00]}) = 0\nreturned [00 00]\n");
    row("the error's text is that of the request", State::open, {fails(ENXIO)}, oneTwo,
        "ioctl(7, I2C_RDWR, {addr 0x48, flags 0x0, len 1, caller's [05]}, {addr 0x48, flags 0x1, len 2, "
        "[00 00]}) = -1 ENXIO\n"
        "ERROR I2C ioctl I2C_RDWR failed, return: -1 error: No such device or address\nreturned []\n");
    row("any negative answer is a failure", State::open, {{-5, EIO, {}, {}}}, oneTwo,
        "ioctl(7, I2C_RDWR, {addr 0x48, flags 0x0, len 1, caller's [05]}, {addr 0x48, flags 0x1, len 2, "
        "[00 00]}) = -5 EIO\nERROR I2C ioctl I2C_RDWR failed, return: -5 error: Input/output error\n"
        "returned []\n");
    row("never opened", State::closed, {fails(EBADF)}, none,
        "ioctl(-1, I2C_RDWR, {addr 0x48, flags 0x0, len 0, NULL}, {addr 0x48, flags 0x1, len 0, NULL}) = "
        "-1 EBADF\nERROR I2C ioctl I2C_RDWR failed, return: -1 error: Bad file descriptor\nreturned []\n");
    row("nothing to send, nothing to receive", State::open, {answers(2)}, none,
        "ioctl(7, I2C_RDWR, {addr 0x48, flags 0x0, len 0, NULL}, {addr 0x48, flags 0x1, len 0, NULL}) = "
        "2\nreturned []\n");
    const std::string longest = ", len 65535, [" + hex(ByteArray(65535).data(), 65535) + "]}";
    row(
        "65535 bytes each way fit", State::open, {answers(2)},
        [](I2c& device, ScriptedKernel&) { EXPECT_EQ(65535U, device.writeRead(ByteArray(65535), 65535).size()); },
        "ioctl(7, I2C_RDWR, {addr 0x48, flags 0x0" + longest + ", {addr 0x48, flags 0x1" + longest + ") = 2\n");
    row("65536 bytes to send do not fit", State::open, {}, sizes(65536, 1), tooLong);
    row("65536 bytes to receive do not fit", State::open, {}, sizes(1, 65536), tooLong);
    row(
        "an impossible length throws", State::open, {},
        [](I2c& device, ScriptedKernel& kernel) { kernel.threw([&] { device.writeRead({}, impossible); }); },
        "threw cannot create std::vector larger than max_size()\n");
}

TEST(I2cReadRegister, IsAWriteAndARead)
{
    const auto two = [](I2c& device, ScriptedKernel& kernel) { kernel.returned(device.readRegister(0x10, 2)); };
    const auto none = [](I2c& device, ScriptedKernel& kernel) { kernel.returned(device.readRegister(0x10, 0)); };
    const Transfers<I2c> row{source, "virtual ByteArray I2c::readRegister(uint8_t, size_t)"};
    row("done", State::open, {answers(1), answers(2, {0xab, 0xcd})}, two,
        "TRACE Enter: \nwrite(7, [10], 1) = 1\nread(7, [00 00], 2) = 2 [ab cd]\nTRACE Leave: \n"
        "returned [ab cd]\n");
    row("the register address did not go out: nothing is read", State::open, {fails(ENXIO)}, two,
        "TRACE Enter: \nwrite(7, [10], 1) = -1 ENXIO\n"
        "ERROR I2C write register address failed, requested: 1, written: -1\nreturned []\n");
    row("a write of 0 bytes is no better", State::open, {answers(0)}, two,
        "TRACE Enter: \nwrite(7, [10], 1) = 0\n"
        "ERROR I2C write register address failed, requested: 1, written: 0\nreturned []\n");
    row("short: what arrived is dropped", State::open, {answers(1), answers(1, {0xab})}, two,
        "TRACE Enter: \nwrite(7, [10], 1) = 1\nread(7, [00 00], 2) = 1 [ab]\n"
        "ERROR I2C read from register failed, requested: 2, returned: 1\nreturned []\n");
    row("of nothing", State::open, {answers(1), answers(0)}, none,
        "TRACE Enter: \nwrite(7, [10], 1) = 1\nread(7, NULL, 0) = 0\nTRACE Leave: \nreturned []\n");
    row("of nothing, and even that failed", State::open, {answers(1), fails(EIO)}, none,
        "TRACE Enter: \nwrite(7, [10], 1) = 1\nread(7, NULL, 0) = -1 EIO\n"
        "ERROR I2C read from register failed, requested: 0, returned: -1\nreturned []\n");
    row(
        "an impossible length throws once the register address is out", State::open, {answers(1)},
        [](I2c& device, ScriptedKernel& kernel) { kernel.threw([&] { device.readRegister(0x10, impossible); }); },
        "TRACE Enter: \nwrite(7, [10], 1) = 1\nthrew cannot create std::vector larger than max_size()\n");
}

TEST(I2cWriteRegister, IsOneWriteOfAddressAndData)
{
    const auto four = [](I2c& device, ScriptedKernel& kernel) {
        kernel.returned(device.writeRegister(0x10, {1, 2, 3, 4}));
    };
    const auto none = [](I2c& device, ScriptedKernel& kernel) { kernel.returned(device.writeRegister(0x10, {})); };
    const Transfers<I2c> row{source, "virtual bool I2c::writeRegister(uint8_t, const ByteArray&)"};
    row("all went out", State::open, {answers(5)}, four,
        "TRACE Enter: \nwrite(7, [10 01 02 03 04], 5) = 5\nTRACE Leave: \nreturned true\n");
    row("one short: the line shows the same number twice", State::open, {answers(4)}, four,
        "TRACE Enter: \nwrite(7, [10 01 02 03 04], 5) = 4\n"
        "ERROR I2C write to register failed, requested: 4, written: 4\nreturned false\n");
    row("the address alone", State::open, {answers(1)}, none,
        "TRACE Enter: \nwrite(7, [10], 1) = 1\nTRACE Leave: \nreturned true\n");
    row("never opened", State::closed, {fails(EBADF)}, none,
        "TRACE Enter: \nwrite(-1, [10], 1) = -1 EBADF\n"
        "ERROR I2C write to register failed, requested: 0, written: -1\nreturned false\n");
}
