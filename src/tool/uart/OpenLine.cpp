#include "uart/OpenLine.h"

#include "device/Node.h"

#include <algorithm>
#include <array>
#include <cerrno>

namespace uart
{
namespace
{

constexpr std::chrono::milliseconds breakTime{250};

/// In the order of Line::Parity.
constexpr std::array<const char*, 5> parityNames = {"none", "even", "odd", "mark", "space"};

}  // namespace

void openLine(Line& line)
{
    const ErrorScope errors;
    if (!line.init())
        throw errors.first()->error == ENOTTY ? Failure{CannotOpen, line.device() + " is not a serial port"}
                                              : openFailure(line.device(), errors.first()->error, serialPorts);
}

void openLockedLine(Line& line)
{
    openLine(line);
    const ErrorScope errors;
    if (!line.lock())
        throw Failure{CannotOpen, line.device() + " is in use by " + otherUser(line.device())};
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

const char* nameOf(Line::Parity parity)
{
    return parityNames.at(static_cast<size_t>(parity));
}

Line::Parity parityOf(const std::string& name)
{
    const auto* const found = std::find(parityNames.begin(), parityNames.end(), name);
    return static_cast<Line::Parity>(found - parityNames.begin());
}

std::string settingsText(const Line::Settings& settings)
{
    const char letter = "NEOMS"[static_cast<size_t>(settings.parity)];
    return std::to_string(settings.baudRate) + " " + std::to_string(settings.dataBits) + letter +
           std::to_string(settings.stopBits) + (settings.rtsCts ? ", RTS/CTS" : "") +
           (settings.xonXoff ? ", XON/XOFF" : "") + (settings.hangUpOnClose ? ", hang-up" : "");
}

std::string rs485Text(const Line::Rs485& settings)
{
    if (!settings.enabled)
        return "off";
    return std::string{"RTS "} + (settings.rtsOnSend ? "on" : "off") + " while sending, delays " +
           std::to_string(settings.delayBeforeSendMs) + " and " + std::to_string(settings.delayAfterSendMs) + " ms" +
           (settings.receiveDuringSend ? ", receiving during send" : "");
}

void setModemLines(Line& line, std::optional<bool> dtr, std::optional<bool> rts, bool sendBreak)
{
    const ErrorScope errors;
    if (dtr && !line.setDtr(*dtr))
        throw lineFailure(TransferFailed, line, "DTR", errors);
    if (rts && !line.setRts(*rts))
        throw lineFailure(TransferFailed, line, "RTS", errors);
    if (sendBreak && !line.sendBreak(breakTime))
        throw lineFailure(TransferFailed, line, "break", errors);
}

bool keepLinesAtClose(Line& line)
{
    std::optional<Line::Settings> settings = line.settings();
    if (settings)
        settings->hangUpOnClose = false;
    return settings && line.setSettings(*settings);
}

std::optional<Line::Counters> countersOf(const Line& line)
{
    const ErrorScope errors{ErrorScope::Hidden};
    return line.counters();
}

std::string risenCounters(const Line::Counters& before, const Line::Counters& now)
{
    const struct {
        uint32_t count;
        const char* one;
        const char* several;
        const char* remedy;
    } counters[] = {
        {now.framing - before.framing, "framing error", "framing errors", "another --baud"},
        {now.parity - before.parity, "parity error", "parity errors", "another --parity"},
        {now.overrun - before.overrun, "overrun of the chip's FIFO", "overruns of the chip's FIFO",
         "flow control, or a lower --baud"},
        {now.bufferOverrun - before.bufferOverrun, "overrun of the kernel's buffer", "overruns of the kernel's buffer",
         "flow control, or read faster"},
        {now.breaks - before.breaks, "break", "breaks", "sent by the other end, or a lower --baud"},
    };
    std::string text;
    for (const auto& counter : counters) {
        if (counter.count > 0)
            text += (text.empty() ? "" : "; ") + std::to_string(counter.count) + ' ' +
                    (counter.count == 1 ? counter.one : counter.several) + ": " + counter.remedy;
    }
    return text;
}

}  // namespace uart
