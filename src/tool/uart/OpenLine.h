// The library's Line as the verbs use it: failures name cause and remedy.
#pragma once

#include "base/Failure.h"
#include "base/LibraryLog.h"

#include <serialComm/Line.h>

#include <optional>
#include <string>

namespace uart
{

/// Opens a serial port.
void openLine(Line& line);

/// The same; fails if another program has locked it.
void openLockedLine(Line& line);

/// A call that the Line could not do: "<path>: RS-485: not supported by this driver".
Failure lineFailure(Status status, const Line& line, const std::string& what, const ErrorScope& errors);

/// "none", "even", ...
const char* nameOf(Line::Parity parity);
Line::Parity parityOf(const std::string& name);

/// "115200 8N1, RTS/CTS, XON/XOFF, hang-up"
std::string settingsText(const Line::Settings& settings);

/// "off"; "RTS on while sending, delays 1 and 2 ms, receiving during send"
std::string rs485Text(const Line::Rs485& settings);

/// Sets what is given, and sends a break.
void setModemLines(Line& line, std::optional<bool> dtr, std::optional<bool> rts, bool sendBreak);

/// Keeps DTR and RTS asserted when the port is closed; false after a failure.
bool keepLinesAtClose(Line& line);

/// Empty if the driver does not count; that is not logged.
std::optional<Line::Counters> countersOf(const Line& line);

/// "6 framing errors: another --baud; 1 parity error: another --parity"; empty if no error counter has risen.
std::string risenCounters(const Line::Counters& before, const Line::Counters& now);

}  // namespace uart
