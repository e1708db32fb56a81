// The other end of a serial port in replay: a real pseudo-terminal, so that poll(), termios and whatever a program does
// with a terminal work.
#pragma once

#include "Line.h"

#include <cstdint>
#include <vector>

namespace replay
{

class SerialPort
{
public:
    /// Raw, so that nothing is echoed or translated; with the line settings that the session has.
    ///
    /// @throws Problem where there are no pseudo-terminals.
    explicit SerialPort(const LineState& line);
    SerialPort(const SerialPort&) = delete;
    SerialPort& operator=(const SerialPort&) = delete;
    ~SerialPort();

    /// The program's end, opened once more with these flags of open(); -1 with errno after a failure.
    [[nodiscard]] int openPeer(int flags) const;

    /// For poll(); -1 after hangUp().
    [[nodiscard]] int descriptor() const { return master; }

    /// What the program has sent since the last call.
    std::vector<uint8_t> receive();

    /// The program says that it sent so many bytes: what is still on its way is waited for.
    std::vector<uint8_t> receiveSent(uint32_t count);

    /// Sends to the program, now or as soon as it reads.
    void send(const std::vector<uint8_t>& bytes);
    [[nodiscard]] bool hasUnsent() const { return !unsent.empty(); }
    void sendMore();

    /// As an adapter that is unplugged: EIO for the program, and nothing to read any more after what was sent before.
    void hangUp();

private:
    void waitUntilRead();

    int master = -1;
    int peer = -1;  // kept open: the terminal stays as it is when the program closes it
    uint64_t received = 0;
    uint64_t announced = 0;
    std::vector<uint8_t> unsent;
};

}  // namespace replay
