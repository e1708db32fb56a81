#include "support/Timeline.h"

#include <gtest/gtest.h>

int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    for (const char* name : {"I2c", "Spi", "Uart"}) {
        addCases(std::string{FOLDER "/"} + name + ".timeline", Kernel::KERNEL);
    }
    return RUN_ALL_TESTS();
}
