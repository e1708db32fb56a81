#include "serialComm/Uart.h"

#include "Board.h"

using UartOnBoard = OnBoard;
TEST_F(UartOnBoard, Init)
{
    puts(outputOf("stty -F /dev/ttymxc0 9600 icanon echo; stty -F /dev/ttymxc0 -a").c_str());
    const auto life = [](const char* path, int hz, int sb, const char* par, bool w) {
        return [=](ScriptedKernel& kernel) {
            Uart device{path, hz, sb, par, w};
            kernel.returned(device.init());
        };
    };
    check({
        {"", life("/dev/ttymxc0", 115200, 1, "none", true), ""},
        {"", life("/dev/ttymxc9", 115200, 1, "none", true), ""},
        {"", life("/dev/i2c-4", 115200, 1, "none", true), ""},
        });
    puts(outputOf("stty -F /dev/ttymxc0 -a").c_str());
    Uart f{"/dev/ttymxc0", 115200, 2, "even", true};
    ASSERT_TRUE(opened(f));
    puts(outputOf("stty -F /dev/ttymxc0 -a").c_str());
    check({
        {"w", [&](auto& kernel) { ByteArray d{6}; kernel.callersBuffer(d); kernel.returned(f.write(d)); }, ""},
        {"w", [&](auto& kernel) { kernel.returned(f.read(1)); }, ""},
        {"w", [&](auto& kernel) { kernel.returned(f.read(1)); }, ""},
        {"w", [&](auto& kernel) { kernel.returned(f.write({})); }, ""},
        {"w", [&](auto& kernel) { kernel.returned(f.read(0)); }, ""},
        });
    }
