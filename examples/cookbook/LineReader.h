#pragma once

#include <serialComm/Uart.h>

#include <chrono>
#include <optional>
#include <string>

/// Splits what a blocking port receives into lines.
class LineReader
{
public:
    explicit LineReader(Uart& uart) : port(uart) {}

    /// Waits for a line, at most until the timeout.
    ///
    /// @return The line without its ending, or nothing: the timeout is over, or the port is gone (see gone()).
    std::optional<std::string> next(std::chrono::milliseconds timeout)
    {
        const auto deadline = Clock::now() + timeout;
        for (;;) {
            const size_t end = received.find('\n');
            if (end != std::string::npos) {
                std::string line = received.substr(0, end);
                received.erase(0, end + 1);
                if (!line.empty() && line.back() == '\r')
                    line.pop_back();
                return line;
            }
            const auto asked = Clock::now();
            if (asked >= deadline)
                return std::nullopt;
            bool failed = false;
            const ByteArray bytes = port.read(256, &failed);
            // Without data, read() returns after 0.5 s; when the port is gone, it returns at once.
            portGone = failed || (bytes.empty() && Clock::now() - asked < std::chrono::milliseconds{250});
            if (portGone)
                return std::nullopt;
            received.append(bytes.begin(), bytes.end());
        }
    }

    bool gone() const { return portGone; }

private:
    using Clock = std::chrono::steady_clock;

    Uart& port;
    std::string received;
    bool portGone = false;
};
