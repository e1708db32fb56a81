// Parses the words of verbs for serial ports; an invalid word throws a Failure that says what is valid.
#pragma once

#include "base/Values.h"
#include "base/Verb.h"

#include <serialComm/SyncSerialBase.h>

#include <optional>
#include <string>
#include <vector>

namespace uart
{

/// The port and its line settings, for the verbs that transfer bytes.
struct PortSettings {
    std::string path;
    uint32_t baudRate = 0;
    std::string parity;
    int stopBits = 0;
    bool noReset = false;
    std::optional<bool> dtr;
    std::optional<bool> rts;
    bool sendBreak = false;

    /// "115200 8N1"
    [[nodiscard]] std::string text() const;

    /// The same, and what is done to the lines before the first byte: "115200 8N1, DTR off, break".
    [[nodiscard]] std::string traffic() const;
};

void describePort(Grammar& grammar, PortSettings& settings);

/// The options of describePort() except --baud.
void describeFrame(Grammar& grammar, PortSettings& settings);

/// A port that exists: not pty.
void describeTty(Grammar& grammar, std::string& path);

/// --baud, where it may be omitted.
void describeBaud(Grammar& grammar, std::optional<uint32_t>& baudRate);

/// --dtr, --rts and --break.
void describeModemLines(Grammar& grammar, std::optional<bool>& dtr, std::optional<bool>& rts, bool& sendBreak);

/// An option that is on or off.
Argument& describeSwitch(Grammar& grammar, const std::string& name, const std::string& help,
                         std::optional<bool>& field);

/// "1 s", "0.5 s"
std::string secondsText(milliseconds time);

/// "ttyUSB0", a path, or "pty" for a new pseudo-terminal, to a path.
std::string parsePort(const std::string& text);

/// Any rate that fits into the kernel's 32 bits.
uint32_t parseBaudRate(const std::string& text);

/// Whether Uart sets this rate; a Line sets all others.
bool isRateOfUart(uint32_t rate);

/// Words joined by spaces, with the escapes \r \n \t \\ \xNN.
ByteArray parseText(const std::vector<std::string>& words);

/// --eol: "cr", "lf", "crlf" or "none" to the bytes of a line ending.
Argument& describeLineEnd(Grammar& grammar, ByteArray& lineEnd);

}  // namespace uart
