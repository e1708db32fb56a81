// A tty, opened by the library.
#pragma once

#include "uart/Port.h"

#include <serialComm/Line.h>
#include <serialComm/Uart.h>

#include <optional>

namespace uart
{

/// The library's Uart transfers the bytes, without waiting. Its Line locks the port, waits for it, sets what the Uart
/// does not, and reports how much is in the driver's queue. The destructor restores the settings and reports on
/// standard error which error counters have risen.
class SerialPort : public Port
{
public:
    explicit SerialPort(const PortSettings& wanted);
    ~SerialPort() override;
    SerialPort(const SerialPort&) = delete;
    SerialPort& operator=(const SerialPort&) = delete;
    ByteArray take(size_t most) override;

    /// Changes the rate and discards what was received at another one.
    void setBaudRate(uint32_t rate);

    /// Empty if the driver does not count.
    [[nodiscard]] std::optional<Line::Counters> counters() const;

    /// Does not report at the end which counters have risen: at a wrong rate, errors are expected.
    void expectErrors() { countedBefore.reset(); }

private:
    size_t put(const uint8_t* bytes, size_t size) override;
    size_t inTransit() override;
    void drain() override;
    [[nodiscard]] bool pollsForRoom() const override { return true; }

    void reportErrors() const;

    Line line;
    std::optional<Uart> uart;
    Line::Settings found;                         ///< before the Uart was opened
    std::optional<Line::Counters> countedBefore;  ///< empty if the driver does not count
};

}  // namespace uart
