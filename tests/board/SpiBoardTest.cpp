#include "serialComm/Spi.h"

#include "Board.h"

using SpiOnBoard = OnBoard;

TEST_F(SpiOnBoard, Init)
{
    const auto life = [](const char* path, int hz, unsigned char mode) {
        return [=](ScriptedKernel& kernel) {
            Spi device{path, hz, mode};
            kernel.returned(device.init());
        };
    };
    check({
        {"", life("/dev/spidev2.0", 10000000, 0), ""},
        {"", life("/dev/spidev2.0", 10000000, 3), ""},
        {"", life("/dev/spidev2.0", 10000000, 0x13), ""},
        {"", life("/dev/spidev2.0", 10000000, 0x08), ""},
        {"", life("/dev/spidev2.0", 0, 0), ""},
        {"", life("/dev/spidev2.0", -1, 0), ""},
        {"", life("/dev/spidev9.0", 0, 0), ""},
    });
    Spi f0{"/dev/spidev2.0", 10000000, 0};
    ASSERT_TRUE(opened(f0));
    Spi f1{"/dev/spidev2.1", 10000000, 0};
    ASSERT_TRUE(opened(f1));
    for (Spi* f : {&f0, &f1}) {
    check({
        {"w", [&](auto& kernel) { kernel.returned(f->writeRead({0x9f}, 4)); }, ""},
        {"w", [&](auto& kernel) { ByteArray d{6}; kernel.callersBuffer(d); kernel.returned(f->write(d)); }, ""},
        {"w", [&](auto& kernel) { kernel.returned(f->writeRead({5, 0}, 1)); }, ""},
        {"w", [&](auto& kernel) { kernel.returned(f->write({0x20, 0, 0x10, 0})); }, ""},
        {"w", [&](auto& kernel) { ByteArray d{6}; kernel.callersBuffer(d); kernel.returned(f->write(d)); }, ""},
        {"w", [&](auto& kernel) { kernel.returned(f->write({2, 0, 0x10, 0, 1, 2, 3})); }, ""},
        {"w", [&](auto& kernel) { kernel.returned(f->writeRead({3, 0, 0x10, 0}, 8)); }, ""},
        {"w", [&](auto& kernel) { kernel.returned(f->read(2)); }, ""},
        {"w", [&](auto& kernel) { kernel.returned(f->read(0)); }, ""},
        {"w", [&](auto& kernel) { kernel.returned(f->write({})); }, ""},
        {"w", [&](auto& kernel) { kernel.returned(f->writeRead({}, 0)); }, ""},
        {"w", [&](auto& kernel) { kernel.returned(f->setMaxSpeed(0)); }, ""},
        {"w", [&](auto& kernel) { kernel.returned(f->setMaxSpeed(20000001)); }, ""},
    });
    }
    for (size_t size : {4096U, 4097U}) {
      for (int i = 0; i < 3; ++i) {
        RecordedKernel kernel;
        if (i == 0) kernel.returned(f0.write(ByteArray(size)));
        if (i == 1) kernel.returned(f0.read(size));
        if (i == 2) kernel.returned(f0.writeRead({1}, size));
        std::string t = kernel.timeline();
        for (size_t at = t.find(" 00 00 00"); at != std::string::npos; at = t.find(" 00 00 00")) t.erase(at, 9);
        puts(t.c_str());
      }
    }
}
