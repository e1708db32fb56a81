// The verbs of I2C against a bus in this process: what goes over the wire, what is printed, how they end.

#include "FakeKernel.h"

#include <gtest/gtest.h>

namespace
{

struct I2cVerbs : testing::Test {
    I2cVerbs()
    {
        sensor->memory = {0x19, 0x80, 0x60, 0xa0};
        bus->chips[0x48] = sensor;
        kernel.devices["/dev/i2c-4"] = bus;
    }

    FakeKernel kernel;
    std::shared_ptr<FakeI2cBus> bus = std::make_shared<FakeI2cBus>();
    std::shared_ptr<FakeRegisters> sensor = std::make_shared<FakeRegisters>(4);
};

/// A dry run prints what then goes over the wire.
TEST_F(I2cVerbs, DoWhatADryRunPrints)
{
    const char* const lines[] = {
        "i2c get 4 0x48 0x00 2", "i2c get 4 0x48 0x0001 2", "i2c get 4 0x48 0x00 2 --stop", "i2c set 4 0x48 0x02 4b 00",
        "i2c read 4 0x48 2",     "i2c write 4 0x48 01 de",  "i2c transfer 4 0x48 00 +3",
    };
    for (const char* const line : lines) {
        SCOPED_TRACE(line);
        const std::string planned = tool(std::string{line} + " -n").out;
        ASSERT_TRUE(bus->traffic.empty());
        EXPECT_EQ(0, tool(line).status);
        std::string made;
        for (const std::string& transaction : bus->traffic)
            made += transaction + '\n';
        EXPECT_EQ(planned, made);
        bus->traffic.clear();
    }
}

}  // namespace
