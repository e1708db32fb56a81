// A tty, opened by the library.
#pragma once

#include "uart/Port.h"

#include <serialComm/Uart.h>

namespace uart
{

/// The library's Uart transfers the bytes, without waiting. A second descriptor locks the port, waits for it and asks
/// how many bytes are in the driver's queue.
class SerialPort : public Port
{
public:
    explicit SerialPort(const Line& settings);
    ~SerialPort() override;
    SerialPort(const SerialPort&) = delete;
    SerialPort& operator=(const SerialPort&) = delete;
    ByteArray take(size_t most) override;

private:
    size_t put(const uint8_t* bytes, size_t size) override;
    size_t inTransit() override;
    [[nodiscard]] bool pollsForRoom() const override { return true; }

    /// Closed after the library has restored the settings that it found.
    struct Descriptor {
        explicit Descriptor(const std::string& path);
        ~Descriptor();
        Descriptor(const Descriptor&) = delete;
        Descriptor& operator=(const Descriptor&) = delete;
        const int number;
    };

    Descriptor descriptor;
    Uart uart;
};

}  // namespace uart
