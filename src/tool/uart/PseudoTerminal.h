// A pseudo-terminal made for another program, which opens its slave like a serial port.
#pragma once

#include "uart/Port.h"

#include <termios.h>

#include <string>

namespace uart
{

/// Bytes wait until a program has opened the slave and set it up, and count as sent once that program has read them. At
/// most `window` bytes are in transit, few enough for the kernel to count all of them.
class PseudoTerminal : public Port
{
public:
    explicit PseudoTerminal(const Line& settings);
    ~PseudoTerminal() override;
    PseudoTerminal(const PseudoTerminal&) = delete;
    PseudoTerminal& operator=(const PseudoTerminal&) = delete;

    [[nodiscard]] std::string slave() const override { return slaveName; }
    ByteArray take(size_t most) override;

private:
    size_t put(const uint8_t* bytes, size_t size) override;
    size_t inTransit() override;
    [[nodiscard]] bool pollsForRoom() const override { return false; }
    [[nodiscard]] bool lacksPeer() const override { return !peerIsReady; }

    [[nodiscard]] int openSlave() const;
    bool slaveIsOpen();
    bool wasOpened();
    void checkPeer();
    bool inputWasDiscarded();
    void checkStatus();
    void dropUnread(size_t lost, const std::string& event);
    [[nodiscard]] size_t readable() const;
    [[nodiscard]] size_t unfinishedLine() const;
    [[nodiscard]] struct termios slaveSettings() const;

    std::string slaveName;

    /// The slave, kept open to count the bytes that its program has not read, even if that program has it exclusively.
    int slaveFd = -1;

    int openEvents = -1;  ///< inotify

    steady_clock::time_point lastPeerCheck{};
    std::optional<steady_clock::time_point> peerSince;  ///< when the slave was last opened
    bool peerHasSetUp = false;
    bool peerIsReady = false;
    size_t notRead = 0;       ///< bytes sent that the peer had not read when they were last counted
    size_t sinceLineEnd = 0;  ///< bytes sent since the last line end
};

}  // namespace uart
