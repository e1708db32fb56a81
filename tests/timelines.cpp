#include "support/Timeline.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    try {
        for (const char* name : {"I2c", "Spi", "Uart"}) {
            addCases(std::string{FOLDER "/"} + name + ".timeline", Kernel::KERNEL);
        }
    } catch (const TimelineError& error) {
        std::fprintf(stderr, "%s: %s\n", argv[0], error.what());
        return EXIT_FAILURE;
    }
    return RUN_ALL_TESTS();
}
