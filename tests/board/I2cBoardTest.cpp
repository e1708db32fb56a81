// The bus /dev/i2c-4: a TMP105 at 0x48, its limit of 75 degrees (register 2) untouched, and a 24C02 of 256 bytes at
// 0x50.
#include "serialComm/I2c.h"

#include "Board.h"

using I2cOnBoard = OnBoard;

static const char* const bus = "/dev/i2c-4";

static std::function<void(ScriptedKernel&)> life(const char* path, int address)
{
    return [=](ScriptedKernel& kernel) {
        I2c device{path, address};
        kernel.returned(device.init());
    };
}

TEST_F(I2cOnBoard, TheKernelChecksTheAddressWhenItIsBound)
{
    const char* const bound = "TRACE Enter SerialComm/virtual bool I2c::init(): path: /dev/i2c-4 address 80\n"
                              "open(\"/dev/i2c-4\", O_RDWR) = 7\n"
                              "ioctl(7, I2C_SLAVE, 0x50) = 0\n"
                              "TRACE Leave SerialComm/virtual bool I2c::init(): \n"
                              "returned true\n"
                              "close(7) = 0\n";
    check({
        {"open and bound", life(bus, 0x50), bound},
        {"8 bits are no address", life(bus, 0x80),
         "TRACE Enter SerialComm/virtual bool I2c::init(): path: /dev/i2c-4 address 128\n"
         "open(\"/dev/i2c-4\", O_RDWR) = 7\n"
         "ioctl(7, I2C_SLAVE, 0x80) = -1 EINVAL\n"
         "close(7) = 0\n"
         "ERROR ioctl failed\n"
         "returned false\n"},
        {"no such node", life("/dev/i2c-9", 0x50),
         "TRACE Enter SerialComm/virtual bool I2c::init(): path: /dev/i2c-9 address 80\n"
         "open(\"/dev/i2c-9\", O_RDWR) = -1 ENOENT\n"
         "ERROR Failed to open i2c device: /dev/i2c-9\n"
         "returned false\n"},
    });

    outputOf("insmod /lib/modules/at24.ko 2>&1");  // or it is there already
    tell("/sys/bus/i2c/devices/i2c-4/new_device", "24c02 0x50");
    check({
        {"address in use by a driver", life(bus, 0x50),
         "TRACE Enter SerialComm/virtual bool I2c::init(): path: /dev/i2c-4 address 80\n"
         "open(\"/dev/i2c-4\", O_RDWR) = 7\n"
         "ioctl(7, I2C_SLAVE, 0x50) = -1 EBUSY\n"
         "close(7) = 0\n"
         "ERROR ioctl failed\n"
         "returned false\n"},
    });
    tell("/sys/bus/i2c/devices/i2c-4/delete_device", "0x50");
    check({{"the driver gave it back", life(bus, 0x50), bound}});
}

TEST_F(I2cOnBoard, WhatIsWrittenIsReadBack)
{
    I2c eeprom{bus, 0x50};
    ASSERT_TRUE(opened(eeprom));
    check({
        {"plain: the address in the chip, and bytes",
         [&](ScriptedKernel& kernel) {
             const ByteArray data{0x10, 1, 2, 3, 4};
             kernel.callersBuffer(data);
             kernel.returned(eeprom.write(data));
         },
         "TRACE Enter SerialComm/virtual bool I2c::write(const ByteArray&): \n"
         "write(7, caller's [10 01 02 03 04], 5) = 5\n"
         "TRACE Leave SerialComm/virtual bool I2c::write(const ByteArray&): \n"
         "returned true\n"},
        {"combined", [&](ScriptedKernel& kernel) { kernel.returned(eeprom.writeRead({0x11}, 2)); },
         "ioctl(7, I2C_RDWR, {addr 0x50, flags 0x0, len 1, [11]}, {addr 0x50, flags 0x1, len 2, [00 00]}) = 2 [02 03]\n"
         "returned [02 03]\n"},
        {"plain: where the chip stands now", [&](ScriptedKernel& kernel) { kernel.returned(eeprom.read(1)); },
         "TRACE Enter SerialComm/virtual ByteArray I2c::read(size_t): len: 1\n"
         "read(7, [00], 1) = 1 [04]\n"
         "TRACE Leave SerialComm/virtual ByteArray I2c::read(size_t): \n"
         "returned [04]\n"},
        {"into a register", [&](ScriptedKernel& kernel) { kernel.returned(eeprom.writeRegister(0x12, {9})); },
         "TRACE Enter SerialComm/virtual bool I2c::writeRegister(uint8_t, const ByteArray&): \n"
         "write(7, [12 09], 2) = 2\n"
         "TRACE Leave SerialComm/virtual bool I2c::writeRegister(uint8_t, const ByteArray&): \n"
         "returned true\n"},
        {"from a register", [&](ScriptedKernel& kernel) { kernel.returned(eeprom.readRegister(0x11, 3)); },
         "TRACE Enter SerialComm/virtual ByteArray I2c::readRegister(uint8_t, size_t): \n"
         "write(7, [11], 1) = 1\n"
         "read(7, [00 00 00], 3) = 3 [02 09 04]\n"
         "TRACE Leave SerialComm/virtual ByteArray I2c::readRegister(uint8_t, size_t): \n"
         "returned [02 09 04]\n"},
        {"of the other chip, opened anew",
         [&](ScriptedKernel& kernel) {
             I2c sensor{bus, 0x48};
             recordLog(log4cplus::ERROR_LOG_LEVEL);
             kernel.returned(sensor.init());
             kernel.returned(sensor.readRegister(2, 2));
             recordLog();
         },
         "open(\"/dev/i2c-4\", O_RDWR) = 8\n"
         "ioctl(8, I2C_SLAVE, 0x48) = 0\n"
         "returned true\n"
         "write(8, [02], 1) = 1\n"
         "read(8, [00 00], 2) = 2 [4b 00]\n"
         "returned [4b 00]\n"
         "close(8) = 0\n"},
        {"the clock is not ours", [&](ScriptedKernel& kernel) { kernel.returned(eeprom.setMaxSpeed(400000)); },
         "ERROR I2C set max speed is not supported\n"
         "returned false\n"},
    });
}

TEST_F(I2cOnBoard, NobodyAnswers)
{
    I2c absent{bus, 0x51};
    ASSERT_TRUE(opened(absent)) << "only a transfer shows it";
    check({
        {"write", [&](ScriptedKernel& kernel) { kernel.returned(absent.write({1})); },
         "TRACE Enter SerialComm/virtual bool I2c::write(const ByteArray&): \n"
         "write(7, [01], 1) = -1 ETIMEDOUT\n"
         "ERROR I2C write failed, requested: 1, written: -1\n"
         "returned false\n"},
        {"read", [&](ScriptedKernel& kernel) { kernel.returned(absent.read(2)); },
         "TRACE Enter SerialComm/virtual ByteArray I2c::read(size_t): len: 2\n"
         "read(7, [00 00], 2) = -1 ETIMEDOUT\n"
         "ERROR I2C read failed, requested: 2, returned: -1\n"
         "returned []\n"},
        {"combined", [&](ScriptedKernel& kernel) { kernel.returned(absent.writeRead({1}, 1)); },
         "ioctl(7, I2C_RDWR, {addr 0x51, flags 0x0, len 1, [01]}, {addr 0x51, flags 0x1, len 1, [00]}) = -1 ETIMEDOUT\n"
         "ERROR I2C ioctl I2C_RDWR failed, return: -1 error: Connection timed out\n"
         "returned []\n"},
        {"from a register: nothing is read",
         [&](ScriptedKernel& kernel) { kernel.returned(absent.readRegister(1, 1)); },
         "TRACE Enter SerialComm/virtual ByteArray I2c::readRegister(uint8_t, size_t): \n"
         "write(7, [01], 1) = -1 ETIMEDOUT\n"
         "ERROR I2C write register address failed, requested: 1, written: -1\n"
         "returned []\n"},
        {"into a register", [&](ScriptedKernel& kernel) { kernel.returned(absent.writeRegister(1, {1})); },
         "TRACE Enter SerialComm/virtual bool I2c::writeRegister(uint8_t, const ByteArray&): \n"
         "write(7, [01 01], 2) = -1 ETIMEDOUT\n"
         "ERROR I2C write to register failed, requested: 1, written: -1\n"
         "returned false\n"},
    });
}

TEST_F(I2cOnBoard, LengthsAtTheDriversLimits)
{
    I2c eeprom{bus, 0x50};
    ASSERT_TRUE(opened(eeprom));
    recordLog(log4cplus::ERROR_LOG_LEVEL);
    const auto writes = [&](size_t size) {
        return [&eeprom, size](ScriptedKernel& kernel) { kernel.returned(eeprom.write(ByteArray(size))); };
    };
    const auto reads = [&](size_t len) {
        return [&eeprom, len](ScriptedKernel& kernel) { kernel.returned(eeprom.read(len)); };
    };
    const auto combines = [&](size_t size, size_t len) {
        return
            [&eeprom, size, len](ScriptedKernel& kernel) { kernel.returned(eeprom.writeRead(ByteArray(size), len)); };
    };
    const std::string most = "[" + zeros(8192) + "]";
    const std::string oneMore = "[" + zeros(8193) + "]";
    const char* const refused = "ERROR I2C ioctl I2C_RDWR failed, return: -1 error: Message too long\nreturned []\n";
    check({
        {"write of 8192", writes(8192), "write(7, " + most + ", 8192) = 8192\nreturned true\n"},
        {"write of more is cut", writes(8193),
         "write(7, " + oneMore +
             ", 8193) = 8192\n"
             "ERROR I2C write failed, requested: 8193, written: 8192\n"
             "returned false\n"},
        {"read of 8192", reads(8192), "read(7, " + most + ", 8192) = 8192 " + most + "\nreturned " + most + "\n"},
        {"read of more is cut", reads(8193),
         "read(7, " + oneMore + ", 8193) = 8192 " + most +
             "\n"
             "ERROR I2C read failed, requested: 8193, returned: 8192\n"
             "returned []\n"},
        {"combined, more is refused by the driver", combines(1, 8193),
         "ioctl(7, I2C_RDWR, {addr 0x50, flags 0x0, len 1, [00]}, {addr 0x50, flags 0x1, len 8193, " + oneMore +
             "}) = -1 EINVAL\n"
             "ERROR I2C ioctl I2C_RDWR failed, return: -1 error: Invalid argument\n"
             "returned []\n"},
        {"combined, 65536 to receive are refused by us: the kernel would make it 0", combines(1, 65536), refused},
        {"combined, 65536 to send", combines(65536, 1), refused},
        {"write of nothing", writes(0), "write(7, NULL, 0) = 0\nreturned true\n"},
        {"read of nothing", reads(0), "read(7, NULL, 0) = 0\nreturned []\n"},
        {"combined of nothing", combines(0, 0),
         "ioctl(7, I2C_RDWR, {addr 0x50, flags 0x0, len 0, NULL}, {addr 0x50, flags 0x1, len 0, NULL}) = 2\n"
         "returned []\n"},
        {"after all that it works", combines(1, 2),
         "ioctl(7, I2C_RDWR, {addr 0x50, flags 0x0, len 1, [00]}, {addr 0x50, flags 0x1, len 2, [00 00]}) = 2 [00 00]\n"
         "returned [00 00]\n"},
    });
}
