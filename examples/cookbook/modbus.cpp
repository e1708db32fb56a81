// Reads holding registers over Modbus RTU: modbus DEVICE BAUD UNIT FIRST COUNT [rs485]
//     modbus /dev/ttyUSB0 19200 1 0 2
// With "rs485", the kernel's driver enables the transmitter (RTS) while it sends.
#include <serialComm/Uart.h>

#include <fcntl.h>
#include <linux/serial.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <log4cplus/configurator.h>
#include <log4cplus/initializer.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

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

/// Collects a frame of this many bytes; fewer after a second, or when the port is gone.
static ByteArray receive(Uart& port, size_t size)
{
    ByteArray frame;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds{1};
    while (frame.size() < size && std::chrono::steady_clock::now() < deadline) {
        bool failed = false;
        const ByteArray bytes = port.read(size - frame.size(), &failed);
        if (failed)
            break;
        frame.insert(frame.end(), bytes.begin(), bytes.end());
    }
    return frame;
}

/// The setting belongs to the port and outlives this descriptor.
static bool enableRs485(const std::string& device)
{
    const int fd = open(device.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK);
    if (fd < 0)
        return false;
    serial_rs485 settings{};
    settings.flags = SER_RS485_ENABLED | SER_RS485_RTS_ON_SEND;
    const bool done = ioctl(fd, TIOCSRS485, &settings) == 0;
    close(fd);
    return done;
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

    if (argc == 7 && !enableRs485(argv[1])) {
        std::perror("modbus: RS-485");
        return EXIT_FAILURE;
    }
    Uart port{argv[1], std::atoi(argv[2]), 1, "even", true};  // 8E1, as the standard says
    const ByteArray question = withCrc({unit, 0x03, static_cast<uint8_t>(first >> 8), static_cast<uint8_t>(first),
                                        static_cast<uint8_t>(count >> 8), static_cast<uint8_t>(count)});
    if (!port.init() || !port.write(question))
        return EXIT_FAILURE;

    const size_t size = 2 * static_cast<size_t>(count);
    const ByteArray answer = receive(port, size + 5);  // unit, function, number of bytes, registers, checksum
    if (answer.size() != size + 5 || crc(answer) != 0 || answer[0] != unit || answer[1] != 0x03) {
        std::fprintf(stderr, "modbus: no valid answer, %zu bytes\n", answer.size());
        return EXIT_FAILURE;
    }
    for (size_t i = 0; i < size; i += 2)
        std::printf("%zu: %d\n", static_cast<size_t>(first) + i / 2, answer[3 + i] << 8 | answer[4 + i]);
}
