#include "uart/Port.h"

#include "base/Bytes.h"
#include "base/Signals.h"
#include "device/Node.h"
#include "uart/PseudoTerminal.h"
#include "uart/SerialPort.h"

#include <poll.h>

#include <algorithm>

namespace uart
{
namespace
{

constexpr size_t burstSize = 4096;
constexpr milliseconds pauseAfterBurst{50};
constexpr milliseconds longestBurst{500};
constexpr milliseconds longestStall{5000};

/// While bytes are being sent, not every change causes an event: intervals between two checks.
constexpr milliseconds intervalWhileSending{1};
constexpr milliseconds intervalWhileStalled{5};

milliseconds since(steady_clock::time_point start)
{
    return std::chrono::duration_cast<milliseconds>(steady_clock::now() - start);
}

}  // namespace

bool isHungUp(int fd)
{
    struct pollfd port = {fd, 0, 0};
    return poll(&port, 1, 0) > 0 && (port.revents & (POLLHUP | POLLERR)) != 0;
}

std::unique_ptr<Port> openPort(const PortSettings& settings)
{
    if (minorNumber(settings.path, 5) == 2)  // /dev/ptmx
        return std::make_unique<PseudoTerminal>(settings);
    return std::make_unique<SerialPort>(settings);
}

std::unique_ptr<Port> openPort(const PortSettings& settings, const std::string& traffic, Output& output)
{
    output.traffic(traffic);
    auto port = openPort(settings);
    if (!port->slave().empty())
        output.result({{"slave", port->slave()}}, printable(port->slave()));
    return port;
}

Port::Ready Port::wait(const Limits& limits, int other, size_t mostUnsent)
{
    auto quietSince = steady_clock::now();
    for (;;) {
        throwIfInterrupted();
        const size_t before = unsent;
        push();
        const bool sending = unsent < before;
        if (sending)
            stalled = milliseconds{0};
        if (unsent > 0)
            quietSince = steady_clock::now();
        else if (limits.silence == milliseconds{0})
            return Ready::Silence;  // even if the other side has read everything and closed the port

        milliseconds most{3600'000};
        if (unsent > 0)
            most = sending ? intervalWhileSending : intervalWhileStalled;
        else if (limits.silence)
            most = *limits.silence - since(quietSince);
        if (limits.deadline)
            most = std::min(most, milliseconds{1} - since(*limits.deadline));
        most = std::max(most, milliseconds{0});

        const bool wantsRoom = handedOver < outgoing.size() && pollsForRoom();
        struct pollfd ports[] = {{fd, static_cast<short>(wantsRoom ? POLLIN | POLLOUT : POLLIN), 0},
                                 {unsent <= mostUnsent ? other : -1, POLLIN, 0}};
        const int count = poll(ports, 2, static_cast<int>(most.count()));
        const bool bytes = (ports[0].revents & POLLIN) != 0;
        if (count > 0 && ports[1].revents != 0 && (!bytes || lastWereBytes)) {  // both are served in turn
            lastWereBytes = false;
            return Ready::Other;
        }
        if (count > 0 && bytes) {
            lastWereBytes = true;
            return Ready::Bytes;
        }
        if (count > 0 && (ports[0].revents & ~POLLOUT) != 0)
            throw gone();
        if (limits.deadline && steady_clock::now() >= *limits.deadline)
            return Ready::Silence;
        if (count == 0 && unsent > 0)
            countStall(most, limits);
        else if (count == 0 && limits.silence && since(quietSince) >= *limits.silence)
            return Ready::Silence;
    }
}

/// Counts only the time spent waiting, because the program may have been stopped (SIGTSTP) in between.
void Port::countStall(milliseconds waited, const Limits& limits)
{
    stalled = lacksPeer() ? milliseconds{0} : stalled + waited;
    if (stalled > longestStall && !limits.sendingMayStall)
        throw Failure{TransferFailed,
                      withReport(settings.path + ": nothing could be sent for 5 s at " + settings.text())};
}

void Port::push()
{
    while (handedOver < outgoing.size()) {
        const size_t count = put(outgoing.data() + handedOver, std::min(outgoing.size() - handedOver, burstSize));
        handedOver += count;
        unsent -= count;  // if the next piece fails, its report counts this one
        if (count == 0)
            break;
    }
    if (handedOver == outgoing.size()) {
        outgoing.clear();
        handedOver = 0;
    }
    countUnsent(total > 0 ? inTransit() : 0);
}

void Port::throwIfInterrupted() const
{
    if (signalled() && unsent > 0)
        printError(withReport(settings.path + ": interrupted"));
    throwIfSignalled();
}

ByteArray Port::receive(size_t most, const Limits& limits)
{
    while (wait(limits) == Ready::Bytes) {
        ByteArray bytes = take(std::min(most, burstSize));
        if (!bytes.empty())
            return bytes;
    }
    return {};
}

ByteArray Port::receiveBurst(size_t most, const Limits& limits)
{
    return burstAfter(receive(most, limits), most, limits);
}

ByteArray Port::burstAfter(ByteArray burst, size_t most, const Limits& limits)
{
    const size_t end = std::min(most, burstSize);
    const auto start = steady_clock::now();
    try {
        while (!burst.empty() && burst.size() < end && since(start) < longestBurst) {
            const auto endOfPause = steady_clock::now() + pauseAfterBurst;
            const auto deadline = std::min(limits.deadline.value_or(endOfPause), endOfPause);
            const ByteArray more = receive(end - burst.size(), {{}, deadline, true});
            if (more.empty())
                break;
            burst.insert(burst.end(), more.begin(), more.end());
        }
    } catch (const PortGone&) {
        return burst;  // the next call throws it again
    } catch (const Interrupted&) {
        return burst;
    }
    return burst;
}

void Port::queue(const ByteArray& bytes)
{
    outgoing.insert(outgoing.end(), bytes.begin(), bytes.end());
    total += bytes.size();
    unsent += bytes.size();
}

ByteArray Port::takeQueue()
{
    ByteArray left(outgoing.begin() + static_cast<std::ptrdiff_t>(handedOver), outgoing.end());
    outgoing.clear();
    handedOver = 0;
    total -= left.size();
    unsent -= std::min(unsent, left.size());
    return left;
}

void Port::flush()
{
    while (unsent > 0 && wait({milliseconds{0}}) == Ready::Bytes)
        take(burstSize);
    drain();
    throwIfSignalled();
}

void Port::send(const ByteArray& bytes)
{
    queue(bytes);
    flush();
}

std::string Port::sendReport() const
{
    const size_t sent = total - unsent;
    return byteCount(sent) + (sent == 1 ? " was sent, " : " were sent, ") + std::to_string(unsent) +
           (unsent == 1 ? " was not" : " were not");
}

std::string Port::withReport(const std::string& message) const
{
    return unsent == 0 ? message : message + "; " + sendReport();
}

PortGone Port::gone() const
{
    return {{TransferFailed, withReport(settings.path + " is gone: unplugged, or closed at the other side")}};
}

}  // namespace uart
