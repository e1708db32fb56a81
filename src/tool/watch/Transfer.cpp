#include "watch/Transfer.h"

#include <tuple>

namespace watch
{

bool Place::operator<(const Place& other) const
{
    return std::tie(bus, number, chip) < std::tie(other.bus, other.number, other.chip);
}

size_t Transfer::size() const
{
    size_t bytes = 0;
    if (i2c() != nullptr) {
        for (const session::I2cMessage& message : i2c()->messages)
            bytes += message.data.bytes.size();
    } else {
        for (const size_t length : lengths)
            bytes += length;
    }
    return bytes;
}

std::string Transfer::errorName() const
{
    const int error = std::visit([](const auto& each) { return each.error; }, what);
    return error != 0 ? session::errorName(error) : failed ? "failed" : "";
}

std::vector<uint8_t> recorded(const session::Data& data)
{
    std::vector<uint8_t> bytes;
    for (const session::Byte byte : data.bytes) {
        if (!byte)
            break;
        bytes.push_back(*byte);
    }
    return bytes;
}

}  // namespace watch
