// The calls of a program as lines of a session, and answers as what the calls return.
#pragma once

#include "Channel.h"
#include "session/Session.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace replay
{

/// What open() made: the device, and what belongs to the open file.
struct OpenFile {
    std::string device;
    BusKind bus = BusKind::i2c;
    uint64_t deviceId = 0;
    uint64_t inode = 0;
    uint16_t address = 0;
    bool tenBit = false;
};

/// How a device is set, as far as it is known.
struct DeviceState {
    std::map<session::Setting::Name, uint32_t> values;
    std::optional<session::LineSettings> line;

    void learn(const session::Event& event);
};

class Calls
{
public:
    /// The handle for the library: never 0.
    uint32_t add(const OpenFile& file);

    /// The file that a descriptor inherited through exec is of; 0 for none.
    [[nodiscard]] uint32_t find(const DescriptorId& id) const;

    OpenFile& file(uint32_t handle);
    DeviceState& state(const std::string& device) { return states[device]; }

    /// What the program asks for. `ended`: with how it ended and what was received; otherwise what it reads is planned.
    /// Nothing for what is no event of a session, such as a read of a serial port that brings nothing.
    std::optional<session::Event> event(const Message& message, bool ended);

    /// Keeps what a setting that succeeded changes.
    void learn(const Message& message, const session::Event& event);

private:
    std::vector<OpenFile> files;
    std::map<std::string, DeviceState> states;
};

/// A message of the kind open: the event, and the file.
session::Event openEvent(const Message& message, OpenFile& file);

/// What the call returns, and the bytes that it receives.
Reply answerTo(const Message& message, const session::Event& event, std::vector<uint8_t>& data);

session::LineSettings settingsOf(const LineState& line);
LineState stateOf(const session::LineSettings& line);

}  // namespace replay
