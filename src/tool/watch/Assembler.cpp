#include "watch/Assembler.h"

#include <linux/i2c.h>
#include <linux/spi/spidev.h>

#include <algorithm>
#include <string>

namespace watch
{
namespace
{

constexpr uint16_t kernelsOwnFlags = I2C_M_RD | I2C_M_TEN | 0x0200;  ///< 0x0200: the buffer can be used by DMA
constexpr size_t mostUnknown = 65536;  ///< bytes of SPI that are kept although they were not recorded
constexpr const char* beginningMissing = "its beginning was not recorded";
constexpr const char* endMissing = "its end was not recorded";

session::Data dataOf(const std::vector<uint8_t>& bytes, size_t length)
{
    session::Data data = session::known(bytes);
    data.bytes.resize(std::max(length, bytes.size()));
    return data;
}

bool isWhole(const session::Data& data)
{
    return std::all_of(data.bytes.begin(), data.bytes.end(), [](session::Byte byte) { return byte.has_value(); });
}

std::string outOf(size_t count, size_t all, const std::string& unit)
{
    return std::to_string(count) + " of " + std::to_string(all) + ' ' + unit;
}

Place placeOf(const SpiEvent& step)
{
    return {Place::Bus::spi, step.bus, step.chip};
}

Transfer transferAt(const Place& place, const Event& event)
{
    Transfer transfer;
    transfer.place = place;
    transfer.time = event.time;
    transfer.thread = event.thread;
    return transfer;
}

void remark(Transfer& transfer, const std::string& what)
{
    transfer.note += (transfer.note.empty() ? "" : "; ") + what;
}

}  // namespace

void Assembler::add(const Event& event)
{
    std::visit([&](const auto& step) { this->add(event, step); }, event.what);
}

void Assembler::endAll()
{
    for (auto& [adapter, open] : smbus) {
        if (open.isReplaced)
            continue;
        end(open, open.request, std::get<SmbusEvent>(open.request.what));
        remark(ended.back(), endMissing);
    }
    for (auto& [adapter, open] : i2c)
        endIncomplete(std::move(open.transfer));
    for (auto& [bus, open] : spi)
        endIncomplete(std::move(open.transfer));
    i2c.clear();
    smbus.clear();
    spi.clear();
    submitters.clear();
}

void Assembler::endIncomplete(Transfer transfer)
{
    remark(transfer, endMissing);
    ended.push_back(std::move(transfer));
}

// I2C: a write or read event for each message, then the transaction, then a reply event for each read, then the result.

void Assembler::add(const Event& event, const I2cEvent& step)
{
    if (const auto emulated = smbus.find(step.adapter); emulated != smbus.end())
        emulated->second.isReplaced = true;

    const bool isRequest = step.kind == I2cEvent::Kind::write || step.kind == I2cEvent::Kind::read;
    auto open = i2c.find(step.adapter);
    const bool isNext = open != i2c.end() && isRequest && open->second.isBehind(step.number);
    if (isNext) {  // the result of the one before is missing
        endIncomplete(std::move(open->second.transfer));
        i2c.erase(open);
        open = i2c.end();
    }
    if (open == i2c.end()) {
        const Place place{Place::Bus::i2c, step.adapter, 0};
        open = i2c.emplace(step.adapter, I2c{transferAt(place, event)}).first;
        open->second.transfer.what = session::I2cTransfer{};
    }

    switch (step.kind) {
    case I2cEvent::Kind::write:
    case I2cEvent::Kind::read:
        addMessage(open->second, step);
        break;
    case I2cEvent::Kind::reply:
        addReply(open->second, step);
        break;
    case I2cEvent::Kind::result:
        end(std::move(open->second), event.time, step.result, step.number);
        i2c.erase(open);
        break;
    }
}

void Assembler::addMessage(I2c& open, const I2cEvent& step)
{
    session::I2cMessage message;
    message.address = step.address;
    message.tenBit = (step.flags & I2C_M_TEN) != 0;
    message.read = step.kind != I2cEvent::Kind::write;
    message.flags = static_cast<uint16_t>(step.flags & ~kernelsOwnFlags);
    if (!message.read)
        message.data = dataOf(step.bytes, step.length);
    std::get<session::I2cTransfer>(open.transfer.what).messages.push_back(message);

    open.messages.push_back({step.number, message.read ? step.length : 0});
}

/// Whether a message of this number cannot follow: it is one of the next transaction.
bool Assembler::I2c::isBehind(unsigned int number) const
{
    return !messages.empty() && number <= messages.back().number;
}

void Assembler::addReply(I2c& open, const I2cEvent& step)
{
    auto& transfer = std::get<session::I2cTransfer>(open.transfer.what);
    for (size_t i = 0; i < open.messages.size(); ++i) {
        if (open.messages[i].number != step.number)
            continue;
        transfer.messages[i].data = dataOf(step.bytes, step.length);
        open.messages[i].asked = 0;
    }
}

void Assembler::end(I2c open, uint64_t time, int result, size_t messages)
{
    auto& transfer = std::get<session::I2cTransfer>(open.transfer.what);
    const auto succeeded = static_cast<size_t>(std::max(result, 0));
    size_t bytesMissing = 0;
    for (size_t i = 0; i < open.messages.size(); ++i) {
        const size_t asked = open.messages[i].asked;
        if (open.messages[i].number >= succeeded) {
            transfer.messages[i].data.missing = asked;
        } else if (asked > 0) {
            transfer.messages[i].data.bytes.resize(asked);
            bytesMissing += asked;
        }
    }
    open.transfer.duration = time - open.transfer.time;
    transfer.error = result < 0 ? -result : 0;
    open.transfer.failed = result < 0 || succeeded < messages;
    if (result >= 0 && succeeded < messages)
        remark(open.transfer, "failed after " + outOf(succeeded, messages, "messages"));
    if (transfer.messages.size() < messages)
        remark(open.transfer, outOf(messages - transfer.messages.size(), messages, "messages not recorded"));
    if (bytesMissing > 0)
        remark(open.transfer, std::to_string(bytesMissing) + " bytes read were not recorded");
    ended.push_back(std::move(open.transfer));
}

// SMBus: a write or read event (both, if it does both), then perhaps I2C events, then a reply event, then the result.

void Assembler::add(const Event& event, const SmbusEvent& step)
{
    if (step.kind == SmbusEvent::Kind::write || step.kind == SmbusEvent::Kind::read) {
        smbus[step.adapter] = {event, step.bytes, {}, false};
        return;
    }
    const auto open = smbus.find(step.adapter);
    if (open == smbus.end())  // it began before the watch
        return;
    if (step.kind == SmbusEvent::Kind::reply) {
        open->second.received = step.bytes;
        return;
    }
    if (!open->second.isReplaced)
        end(open->second, event, step);
    smbus.erase(open);
}

/// The messages that the request is on the wire, without a check byte.
static session::I2cTransfer messagesOf(const SmbusEvent& result, const std::vector<uint8_t>& sent,
                                       const std::vector<uint8_t>& received)
{
    const bool isQuick = result.protocol == I2C_SMBUS_QUICK;
    const bool isByte = result.protocol == I2C_SMBUS_BYTE;
    const bool isCall = result.protocol == I2C_SMBUS_PROC_CALL || result.protocol == I2C_SMBUS_BLOCK_PROC_CALL;
    const bool hasNoCount =
        result.protocol == I2C_SMBUS_I2C_BLOCK_DATA || result.protocol == I2C_SMBUS_I2C_BLOCK_BROKEN;
    const bool writes = !result.isRead || isCall;
    const bool reads = result.isRead || isCall;
    const auto onWire = [&](const std::vector<uint8_t>& bytes) {
        return std::vector<uint8_t>(bytes.begin() + (hasNoCount && !bytes.empty() ? 1 : 0), bytes.end());
    };

    session::I2cMessage first;
    first.address = result.address;
    first.tenBit = (result.flags & I2C_M_TEN) != 0;
    session::I2cMessage second = first;
    first.read = result.isRead && (isQuick || isByte);
    second.read = true;

    std::vector<uint8_t> command;
    if (!isQuick && !first.read)
        command.push_back(result.command);
    if (writes) {
        const std::vector<uint8_t> data = onWire(sent);
        command.insert(command.end(), data.begin(), data.end());
    }
    first.data = session::known(first.read ? received : command);
    second.data = session::known(onWire(received));

    session::I2cTransfer transfer;
    transfer.messages = {first};
    if (reads && !first.read)
        transfer.messages.push_back(second);
    transfer.error = std::max(-result.result, 0);
    return transfer;
}

void Assembler::end(const Smbus& open, const Event& event, const SmbusEvent& result)
{
    Transfer transfer = transferAt({Place::Bus::i2c, result.adapter, 0}, open.request);
    transfer.duration = event.time - open.request.time;
    transfer.what = messagesOf(result, open.sent, open.received);
    transfer.failed = result.result < 0;
    ended.push_back(std::move(transfer));
}

// SPI: submitted, perhaps queued, started; a start and a stop event for each transfer; done.

void Assembler::add(const Event& event, const SpiEvent& step)
{
    const auto open = spi.find(step.bus);
    switch (step.kind) {
    case SpiEvent::Kind::setup:
        if (step.status == 0) {
            Chip& chip = chips[placeOf(step)];
            chip.mode = step.mode & ~uint32_t{SPI_CS_HIGH};  // the kernel sets it itself where the line is a GPIO
            chip.speedHz = step.speedHz;
        }
        break;
    case SpiEvent::Kind::chipSelect:
        changeChipSelect(step);
        break;
    case SpiEvent::Kind::submit:
        submitters[{step.bus, step.message}] = event.thread;
        break;
    case SpiEvent::Kind::start:
        start(event, step);
        break;
    case SpiEvent::Kind::transferStart:
        if (open != spi.end())
            addTransfer(open->second, step);
        break;
    case SpiEvent::Kind::transferStop:
        if (open != spi.end())
            endTransfer(open->second, step);
        break;
    case SpiEvent::Kind::done:
        if (open == spi.end() || open->second.message != step.message) {
            Spi unknown{transferAt(placeOf(step), event), step.message, false};
            unknown.transfer.what = session::SpiTransfer{};
            end(std::move(unknown), event, step);
        } else {
            end(std::move(open->second), event, step);
            spi.erase(open);
        }
        submitters.erase({step.bus, step.message});
        break;
    }
}

void Assembler::start(const Event& event, const SpiEvent& step)
{
    if (const auto before = spi.find(step.bus); before != spi.end()) {
        endIncomplete(std::move(before->second.transfer));
        spi.erase(before);
    }
    Spi open{transferAt(placeOf(step), event), step.message, true};
    if (const auto submitter = submitters.find({step.bus, step.message}); submitter != submitters.end())
        open.transfer.thread = submitter->second;
    const Chip& chip = chips[placeOf(step)];
    session::SpiTransfer transfer;
    transfer.mode = chip.mode;
    transfer.speedHz = chip.speedHz;
    open.transfer.what = transfer;
    spi.emplace(step.bus, std::move(open));
}

void Assembler::addTransfer(Spi& open, const SpiEvent& step)
{
    const size_t length = std::min(step.length, mostUnknown);
    session::SpiSegment segment;
    segment.out = dataOf(step.sent, length);
    if (step.sent.empty())
        segment.out.bytes.assign(length, uint8_t{0});  // a transfer that only receives sends zeros
    segment.in.bytes.resize(length);
    std::get<session::SpiTransfer>(open.transfer.what).segments.push_back(segment);
    open.transfer.lengths.push_back(step.length);
}

void Assembler::endTransfer(Spi& open, const SpiEvent& step)
{
    auto& segments = std::get<session::SpiTransfer>(open.transfer.what).segments;
    if (!segments.empty() && !step.received.empty())
        segments.back().in = dataOf(step.received, segments.back().out.bytes.size());
}

/// The line that is released and asserted again between two transfers of a message.
void Assembler::changeChipSelect(const SpiEvent& step)
{
    chips[placeOf(step)].isSelected = step.isActive;
    const auto open = spi.find(step.bus);
    if (open == spi.end() || !step.isActive)
        return;
    auto& segments = std::get<session::SpiTransfer>(open->second.transfer.what).segments;
    if (!segments.empty())
        segments.back().chipSelectChange = true;
}

/// Whether the kernel recorded fewer bytes of a direction than it has recorded of a longer one.
static bool isCut(const session::Data& data)
{
    return !data.bytes.empty() && data.bytes.front().has_value() && !isWhole(data);
}

void Assembler::end(Spi open, const Event& event, const SpiEvent& done)
{
    auto& transfer = std::get<session::SpiTransfer>(open.transfer.what);
    open.transfer.duration = event.time - open.transfer.time;
    open.transfer.failed = done.transferred < done.length;
    size_t length = 0;
    for (size_t i = 0; i < transfer.segments.size(); ++i) {
        const size_t all = open.transfer.lengths[i];
        length += all;
        for (const session::Data* data : {&transfer.segments[i].out, &transfer.segments[i].in}) {
            if (isCut(*data)) {
                remark(open.transfer, outOf(recorded(*data).size(), all, "bytes recorded"));
                break;
            }
        }
    }
    if (chips[placeOf(done)].isSelected && !transfer.segments.empty())
        transfer.segments.back().chipSelectChange = true;  // selected until the next message

    if (!open.isStarted)
        remark(open.transfer, beginningMissing);
    else if (!open.transfer.failed && length < done.length)
        remark(open.transfer, outOf(done.length - length, done.length, "bytes not recorded"));
    if (open.transfer.failed)
        remark(open.transfer, "failed after " + outOf(done.transferred, done.length, "bytes"));
    ended.push_back(std::move(open.transfer));
}

}  // namespace watch
