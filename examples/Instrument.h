#pragma once

#include <serialComm/Uart.h>

#include <chrono>
#include <optional>
#include <string>

/// An instrument that answers each line with one line. Its port must be blocking (the last parameter of Uart).
class Instrument
{
public:
    explicit Instrument(Uart& uart) : port(uart) {}

    /// Sends a question and waits for the answer.
    ///
    /// @return The answer without its line ending (CR, LF or both), or nothing after the timeout or if the port is
    /// gone. Empty lines are skipped. An answer that arrives after the timeout is taken as the answer to the next
    /// question.
    std::optional<std::string> ask(const std::string& question, std::chrono::milliseconds timeout)
    {
        const std::string line = question + "\n";
        if (!port.write(ByteArray(line.begin(), line.end())))
            return std::nullopt;

        std::string received;
        const auto deadline = Clock::now() + timeout;
        while (Clock::now() < deadline) {
            const auto asked = Clock::now();
            bool failed = false;
            const ByteArray bytes = port.read(256, &failed);
            // Without data, read() returns after 0.5 s. If it returns at once, the port is gone: stop instead of
            // spinning.
            if (failed || (bytes.empty() && Clock::now() - asked < std::chrono::milliseconds{250}))
                return std::nullopt;

            received.append(bytes.begin(), bytes.end());
            received.erase(0, received.find_first_not_of("\r\n"));  // the LF of the previous answer may arrive late
            const size_t end = received.find_first_of("\r\n");
            if (end != std::string::npos)
                return received.substr(0, end);
        }
        return std::nullopt;
    }

private:
    using Clock = std::chrono::steady_clock;

    Uart& port;
};
