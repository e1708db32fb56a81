// The bus /dev/i2c-4: a TMP105 at 0x48, which measures 0 degrees, and a 24C02 of 256 bytes at 0x50.
#include "serialComm/I2c.h"

#include "Board.h"

using I2cOnBoard = OnBoard;

static const char* const bus = "/dev/i2c-4";

/// 65 536 bytes and what is short of it would make lines of 200 KB.
static std::string lastLines(const std::string& timeline, size_t from)
{
    return timeline.substr(timeline.find('\n', from) + 1);
}

TEST_F(I2cOnBoard, Init)
{
    const auto life = [](const char* path, int address) {
        return [=](ScriptedKernel& kernel) {
            I2c device{path, address};
            kernel.returned(device.init());
        };
    };
    check({
        {"open and bound", life(bus, 0x50), ""},
        {"8-bit", life(bus, 0x80), ""},
        {"absent chip", life(bus, 0x51), ""},
        {"absent node", life("/dev/i2c-9", 0x51), ""},
    });
    outputOf("insmod /lib/modules/at24.ko 2>&1");
    tell("/sys/bus/i2c/devices/i2c-4/new_device", "24c02 0x50");
    check({
        {"busy", life(bus, 0x50), ""},
    });
    tell("/sys/bus/i2c/devices/i2c-4/delete_device", "0x50");
    check({
        {"free", life(bus, 0x50), ""},
    });
}

TEST_F(I2cOnBoard, Ops)
{
    I2c eeprom{bus, 0x50};
    ASSERT_TRUE(opened(eeprom));
    I2c sensor{bus, 0x48};
    ASSERT_TRUE(opened(sensor));
    I2c absent{bus, 0x51};
    ASSERT_TRUE(opened(absent));
    check({
        {"w", [&](auto& kernel) { ByteArray d{0x10,1,2,3,4}; kernel.callersBuffer(d); kernel.returned(eeprom.write(d)); }, ""},
        {"w", [&](auto& kernel) { kernel.returned(eeprom.write({0x10})); }, ""},
        {"w", [&](auto& kernel) { kernel.returned(eeprom.read(4)); }, ""},
        {"w", [&](auto& kernel) { kernel.returned(eeprom.writeRead({0x11}, 2)); }, ""},
        {"w", [&](auto& kernel) { kernel.returned(eeprom.writeRegister(0x12, {9})); }, ""},
        {"w", [&](auto& kernel) { kernel.returned(eeprom.readRegister(0x11, 3)); }, ""},
        {"w", [&](auto& kernel) { kernel.returned(eeprom.setMaxSpeed(3)); }, ""},
        {"w", [&](auto& kernel) { kernel.returned(sensor.readRegister(0, 2)); }, ""},
        {"w", [&](auto& kernel) { kernel.returned(sensor.readRegister(1, 1)); }, ""},
        {"w", [&](auto& kernel) { kernel.returned(sensor.readRegister(2, 2)); }, ""},
        {"w", [&](auto& kernel) { kernel.returned(sensor.readRegister(3, 4)); }, ""},
        {"0", [&](auto& kernel) { kernel.returned(sensor.read(0)); }, ""},
        {"0", [&](auto& kernel) { kernel.returned(sensor.write({})); }, ""},
        {"0", [&](auto& kernel) { kernel.returned(sensor.writeRead({}, 0)); }, ""},
        {"0", [&](auto& kernel) { kernel.returned(absent.read(2)); }, ""},
        {"0", [&](auto& kernel) { kernel.returned(absent.write({1})); }, ""},
        {"0", [&](auto& kernel) { kernel.returned(absent.writeRead({1}, 1)); }, ""},
        {"0", [&](auto& kernel) { kernel.returned(absent.readRegister(1, 1)); }, ""},
        {"0", [&](auto& kernel) { kernel.returned(absent.writeRegister(1, {1})); }, ""},
    });
    (void)lastLines;
    for (size_t size : {8192U, 8193U}) {
      for (int i = 0; i < 3; ++i) {
        RecordedKernel kernel;
        if (i == 0) kernel.returned(eeprom.write(ByteArray(size)));
        if (i == 1) kernel.returned(eeprom.read(size));
        if (i == 2) kernel.returned(eeprom.writeRead({1}, size));
        std::string t = kernel.timeline();
        for (size_t at = t.find(" 00 00 00"); at != std::string::npos; at = t.find(" 00 00 00")) t.erase(at, 9);
        for (size_t at = t.find(" ff ff ff"); at != std::string::npos; at = t.find(" ff ff ff")) t.erase(at, 9);
        puts(t.c_str());
      }
    }
}
