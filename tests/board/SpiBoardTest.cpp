// The flashes behind /dev/spidev2.0 (W25Q80BL) and /dev/spidev2.1 (SST25VF016B).
#include "serialComm/Spi.h"

#include "Board.h"

using SpiOnBoard = OnBoard;

static std::function<void(ScriptedKernel&)> life(const char* path, int hz, unsigned char mode)
{
    return [=](ScriptedKernel& kernel) {
        Spi device{path, hz, mode};
        kernel.returned(device.init());
    };
}

TEST_F(SpiOnBoard, WhatTheDriverRefusesLeavesTheOldSetting)
{
    check({
        {"mode and clock as asked for", life("/dev/spidev2.0", 500000, 3),
         "TRACE Enter SerialComm/virtual bool Spi::init(): path: /dev/spidev2.0\n"
         "open(\"/dev/spidev2.0\", O_RDWR) = 7\n"
         "ioctl(7, SPI_IOC_WR_MODE, [03]) = 0\n"
         "ioctl(7, SPI_IOC_RD_MODE, [03]) = 0 [03]\n"
         "TRACE Enter SerialComm/virtual bool Spi::setMaxSpeed(int): Speed: 500000\n"
         "ioctl(7, SPI_IOC_WR_MAX_SPEED_HZ, 500000) = 0\n"
         "ioctl(7, SPI_IOC_RD_MAX_SPEED_HZ, 500000) = 0 [20 a1 07 00]\n"
         "DEBUG SPI set speed Hz: 500000\n"
         "INFO Leave SerialComm/virtual bool Spi::init(): SPI initialized with speed Hz: 500000\n"
         "returned true\n"
         "close(7) = 0\n"},
        {"neither: mode 3 is that of before, 20 MHz the device tree's", life("/dev/spidev2.0", 0, 0x10),
         "TRACE Enter SerialComm/virtual bool Spi::init(): path: /dev/spidev2.0\n"
         "open(\"/dev/spidev2.0\", O_RDWR) = 7\n"
         "ioctl(7, SPI_IOC_WR_MODE, [10]) = -1 EINVAL\n"
         "ERROR SPI can't set spi write mode\n"
         "ioctl(7, SPI_IOC_RD_MODE, [10]) = 0 [03]\n"
         "TRACE Enter SerialComm/virtual bool Spi::setMaxSpeed(int): Speed: 0\n"
         "ioctl(7, SPI_IOC_WR_MAX_SPEED_HZ, 0) = -1 EINVAL\n"
         "ERROR SPI can't set write max speed hz\n"
         "ioctl(7, SPI_IOC_RD_MAX_SPEED_HZ, 0) = 0 [00 2d 31 01]\n"
         "DEBUG SPI set speed Hz: 20000000\n"
         "INFO Leave SerialComm/virtual bool Spi::init(): SPI initialized with speed Hz: 20000000\n"
         "returned true\n"
         "close(7) = 0\n"},
        {"no such node", life("/dev/spidev2.7", 500000, 3),
         "TRACE Enter SerialComm/virtual bool Spi::init(): path: /dev/spidev2.7\n"
         "open(\"/dev/spidev2.7\", O_RDWR) = -1 ENOENT\n"
         "ERROR Failed to open spi device: /dev/spidev2.7\n"
         "returned false\n"},
    });

    Spi flash{"/dev/spidev2.0", 500000, 0};
    ASSERT_TRUE(opened(flash));
    check({
        {"a clock of 0, and the next transfer",
         [&](ScriptedKernel& kernel) {
             kernel.returned(flash.setMaxSpeed(0));
             kernel.returned(flash.writeRead({0x9f}, 4));
         },
         "TRACE Enter SerialComm/virtual bool Spi::setMaxSpeed(int): Speed: 0\n"
         "ioctl(7, SPI_IOC_WR_MAX_SPEED_HZ, 0) = -1 EINVAL\n"
         "ERROR SPI can't set write max speed hz\n"
         "ioctl(7, SPI_IOC_RD_MAX_SPEED_HZ, 500000) = 0 [20 a1 07 00]\n"
         "DEBUG SPI set speed Hz: 500000\n"
         "returned true\n"
         "ioctl(7, SPI_IOC_MESSAGE(1), {tx [9f 00 00 00], rx [00 00 00 00], len 4, 500000 Hz, 8 bits}) = 4 "
         "[00 ef 40 14]\n"
         "returned [00 ef 40 14]\n"},
    });
}

TEST_F(SpiOnBoard, EachFlashIsIdentifiedErasedProgrammedAndReadBack)
{
    const struct {
        const char* node;
        const char* identity;
    } flashes[] = {{"/dev/spidev2.0", "00 ef 40 14"}, {"/dev/spidev2.1", "00 bf 25 41"}};
    for (const auto& chip : flashes) {
        SCOPED_TRACE(chip.node);
        Spi flash{chip.node, 10000000, 0};
        ASSERT_TRUE(opened(flash));
        check({
            {"identity: a short message is filled up with zero bits",
             [&](ScriptedKernel& kernel) { kernel.returned(flash.writeRead({0x9f}, 4)); },
             "ioctl(7, SPI_IOC_MESSAGE(1), {tx [9f 00 00 00], rx [00 00 00 00], len 4, 10000000 Hz, 8 bits}) = 4 [" +
                 std::string{chip.identity} + "]\nreturned [" + chip.identity + "]\n"},
            {"write enable, and the status that shows it",
             [&](ScriptedKernel& kernel) {
                 const ByteArray enable{0x06};
                 kernel.callersBuffer(enable);
                 kernel.returned(flash.write(enable));
                 const ByteArray status{0x05, 0x00};
                 kernel.callersBuffer(status);
                 kernel.returned(flash.writeRead(status, 1));
             },
             "TRACE Enter SerialComm/virtual bool Spi::write(const ByteArray&): \n"
             "ioctl(7, SPI_IOC_MESSAGE(1), {tx caller's [06], rx NULL, len 1, 10000000 Hz, 8 bits}) = 1\n"
             "TRACE Leave SerialComm/virtual bool Spi::write(const ByteArray&): \n"
             "returned true\n"
             "ioctl(7, SPI_IOC_MESSAGE(1), {tx caller's [05 00], rx [00 00], len 2, 10000000 Hz, 8 bits}) = 2 [00 02]\n"
             "returned [00 02]\n"},
        });
        recordLog(log4cplus::ERROR_LOG_LEVEL);
        check({
            {"erase 4 KiB, program, read back",
             [&](ScriptedKernel& kernel) {
                 flash.write({0x20, 0x00, 0x10, 0x00});
                 flash.write({0x06});
                 flash.write({0x02, 0x00, 0x10, 0x00, 0x5a});
                 kernel.returned(flash.writeRead({0x03, 0x00, 0x10, 0x00}, 6));
             },
             "ioctl(7, SPI_IOC_MESSAGE(1), {tx [20 00 10 00], rx NULL, len 4, 10000000 Hz, 8 bits}) = 4\n"
             "ioctl(7, SPI_IOC_MESSAGE(1), {tx [06], rx NULL, len 1, 10000000 Hz, 8 bits}) = 1\n"
             "ioctl(7, SPI_IOC_MESSAGE(1), {tx [02 00 10 00 5a], rx NULL, len 5, 10000000 Hz, 8 bits}) = 5\n"
             "ioctl(7, SPI_IOC_MESSAGE(1), {tx [03 00 10 00 00 00], rx [00 00 00 00 00 00], len 6, 10000000 Hz, 8 "
             "bits}) = 6 [00 00 00 00 5a ff]\n"
             "returned [00 00 00 00 5a ff]\n"},
        });
        recordLog();
    }
}

TEST_F(SpiOnBoard, LengthsAtTheDriversLimits)
{
    Spi flash{"/dev/spidev2.0", 10000000, 0};
    ASSERT_TRUE(opened(flash));
    recordLog(log4cplus::ERROR_LOG_LEVEL);
    const auto reads = [&](size_t len) {
        return [&flash, len](ScriptedKernel& kernel) { kernel.returned(flash.read(len)); };
    };
    const auto writes = [&](size_t size) {
        return [&flash, size](ScriptedKernel& kernel) { kernel.returned(flash.write(ByteArray(size))); };
    };
    const auto exchanges = [&](size_t len) {
        return [&flash, len](ScriptedKernel& kernel) { kernel.returned(flash.writeRead({}, len)); };
    };
    const std::string most = "[" + zeros(4096) + "]";
    const std::string oneMore = "[" + zeros(4097) + "]";
    const auto message = [](const std::string& tx, const std::string& rx, const char* len) {
        return "ioctl(7, SPI_IOC_MESSAGE(1), {tx " + tx + ", rx " + rx + ", len " + len + ", 10000000 Hz, 8 bits}) = ";
    };
    check({
        {"read of 4096", reads(4096), message("NULL", most, "4096") + "4096 " + most + "\nreturned " + most + "\n"},
        {"read of more than spidev's buffer: told by the log alone", reads(4097),
         message("NULL", oneMore, "4097") + "-1 EMSGSIZE\nERROR SPI can't read spi message. errno: 90\nreturned " +
             oneMore + "\n"},
        {"write of more", writes(4097),
         message(oneMore, "NULL", "4097") + "-1 EMSGSIZE\nERROR SPI can't send message. errno: 90\nreturned true\n"},
        {"both of more", exchanges(4097),
         message(oneMore, oneMore, "4097") + "-1 EMSGSIZE\nERROR SPI can't send/read message. ret:-1\nreturned " +
             oneMore + "\n"},
        {"read of nothing: there is no errno", reads(0),
         message("NULL", "NULL", "0") + "0\nERROR SPI can't read spi message. errno: 9999\nreturned []\n"},
        {"write of nothing", writes(0),
         message("NULL", "NULL", "0") + "0\nERROR SPI can't send message. errno: 9999\nreturned true\n"},
        {"both of nothing", exchanges(0),
         message("NULL", "NULL", "0") + "0\nERROR SPI can't send/read message. ret:0\nreturned []\n"},
    });
}
