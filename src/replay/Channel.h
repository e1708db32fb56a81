// The process that records or replays: its side of the sockets to the preloaded libraries.
#pragma once

#include "Protocol.h"

#include <poll.h>

#include <chrono>
#include <map>
#include <string>
#include <vector>

namespace replay
{

/// What a library sent.
struct Message {
    int connection = -1;
    Request request{};
    std::vector<uint8_t> data;
};

class Channel
{
public:
    /// @throws std::system_error
    Channel();
    Channel(const Channel&) = delete;
    Channel& operator=(const Channel&) = delete;
    ~Channel();

    /// For Program: the value of socketVariable.
    [[nodiscard]] const std::string& name() const { return socketName; }

    /// Waits until something arrives, on a connection or on one of the others, or the time is over.
    ///
    /// @return What arrived, in the order in which it was sent.
    std::vector<Message> wait(std::vector<struct pollfd>& others, std::chrono::milliseconds timeout);

    /// Sends a reply; nothing happens when nobody waits for it any more.
    static void reply(int connection, Reply reply, const std::vector<uint8_t>& data = {}, int descriptor = -1);

private:
    void acceptOne();
    void receive(int connection, std::vector<Message>& messages);

    std::string socketName;
    int listener = -1;
    std::map<int, std::vector<uint8_t>> connections;  // and what is not a whole message yet
};

}  // namespace replay
