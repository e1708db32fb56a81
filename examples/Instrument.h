#pragma once

#include <serialComm/LineReader.h>

#include <chrono>
#include <optional>
#include <string>

/// An instrument that answers each line with one line.
class Instrument
{
public:
    /// Both are open on the port of the instrument: the Uart transfers the bytes, the Line waits for them.
    Instrument(Uart& uart, const Line& line) : port(uart), reader(uart, line) {}

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

        const std::optional<ByteArray> answer = reader.frame(lengthOfLine, timeout);
        if (!answer)
            return std::nullopt;
        const std::string text{answer->begin(), answer->end() - 1};
        return text.substr(text.find_first_not_of("\r\n"));
    }

private:
    /// Leading line endings, the text, and one CR or LF. If the answer ends in CR LF, the LF precedes the next answer.
    static size_t lengthOfLine(const ByteArray& received)
    {
        const std::string text{received.begin(), received.end()};
        const size_t begin = text.find_first_not_of("\r\n");
        const size_t end = text.find_first_of("\r\n", begin);
        return begin == std::string::npos || end == std::string::npos ? 0 : end + 1;
    }

    Uart& port;
    LineReader reader;
};
