// The library's Line, with failures that name cause and remedy.
#pragma once

#include "base/Failure.h"
#include "base/LibraryLog.h"

#include <serialComm/Line.h>

namespace uart
{

/// Opens and locks a serial port.
void open(Line& line);

/// A call that the Line could not do: "<path>: RS-485: not supported by this driver".
Failure lineFailure(Status status, const Line& line, const std::string& what, const ErrorScope& errors);

}  // namespace uart
