// Reads holding registers over Modbus RTU: modbus DEVICE BAUD UNIT FIRST COUNT [rs485]
//     modbus /dev/ttyUSB0 19200 1 0 2
// With "rs485", the kernel's driver enables the transmitter (RTS) while it sends.
#include <serialComm/LineReader.h>

#include <log4cplus/configurator.h>
#include <log4cplus/initializer.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <optional>

/// The checksum of a frame; the low byte is sent first.
static uint16_t crc(const ByteArray& frame)
{
    uint16_t value = 0xffff;
    for (const uint8_t byte : frame) {
        value ^= byte;
        for (int bit = 0; bit < 8; ++bit)
            value = static_cast<uint16_t>((value & 1) != 0 ? value >> 1 ^ 0xa001 : value >> 1);
    }
    return value;
}

static ByteArray withCrc(ByteArray frame)
{
    const uint16_t sum = crc(frame);
    frame.push_back(static_cast<uint8_t>(sum));
    frame.push_back(static_cast<uint8_t>(sum >> 8));
    return frame;
}

int main(int argc, char* argv[])
{
    const log4cplus::Initializer log4cplusLife;
    log4cplus::BasicConfigurator::doConfigure(log4cplus::Logger::getDefaultHierarchy(), true);
    if (argc < 6) {
        std::fprintf(stderr, "usage: modbus DEVICE BAUD UNIT FIRST COUNT [rs485]\n");
        return 2;
    }
    const auto unit = static_cast<uint8_t>(std::atoi(argv[3]));
    const int first = std::atoi(argv[4]);
    const int count = std::atoi(argv[5]);

    Uart port{argv[1], std::atoi(argv[2]), 1, "even", true};  // 8E1, as the standard says
    Line line{argv[1]};
    if (!port.init() || !line.init())
        return EXIT_FAILURE;
    if (argc == 7 && !line.setRs485({}))  // the driver keeps this setting when the port is closed
        return EXIT_FAILURE;

    const ByteArray question = withCrc({unit, 0x03, static_cast<uint8_t>(first >> 8), static_cast<uint8_t>(first),
                                        static_cast<uint8_t>(count >> 8), static_cast<uint8_t>(count)});
    if (!port.write(question))
        return EXIT_FAILURE;

    // The answer: unit, function, number of bytes, registers, checksum. An exception has one byte instead of registers.
    const size_t size = 2 * static_cast<size_t>(count);
    const auto length = [size](const ByteArray& received) -> size_t {
        return received.size() < 2 ? 0 : (received[1] & 0x80) != 0 ? 5 : size + 5;
    };
    const std::optional<ByteArray> answer = LineReader{port, line}.frame(length, std::chrono::seconds{1});
    if (!answer || crc(*answer) != 0 || (*answer)[0] != unit || (*answer)[1] != 0x03) {
        std::fprintf(stderr, "modbus: no valid answer\n");
        return EXIT_FAILURE;
    }
    for (size_t i = 0; i < size; i += 2)
        std::printf("%zu: %d\n", static_cast<size_t>(first) + i / 2, (*answer)[3 + i] << 8 | (*answer)[4 + i]);
}
