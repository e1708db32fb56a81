// serialcomm: a bench tool for I2C, SPI and serial ports.

#include "base/Signals.h"
#include "cli/CommandLine.h"

int main(int argc, char** argv)
{
    fillStandardDescriptors();
    catchSignals();
    return runCommandLine({argv + 1, argv + argc});
}
