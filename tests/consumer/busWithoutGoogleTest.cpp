// The buses for unit tests under another framework than GoogleTest, which is not linked.
#include <serialComm/testing/RegisterChip.h>
#include <serialComm/testing/SessionBus.h>

#include <cstdio>
#include <string>

using serialComm::testing::RegisterChip;
using serialComm::testing::SessionBus;

int main()
{
    std::string failures;
    const auto fail = [&failures](const std::string& text) { failures += text; };
    {
        SessionBus bus{{"S 48 W 00 Sr 48 R 19 80 P", "S 48 W 01 P"}, fail};
        if (bus.writeRead({0x00}, 2) != ByteArray{0x19, 0x80})
            return 1;
    }
    RegisterChip chip;
    chip.registers[3] = 7;
    if (failures != "session:2: never asked for: S 48 W 01 P\n" || chip.writeRead({3}, 1) != ByteArray{7})
        return 1;
    std::puts("consumer: ok");
}
