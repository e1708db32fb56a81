// Writes a text across the pages of an EEPROM, waits for each page with a deadline, and reads it back in one burst:
//     eepromPages /dev/i2c-4 0x50 0x04 "0123456789"
#include <serialComm/I2c.h>

#include <log4cplus/configurator.h>
#include <log4cplus/initializer.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

static constexpr size_t pageSize = 8;  // of a 24c02; at the end of a page, the chip continues at its beginning

/// Polls until the chip acknowledges its address again. Each attempt before that logs an ERROR line.
static bool waitUntilWritten(I2c& eeprom, std::chrono::milliseconds limit)
{
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!eeprom.write({0x00})) {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds{1});
    }
    return true;
}

static bool write(I2c& eeprom, size_t address, const std::string& text)
{
    for (size_t done = 0; done < text.size();) {
        const size_t room = pageSize - (address + done) % pageSize;
        const std::string part = text.substr(done, room);
        ByteArray message{static_cast<uint8_t>(address + done)};
        message.insert(message.end(), part.begin(), part.end());
        if (!eeprom.write(message) || !waitUntilWritten(eeprom, std::chrono::milliseconds{25}))
            return false;
        done += part.size();
    }
    return true;
}

int main(int argc, char* argv[])
{
    const log4cplus::Initializer log4cplusLife;
    log4cplus::BasicConfigurator::doConfigure(log4cplus::Logger::getDefaultHierarchy(), true);
    if (argc != 5) {
        std::fprintf(stderr, "usage: eepromPages DEVICE ADDRESS OFFSET TEXT\n");
        return 2;
    }

    I2c eeprom{argv[1], static_cast<int>(std::strtol(argv[2], nullptr, 0))};
    const size_t address = std::strtoul(argv[3], nullptr, 0);
    const std::string text = argv[4];
    if (!eeprom.init() || !write(eeprom, address, text))
        return EXIT_FAILURE;

    const ByteArray stored = eeprom.writeRead({static_cast<uint8_t>(address)}, text.size());
    if (!std::equal(stored.begin(), stored.end(), text.begin(), text.end()))
        return EXIT_FAILURE;
    std::printf("%zu bytes written and read back\n", stored.size());
}
