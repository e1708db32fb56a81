// Parses the words of verbs for serial ports; an invalid word throws a Failure that says what is valid.
#pragma once

#include "base/Values.h"
#include "base/Verb.h"

#include <serialComm/SyncSerialBase.h>

#include <string>
#include <vector>

namespace uart
{

/// The port and its line settings, which every verb takes.
struct Line {
    std::string path;
    int baudRate = 0;
    std::string parity;
    int stopBits = 0;

    /// "115200 8N1"
    [[nodiscard]] std::string settings() const;
};

void describeLine(Grammar& grammar, Line& line);

/// "1 byte", "2 bytes"
std::string byteCount(size_t count);

/// "1 s", "0.5 s"
std::string secondsText(milliseconds time);

/// "ttyUSB0", a path, or "pty" for a new pseudo-terminal, to a path.
std::string parsePort(const std::string& text);

/// One of the rates that the library supports.
int parseBaudRate(const std::string& text);

/// Words joined by spaces, with the escapes \r \n \t \\ \xNN.
ByteArray parseText(const std::vector<std::string>& words);

/// --eol: "cr", "lf", "crlf" or "none" to the bytes of a line ending.
Argument& describeLineEnd(Grammar& grammar, ByteArray& lineEnd);

}  // namespace uart
