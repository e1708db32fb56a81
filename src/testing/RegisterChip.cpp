#include "serialComm/testing/RegisterChip.h"

namespace serialComm::testing
{

void RegisterChip::failOnCall(size_t call, int error)
{
    failing = call;
    failure = error;
}

TestBus::Result RegisterChip::transfer(const Transfer& transfer)
{
    if (++counted == failing)
        return {failure, {}, 0};

    constexpr uint8_t readBit = 0x80;
    const bool onSpi = busKind() == Kind::spi;
    const ByteArray sent = transfer.sent.value_or(ByteArray{});
    const bool reads = onSpi && !sent.empty() && (sent[0] & readBit) != 0;
    if (!sent.empty())
        reg = reads ? static_cast<uint8_t>(sent[0] & ~readBit) : sent[0];

    if (sent.size() > 1 && !reads) {
        written.push_back({reg, {sent.begin() + 1, sent.end()}});
        for (size_t i = 1; i < sent.size(); ++i)
            registers[reg++] = sent[i];
    }

    ByteArray received;
    if (onSpi && transfer.wanted > 0U)
        received.push_back(0xff);  // while the register's number goes out
    while (received.size() < transfer.wanted.value_or(0))
        received.push_back(onSpi && !reads ? 0xff : registers[reg++]);
    return {0, received, sent.size()};
}

}  // namespace serialComm::testing
