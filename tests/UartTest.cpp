#include "serialComm/Uart.h"

#include "support/ScriptedKernel.h"

#include <gtest/gtest.h>

TEST(UartInit, KnowsTheseRatesParitiesAndStopBitsAlone)
{
    recordLog();
    const auto firstLineAfter = [](const std::string& until, int baud, int stopBits, const std::string& parity) {
        ScriptedKernel kernel{{}};
        Uart port{"/dev/ttyS1", baud, stopBits, parity, true};
        EXPECT_FALSE(port.init());
        const std::string rest = kernel.timeline().substr(until.size());
        return rest.substr(0, rest.find('\n'));
    };

    const struct {
        int baud;
        int constant;
    } rates[] = {
        {110, 3},        {150, 5},        {200, 6},        {300, 7},        {600, 8},        {1200, 9},
        {2400, 11},      {4800, 12},      {9600, 13},      {19200, 14},     {38400, 15},     {57600, 4097},
        {115200, 4098},  {230400, 4099},  {460800, 4100},  {500000, 4101},  {576000, 4102},  {921600, 4103},
        {1000000, 4104}, {1152000, 4105}, {1500000, 4106}, {2000000, 4107}, {2500000, 4108}, {3000000, 4109},
        {3500000, 4110}, {4000000, 4111},
    };
    for (const auto& rate : rates) {
        EXPECT_EQ("DEBUG Baud rate: " + std::to_string(rate.constant), firstLineAfter("", rate.baud, 1, "no such"));
    }
    for (const int baud : {-9600, -1, 0, 1, 50, 75, 134, 1800, 14400, 28800, 115201, 4000001}) {
        EXPECT_EQ("ERROR Unsupported baud rate: " + std::to_string(baud), firstLineAfter("", baud, 1, "none"));
    }

    const std::string rateLine = "DEBUG Baud rate: 13\n";
    for (const char* parity : {"", "None", "EVEN", "Odd", "none ", "mark", "space", "n"}) {
        EXPECT_EQ(std::string{"ERROR Wrong parity set: "} + parity, firstLineAfter(rateLine, 9600, 1, parity));
    }
    for (const int stopBits : {-1, 0, 3}) {
        EXPECT_EQ("ERROR Unsupported stop bits: " + std::to_string(stopBits),
                  firstLineAfter(rateLine + "DEBUG Parity: 768\n", 9600, stopBits, "odd"));
    }
}
