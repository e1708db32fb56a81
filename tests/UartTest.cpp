#include "serialComm/Uart.h"

#include "support/LineSpeeds.h"
#include "support/ScriptedKernel.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

/// Runs init() with a kernel on which every system call succeeds.
static std::string timelineOfInit(int baud, int stopBits, const std::string& parity)
{
    ScriptedKernel kernel{{answers(7), answers(0), answers(0), answers(0), names(""), answers(0), answers(0)}};
    EXPECT_TRUE((Uart{"/dev/ttyS1", baud, stopBits, parity, true}.init()));
    return kernel.timeline();
}

TEST(UartInit, AppliesEachSpeedParityAndNumberOfStopBits)
{
    recordLog();
    for (const LineSpeed& speed : lineSpeeds) {
        for (const ParityFlags& parity : parities) {
            for (const int stopBits : {1, 2}) {
                const unsigned flags = speed.code | parity.flags | (stopBits == 2 ? CSTOPB : 0) | commonFlags;
                std::ostringstream logged;
                logged << "DEBUG Baud rate: " << speed.code << "\nDEBUG Parity: " << parity.flags << "\nopen(";
                std::ostringstream applied;
                applied << "\ntcsetattr(7, TCSANOW, {cflag 0x" << std::hex << flags << std::dec << ", VTIME 5, speeds B"
                        << speed.baud << " B" << speed.baud << "}) = 0\n";

                EXPECT_THAT(timelineOfInit(speed.baud, stopBits, parity.name),
                            AllOf(StartsWith(logged.str()), HasSubstr(applied.str())));
            }
        }
    }
}

TEST(UartInit, RejectsOtherSpeedsParitiesAndNumbersOfStopBits)
{
    recordLog();
    const auto logOfInit = [](int baud, int stopBits, const std::string& parity) {
        const ScriptedKernel kernel{{}};
        EXPECT_FALSE((Uart{"/dev/ttyS1", baud, stopBits, parity, true}.init()));
        return kernel.timeline();
    };

    for (const int baud : {-9600, -1, 0, 1, 13, 50, 75, 134, 1800, 4098, 14400, 28800, 115201, 4000001}) {
        EXPECT_EQ("ERROR Unsupported baud rate: " + std::to_string(baud) + "\n", logOfInit(baud, 1, "none"));
    }
    for (const char* parity : {"", "None", "EVEN", "Odd", "none ", "mark", "space", "n"}) {
        EXPECT_EQ("DEBUG Baud rate: 13\nERROR Wrong parity set: " + std::string{parity} + "\n",
                  logOfInit(9600, 1, parity));
    }
    for (const int stopBits : {-1, 0, 3}) {
        EXPECT_EQ("DEBUG Baud rate: 13\nDEBUG Parity: 768\nERROR Unsupported stop bits: " + std::to_string(stopBits) +
                      "\n",
                  logOfInit(9600, stopBits, "odd"));
    }
}
