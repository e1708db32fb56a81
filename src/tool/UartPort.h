// An open serial port: the library's Uart carries the bytes; a descriptor beside it serves what is not traffic
// (waiting, the lock, the drain).
#pragma once

#include "Failure.h"
#include "Hints.h"

#include <serialComm/Uart.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

using std::chrono::milliseconds;

struct Line {
    std::string path;
    int baudRate;
    std::string parity;
    int stopBits;

    std::string settings() const;
};

/// The ports that have hardware behind them.
std::vector<Node> serialPorts();

/// The port was unplugged, or the other side of the pseudo-terminal closed.
struct PortGone : Failure {
};

class Port
{
public:
    /// Opens the port, or throws a Failure with the cause.
    explicit Port(const Line& settings);
    ~Port();
    Port(const Port&) = delete;
    Port& operator=(const Port&) = delete;

    /// The name of a pseudo-terminal's slave; empty on a tty.
    const std::string& slave() const { return slaveName; }

    /// On a pseudo-terminal: waits until somebody has opened the slave.
    void waitForPeer();

    enum class Ready { Silence, Bytes, Other };

    /// Waits until there are bytes, or until another descriptor can be read. Throws PortGone.
    Ready wait(std::optional<milliseconds> most, int other = -1);

    /// Receives what is there, as soon as there is something; empty after that much silence. Throws PortGone.
    ByteArray receive(size_t most, std::optional<milliseconds> silence);

    /// The same, and what follows without a pause, for half a second at most.
    ByteArray receiveBurst(size_t most, std::optional<milliseconds> silence);

    /// Sends the bytes and waits, not for ever, until they are out.
    void send(const ByteArray& bytes);

    /// On a pseudo-terminal: waits, not for ever, until the other side has read what was sent. Closing drops it.
    void waitUntilRead();

private:
    void openTty();
    void findMaster();
    bool peerIsSetUp() const;
    void drain(size_t sent);
    int waiting() const;

    Line line;
    std::string slaveName;
    /// The descriptor beside the library's. It closes after the library has put back the settings that it found, and
    /// puts back the one that it changed before.
    struct Own {
        Own() = default;
        ~Own();
        Own(const Own&) = delete;
        Own& operator=(const Own&) = delete;

        int fd = -1;
        std::optional<struct termios> found;
    };

    Own own;
    bool bytesLast = false;
    Uart uart;
};
