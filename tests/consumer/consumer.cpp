// Uses each class once. It includes only the library's own headers and needs no chip.
#include <serialComm/I2c.h>
#include <serialComm/Spi.h>
#include <serialComm/Uart.h>

#include <cstdio>
#include <cstdlib>
#include <type_traits>

// A copy would close its original's descriptor.
template <class Device>
constexpr bool canBeCopied = std::is_copy_constructible_v<Device> || std::is_copy_assignable_v<Device>;
static_assert(!canBeCopied<I2c> && !canBeCopied<Spi> && !canBeCopied<Uart>);

// A derived class: its virtual table and type information refer to those in the library.
class SlowSpi : public Spi
{
public:
    using Spi::Spi;
    bool setMaxSpeed(int hz) override { return Spi::setMaxSpeed(hz < 100'000 ? hz : 100'000); }
};

static void expect(bool holds, const char* what)
{
    if (!holds) {
        std::fprintf(stderr, "consumer: %s\n", what);
        std::exit(EXIT_FAILURE);
    }
}

int main()
{
    I2c sensor{"/dev/no-such-i2c", 0x48};
    SlowSpi flash{"/dev/no-such-spi", 1'000'000, 0};
    SyncSerialBase* buses[] = {&sensor, &flash};
    for (SyncSerialBase* bus : buses)
        expect(!bus->init(), "init() succeeds without the node");
    expect(dynamic_cast<Spi*>(buses[1]) != nullptr && dynamic_cast<Spi*>(buses[0]) == nullptr, "dynamic_cast fails");
    expect(sensor.writeRead({0x00}, 2).empty(), "a closed bus returns data");

    Uart port{"/dev/ptmx", 115200, 1, "none", true};
    expect(port.init() && port.write({'h', 'i', '\n'}), "writing to a pseudo-terminal fails");

    std::puts("consumer: ok");
}
