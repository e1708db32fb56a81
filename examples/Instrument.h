#pragma once

#include <serialComm/LineReader.h>

#include <chrono>
#include <optional>
#include <string>

/// An instrument that answers each line with a line.
class Instrument
{
public:
    /// Both are opened on the instrument's port; the Line waits, the Uart carries the bytes.
    Instrument(Uart& uart, const Line& line) : port(uart), reader(uart, line) {}

    /// Sends a question and waits for the answer.
    ///
    /// @return The answer without its line ending, CR, LF or both; nothing when there was none in time or the port is
    /// gone. An empty line is no answer; an answer that comes too late is taken for the next question's.
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
    /// Line endings before the text, the text, and CR or LF; the LF after a CR then comes before the next answer.
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
