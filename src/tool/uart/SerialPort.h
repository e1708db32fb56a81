// A tty, opened by the library.
#pragma once

#include "uart/Port.h"

#include <serialComm/Line.h>
#include <serialComm/Uart.h>

namespace uart
{

/// The library's Uart transfers the bytes, without waiting. Its Line locks the port, waits for it and reports how much
/// is in the driver's queue.
class SerialPort : public Port
{
public:
    explicit SerialPort(const PortSettings& wanted);
    ~SerialPort() override;
    SerialPort(const SerialPort&) = delete;
    SerialPort& operator=(const SerialPort&) = delete;
    ByteArray take(size_t most) override;

private:
    size_t put(const uint8_t* bytes, size_t size) override;
    size_t inTransit() override;
    void drain() override;
    [[nodiscard]] bool pollsForRoom() const override { return true; }

    Line line;  ///< closed after the Uart has restored the settings that it found
    Uart uart;
};

}  // namespace uart
