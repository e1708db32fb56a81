#include "watch/Files.h"

#include "watch/Render.h"

#include <linux/i2c.h>
#include <session/Session.h>

#include <algorithm>

namespace watch
{
namespace
{

constexpr uint32_t magic = 0xa1b23c4d;  ///< of pcap, with times in ns
constexpr uint32_t linkType = 209;
constexpr size_t mostBytes = 65536 + 8;
constexpr uint64_t second = 1'000'000'000;

/// In this machine's byte order, as pcap is.
void append(ByteArray& bytes, uint32_t number)
{
    const auto* first = reinterpret_cast<const uint8_t*>(&number);
    bytes.insert(bytes.end(), first, first + sizeof number);
}

/// The bytes behind the start of a message.
ByteArray addressOf(const session::I2cMessage& message)
{
    const unsigned int address = message.address;
    const unsigned int direction = message.read ? 1 : 0;
    if (!message.tenBit)
        return {static_cast<uint8_t>(address << 1 | direction)};
    return {static_cast<uint8_t>(0xf0 | address >> 8 << 1 | direction), static_cast<uint8_t>(address & 0xff)};
}

/// Bus, and the kernel's flags of the message in network order; then what is on the wire.
ByteArray packetOf(const session::I2cMessage& message, int adapter)
{
    const unsigned int flags = message.flags | (message.read ? I2C_M_RD : 0U) | (message.tenBit ? I2C_M_TEN : 0U);
    ByteArray packet = {static_cast<uint8_t>(adapter & 0x7f), 0, 0, static_cast<uint8_t>(flags >> 8),
                        static_cast<uint8_t>(flags & 0xff)};
    for (const ByteArray& part : {addressOf(message), recorded(message.data)})
        packet.insert(packet.end(), part.begin(), part.end());
    return packet;
}

}  // namespace

ByteArray captureHeader()
{
    constexpr uint32_t version = 4 << 16 | 2;
    ByteArray header;
    for (const uint32_t number : {magic, version, uint32_t{0}, uint32_t{0}, uint32_t{mostBytes}, linkType})
        append(header, number);
    return header;
}

ByteArray packetsOf(const Transfer& transfer, uint64_t time)
{
    ByteArray packets;
    if (transfer.i2c() == nullptr)
        return packets;
    for (const session::I2cMessage& message : transfer.i2c()->messages) {
        const ByteArray packet = packetOf(message, transfer.place.number);
        const size_t missing = message.data.bytes.size() - recorded(message.data).size();
        append(packets, static_cast<uint32_t>(time / second));
        append(packets, static_cast<uint32_t>(time % second));
        append(packets, static_cast<uint32_t>(packet.size()));
        append(packets, static_cast<uint32_t>(packet.size() + missing));
        packets.insert(packets.end(), packet.begin(), packet.end());
    }
    return packets;
}

std::string notReplayable(const Transfer& transfer)
{
    if (!transfer.note.empty())
        return transfer.note;
    return transfer.failed && transfer.errorName() == "failed" ? "its errno was not recorded" : "";
}

std::string sessionLine(const Transfer& transfer)
{
    session::Event event;
    event.device = transfer.device;
    if (const std::string reason = notReplayable(transfer); !reason.empty())
        return "# " + shortName(transfer) + "  " + trafficOf(transfer) + "  (" + reason + ")\n";
    if (transfer.i2c() != nullptr) {
        event.what = *transfer.i2c();
    } else {
        session::SpiTransfer spi = *transfer.spi();
        spi.speedHz.reset();
        event.what = spi;
    }
    return session::toText(event) + '\n';
}

}  // namespace watch
