// An open port as the verbs use it: a tty of the system, or a pseudo-terminal made for another program. It sends queued
// bytes while it waits for received ones, so that none are lost meanwhile.
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

/// The port was unplugged, or the program at the other side closed it or discarded bytes that it had not read yet.
struct PortGone : Failure {
};

/// When to stop waiting if no byte arrives.
struct Limits {
    std::optional<milliseconds> silence = {};  ///< counted from the last byte received or sent
    std::optional<steady_clock::time_point> deadline = {};
    bool sendingMayStall = false;  ///< otherwise waiting throws if nothing was sent for five seconds
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

    /// Sends queued bytes. Returns when there are bytes to receive, at a limit, or when `other` can be read and at most
    /// `mostUnsent` bytes are still unsent.
    Ready wait(const Limits& limits, int other = -1, size_t mostUnsent = SIZE_MAX);

    /// Received bytes, as soon as there are any; empty at a limit.
    ByteArray receive(size_t most, const Limits& limits);

    /// The same, with the bytes that follow without a pause, for at most half a second.
    ByteArray receiveBurst(size_t most, const Limits& limits);

    /// Completes the burst that begins with these bytes.
    ByteArray burstAfter(ByteArray burst, size_t most, const Limits& limits);

    /// Received bytes, at most `most`, without waiting; there may be none.
    virtual ByteArray take(size_t most) = 0;

    void queue(const ByteArray& bytes);

    /// Takes back the queued bytes that were not handed to the kernel yet.
    ByteArray takeQueue();

    /// How many bytes are still unsent, as of the last wait.
    [[nodiscard]] size_t pending() const { return unsent; }

    /// Sends the queued bytes and waits until all are sent; bytes received meanwhile are discarded.
    void flush();

    /// queue() and flush().
    void send(const ByteArray& bytes);

    /// "5 bytes were sent, 3 were not"
    [[nodiscard]] std::string sendReport() const;

protected:
    explicit Port(const Line& settings) : line(settings) {}

    [[nodiscard]] std::string withReport(const std::string& message) const;
    [[nodiscard]] PortGone gone() const;

    /// Whether some of the queued bytes were handed over and others were not.
    [[nodiscard]] bool isPartlySent() const { return handedOver > 0; }
    void countUnsent(size_t onTheirWay) { unsent = outgoing.size() - handedOver + onTheirWay; }

    /// Hands over as many of the bytes as possible without waiting; returns how many.
    virtual size_t put(const uint8_t* bytes, size_t size) = 0;

    /// Bytes that put() has accepted and that are still unsent.
    virtual size_t inTransit() = 0;

    /// Whether POLLOUT reports that put() can send.
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
    size_t unsent = 0;      ///< of them, those not sent yet
    milliseconds stalled{};
    bool lastWereBytes = false;
};

/// Opens a port, or throws a Failure with the cause.
std::unique_ptr<Port> openPort(const Line& line);

/// The same; shows the traffic at -v, and prints the name of a pseudo-terminal's slave.
std::unique_ptr<Port> openPort(const Line& line, const std::string& traffic, Output& output);

/// Whether the other side of an open terminal was closed or unplugged.
bool isHungUp(int fd);

}  // namespace uart
