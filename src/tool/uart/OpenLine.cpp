#include "uart/OpenLine.h"

#include "device/Node.h"

#include <cerrno>

namespace uart
{

void open(Line& line)
{
    const std::string& path = line.device();
    const ErrorScope errors;
    if (!line.init())
        throw errors.first()->error == ENOTTY ? Failure{CannotOpen, path + " is not a serial port"}
                                              : openFailure(path, errors.first()->error, serialPorts);
    if (!line.lock())
        throw Failure{CannotOpen, path + " is in use by " + otherUser(path)};
}

Failure lineFailure(Status status, const Line& line, const std::string& what, const ErrorScope& errors)
{
    // "Line TIOCGRS485 failed on /dev/ttyS0: not supported by this driver, errno: 25"
    const std::string start = " on " + line.device() + ": ";
    const std::string& message = errors.first()->message;
    const size_t at = message.find(start);
    const std::string cause = at == std::string::npos ? message : message.substr(at + start.size());
    return {status, line.device() + ": " + what + ": " + cause.substr(0, cause.find(", errno: "))};
}

}  // namespace uart
