// A tty, opened by the library.
#pragma once

#include "uart/Port.h"

#include <serialComm/Uart.h>

namespace uart
{

/// The library's Uart carries the bytes, without waiting. A descriptor beside it locks the port, waits for it and looks
/// into the queue of the driver.
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

    /// Closed after the library has put back the settings that it found.
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
