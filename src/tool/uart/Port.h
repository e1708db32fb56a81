// An open port as the verbs use it: a tty of the system, or a pseudo-terminal made for another program. It sends what
// is queued while it waits, so that nothing that is received meanwhile is lost.
#pragma once

#include "base/Failure.h"
#include "base/Output.h"
#include "base/Values.h"
#include "uart/Values.h"

#include <serialComm/SyncSerialBase.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>

namespace uart
{

using std::chrono::steady_clock;

/// The port was unplugged, or the program at the other side closed it or discarded what it had not read yet.
struct PortGone : Failure {
};

/// When waiting ends, if no byte comes.
struct Limits {
    std::optional<milliseconds> silence = {};  ///< counted from the last byte received or sent
    std::optional<steady_clock::time_point> deadline = {};
    bool sendingMayStall = false;  ///< otherwise throws when nothing was sent for five seconds
};

class Port
{
public:
    virtual ~Port() = default;
    Port(const Port&) = delete;
    Port& operator=(const Port&) = delete;

    /// The node that another program opens, of a pseudo-terminal; empty for a tty.
    [[nodiscard]] virtual std::string slave() const { return {}; }

    enum class Ready { Silence, Bytes, Other };

    /// Sends what is queued. Returns when there are bytes to receive, at a limit, or when `other` can be read and at
    /// most `mostUnsent` bytes have not left.
    Ready wait(const Limits& limits, int other = -1, size_t mostUnsent = SIZE_MAX);

    /// What has come, as soon as there is something; empty at a limit.
    ByteArray receive(size_t most, const Limits& limits);

    /// The same with what follows without a pause, for half a second at most.
    ByteArray receiveBurst(size_t most, const Limits& limits);

    /// The burst that these bytes begin.
    ByteArray burstAfter(ByteArray burst, size_t most, const Limits& limits);

    /// What has come, at most that much, without waiting; it may be nothing after all.
    virtual ByteArray take(size_t most) = 0;

    void queue(const ByteArray& bytes);

    /// Takes back what was queued and not handed to the kernel yet.
    ByteArray takeQueue();

    /// How many bytes have not left yet, as of the last wait.
    [[nodiscard]] size_t pending() const { return unsent; }

    /// Sends what is queued and waits until it has left; what comes meanwhile is discarded.
    void flush();

    /// queue() and flush().
    void send(const ByteArray& bytes);

    /// "5 bytes were sent, 3 were not"
    [[nodiscard]] std::string sendReport() const;

protected:
    explicit Port(const Line& settings) : line(settings) {}

    [[nodiscard]] std::string withReport(const std::string& message) const;
    [[nodiscard]] PortGone gone() const;

    /// Some of the queued bytes were handed over, and others not.
    [[nodiscard]] bool isPartlySent() const { return handedOver > 0; }
    void countUnsent(size_t onTheirWay) { unsent = outgoing.size() - handedOver + onTheirWay; }

    /// Sends as many of the bytes as can be sent without waiting.
    virtual size_t put(const uint8_t* bytes, size_t size) = 0;

    /// Bytes that put() has sent and that have not left yet.
    virtual size_t inTransit() = 0;

    /// Whether a poll for POLLOUT says that put() can send something.
    [[nodiscard]] virtual bool pollsForRoom() const = 0;

    /// Whether sending has to wait for another program to open the port.
    [[nodiscard]] virtual bool lacksPeer() const { return false; }

    Line line;
    int fd = -1;

private:
    void push();
    void countStall(milliseconds waited, const Limits& limits);
    void throwIfInterrupted() const;

    ByteArray outgoing;
    size_t handedOver = 0;  ///< bytes at the front of `outgoing` that put() took
    size_t total = 0;       ///< bytes ever queued
    size_t unsent = 0;      ///< of them, those that have not left
    milliseconds stalled{};
    bool bytesLast = false;
};

/// Opens a port, or throws a Failure with the cause.
std::unique_ptr<Port> openPort(const Line& line);

/// The same; shows the traffic at -v, and prints the name of a pseudo-terminal's slave.
std::unique_ptr<Port> openPort(const Line& line, const std::string& traffic, Output& output);

/// Whether the other side of an open terminal is gone.
bool isHungUp(int fd);

}  // namespace uart
