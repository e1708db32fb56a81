#pragma once

#include <serialComm/Uart.h>

#include <chrono>
#include <optional>
#include <string>

/// An instrument that answers each line with a line. Its port is opened to wait (Uart's last parameter true).
class Instrument
{
public:
    explicit Instrument(Uart& uart) : port(uart) {}

    /// Sends a question and waits for the answer.
    ///
    /// @return The answer without its line end, CR, LF or both; nothing when there was none in time or the port is
    /// gone. An empty line is no answer; an answer that comes too late is taken for the next question's.
    std::optional<std::string> ask(const std::string& question, std::chrono::milliseconds patience)
    {
        const std::string line = question + "\n";
        if (!port.write(ByteArray(line.begin(), line.end())))
            return std::nullopt;

        std::string received;
        const auto deadline = Clock::now() + patience;
        while (Clock::now() < deadline) {
            const auto asked = Clock::now();
            bool failed = false;
            const ByteArray bytes = port.read(256, &failed);
            // Silence takes 0.5 s. Nothing, and at once, comes from a port that is gone: asking on would spin.
            if (failed || (bytes.empty() && Clock::now() - asked < std::chrono::milliseconds{250}))
                return std::nullopt;

            received.append(bytes.begin(), bytes.end());
            received.erase(0, received.find_first_not_of("\r\n"));  // the LF of the answer before comes on its own
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
