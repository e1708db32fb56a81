// Writes a text to a flash and reads it back. It erases the whole 4096-byte sector that contains ADDRESS:
//     flash /dev/spidev2.0 0x10000 "some text"
#include "Flash.h"

#include <serialComm/Spi.h>

#include <log4cplus/configurator.h>
#include <log4cplus/initializer.h>

#include <cstdio>
#include <cstdlib>
#include <string>

static int fail(const char* what)
{
    std::fprintf(stderr, "flash: %s\n", what);
    return EXIT_FAILURE;
}

int main(int argc, char* argv[])
{
    const log4cplus::Initializer log4cplusInitializer;
    log4cplus::BasicConfigurator::doConfigure(log4cplus::Logger::getDefaultHierarchy(), true);  // to standard error
    log4cplus::Logger::getRoot().setLogLevel(log4cplus::INFO_LOG_LEVEL);

    if (argc != 4) {
        std::fprintf(stderr, "usage: flash DEVICE ADDRESS TEXT, such as: flash /dev/spidev2.0 0x10000 \"some text\"\n");
        return 2;
    }
    const auto address = static_cast<uint32_t>(std::strtoul(argv[2], nullptr, 0));
    const std::string text = argv[3];
    const ByteArray bytes(text.begin(), text.end());

    const ErrorWatch watch;  // init() also returns true if the driver refused mode or clock
    Spi bus{argv[1], 10'000'000, 0};
    if (!bus.init() || watch.failed())
        return EXIT_FAILURE;  // the reason is in the log

    Flash flash{bus};
    const std::optional<ByteArray> id = flash.id();
    if (!id)
        return fail("no chip answers");
    std::printf("id %02x %02x %02x\n", (*id)[0], (*id)[1], (*id)[2]);

    if (!flash.eraseSector(address))
        return fail("erasing failed; see the log");
    if (!flash.program(address, bytes))
        return fail("programming failed: the text does not fit into the page, or see the log");
    if (flash.read(address, bytes.size()) != bytes)
        return fail("reading back differs from what was written: the chip may be write-protected");
    std::printf("%zu bytes written and read back\n", bytes.size());
}
