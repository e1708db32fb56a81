#include "Calls.h"

#include <linux/i2c.h>
#include <linux/spi/spi.h>
#include <string.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>

namespace replay
{

using session::Data;
using session::Event;
using session::I2cMessage;
using session::I2cTransfer;
using session::SerialTransfer;
using session::Setting;
using session::SpiSegment;
using session::SpiTransfer;

static_assert(static_cast<int>(SettingKind::address) == static_cast<int>(Setting::Name::address));
static_assert(static_cast<int>(SettingKind::functions) == static_cast<int>(Setting::Name::functions));
static_assert(static_cast<int>(SettingKind::mode) == static_cast<int>(Setting::Name::mode));
static_assert(static_cast<int>(SettingKind::line) == static_cast<int>(Setting::Name::line));

namespace
{

constexpr uint32_t usualBits = 8;

/// The data of a message, from its start to its end.
class Reader
{
public:
    explicit Reader(const std::vector<uint8_t>& bytes) : data(bytes) {}

    template <class Record>
    Record record()
    {
        Record record{};
        const std::vector<uint8_t> taken = bytes(sizeof record);
        memcpy(&record, taken.data(), sizeof record);
        return record;
    }

    std::vector<uint8_t> bytes(size_t count)
    {
        if (count > data.size() - at)
            throw std::runtime_error("a message of the preloaded library is too short");
        const auto first = data.begin() + static_cast<std::ptrdiff_t>(at);
        at += count;
        return {first, first + static_cast<std::ptrdiff_t>(count)};
    }

    std::vector<uint8_t> rest() { return bytes(data.size() - at); }

private:
    const std::vector<uint8_t>& data;
    size_t at = 0;
};

/// The bytes that there are, and what is missing of `asked`.
Data partOf(const std::vector<uint8_t>& bytes, size_t asked)
{
    Data data = session::known(bytes);
    data.missing = asked > bytes.size() ? asked - bytes.size() : 0;
    return data;
}

Data anyBytes(size_t count)
{
    return {std::vector<session::Byte>(count), 0};
}

// I2C

I2cMessage toWrite(const OpenFile& file, const std::vector<uint8_t>& bytes)
{
    return {file.address, file.tenBit, false, 0, session::known(bytes)};
}

I2cMessage toRead(const OpenFile& file, size_t count, uint16_t flags = 0)
{
    return {file.address, file.tenBit, true, flags, session::planned(count)};
}

I2cTransfer readOrWrite(const Message& message, const OpenFile& file, bool ended)
{
    const Request& request = message.request;
    const bool succeeded = ended && request.result >= 0;
    const auto count = static_cast<size_t>(succeeded ? request.result : 0);
    I2cTransfer transfer;
    if (request.kind == RequestKind::read) {
        I2cMessage read = toRead(file, request.value);
        if (succeeded)
            read.data = partOf(message.data, request.value);
        transfer.messages.push_back(read);
    } else {
        I2cMessage write = toWrite(file, message.data);
        if (succeeded && count < message.data.size()) {
            write.data.bytes.resize(count);
            write.data.missing = message.data.size() - count;
        }
        transfer.messages.push_back(write);
    }
    return transfer;
}

I2cTransfer combined(const Message& message, bool ended)
{
    constexpr unsigned int shownOtherwise = I2C_M_RD | I2C_M_TEN;
    constexpr unsigned int mostTenBits = 0x3ff;
    const Request& request = message.request;
    const size_t done = ended ? static_cast<size_t>(std::max<int64_t>(request.result, 0)) : 0;
    Reader reader{message.data};
    std::vector<I2cPart> parts;
    for (uint32_t i = 0; i < request.value; ++i)
        parts.push_back(reader.record<I2cPart>());

    I2cTransfer transfer;
    for (size_t i = 0; i < parts.size(); ++i) {
        const I2cPart& part = parts[i];
        I2cMessage each;
        each.tenBit = (part.flags & I2C_M_TEN) != 0;
        each.address = static_cast<uint16_t>(each.tenBit ? part.address & mostTenBits : part.address);
        each.read = (part.flags & I2C_M_RD) != 0;
        each.flags = static_cast<uint16_t>(part.flags & ~shownOtherwise);
        if (each.read)
            each.data = session::planned((each.flags & I2C_M_RECV_LEN) != 0 ? 1 : part.length);
        else
            each.data = session::known(reader.bytes(part.length));
        if (!each.read && ended && request.result >= 0 && i >= done)
            each.data = session::planned(part.length);
        transfer.messages.push_back(each);
    }
    for (size_t i = 0; i < std::min(done, parts.size()); ++i) {
        I2cMessage& each = transfer.messages[i];
        if (!each.read)
            continue;
        std::vector<uint8_t> bytes = reader.bytes(each.data.missing);
        if ((each.flags & I2C_M_RECV_LEN) != 0) {
            const std::vector<uint8_t> more = reader.bytes(bytes.front());
            bytes.insert(bytes.end(), more.begin(), more.end());
        }
        each.data = session::known(bytes);
    }
    return transfer;
}

/// What the kernel makes of the call where the adapter does plain I2C; nothing of one that it refuses.
I2cTransfer smbusMessages(const SmbusCall& call, const OpenFile& file)
{
    const bool read = call.isRead == I2C_SMBUS_READ;
    const std::vector<uint8_t> command = {call.command};
    const auto withData = [&](size_t first, size_t count) {
        std::vector<uint8_t> bytes = command;
        bytes.insert(bytes.end(), call.data + first, call.data + first + count);
        return toWrite(file, bytes);
    };
    const size_t length = std::min<size_t>(call.data[0], I2C_SMBUS_BLOCK_MAX);
    switch (call.size) {
    case I2C_SMBUS_QUICK:
        return {{read ? toRead(file, 0) : toWrite(file, {})}, 0};
    case I2C_SMBUS_BYTE:
        return {{read ? toRead(file, 1) : toWrite(file, command)}, 0};
    case I2C_SMBUS_BYTE_DATA:
        if (read)
            return {{toWrite(file, command), toRead(file, 1)}, 0};
        return {{withData(0, 1)}, 0};
    case I2C_SMBUS_WORD_DATA:
        if (read)
            return {{toWrite(file, command), toRead(file, 2)}, 0};
        return {{withData(0, 2)}, 0};
    case I2C_SMBUS_PROC_CALL:
        return {{withData(0, 2), toRead(file, 2)}, 0};
    case I2C_SMBUS_BLOCK_DATA:
        if (read)
            return {{toWrite(file, command), toRead(file, 1, I2C_M_RECV_LEN)}, 0};
        return {{withData(0, 1 + length)}, 0};
    case I2C_SMBUS_BLOCK_PROC_CALL:
        return {{withData(0, 1 + length), toRead(file, 1, I2C_M_RECV_LEN)}, 0};
    case I2C_SMBUS_I2C_BLOCK_BROKEN:
        if (read)
            return {{toWrite(file, command), toRead(file, I2C_SMBUS_BLOCK_MAX)}, 0};
        return {{withData(1, length)}, 0};
    case I2C_SMBUS_I2C_BLOCK_DATA:
        if (read)
            return {{toWrite(file, command), toRead(file, length)}, 0};
        return {{withData(1, length)}, 0};
    default:
        return {};
    }
}

bool isI2cBlock(uint32_t size)
{
    return size == I2C_SMBUS_I2C_BLOCK_DATA || size == I2C_SMBUS_I2C_BLOCK_BROKEN;
}

I2cTransfer smbus(const Message& message, const OpenFile& file, bool ended)
{
    Reader reader{message.data};
    const auto call = reader.record<SmbusCall>();
    I2cTransfer transfer = smbusMessages(call, file);
    if (!ended || message.request.result < 0 || transfer.messages.empty() || !transfer.messages.back().read)
        return transfer;
    I2cMessage& last = transfer.messages.back();
    const std::vector<uint8_t> data = reader.rest();
    if (data.empty())
        return transfer;
    const size_t first = isI2cBlock(call.size) ? 1 : 0;
    const size_t size = (last.flags & I2C_M_RECV_LEN) != 0 ? size_t{1} + data[0]
                        : isI2cBlock(call.size)            ? data[0]
                                                           : last.data.missing;
    Reader received{data};
    received.bytes(first);
    last.data = session::known(received.bytes(std::min(size, data.size() - first)));
    return transfer;
}

std::vector<uint8_t> smbusData(const SmbusCall& call, const I2cTransfer& answer)
{
    std::vector<uint8_t> data(std::begin(call.data), std::end(call.data));
    const I2cMessage& last = answer.messages.back();
    if (!last.read)
        return data;
    const std::vector<uint8_t> bytes = bytesOf(last.data);
    const size_t first = isI2cBlock(call.size) ? 1 : 0;
    if (first == 1)
        data[0] = static_cast<uint8_t>(bytes.size());
    for (size_t i = 0; i < bytes.size() && first + i < data.size(); ++i)
        data[first + i] = bytes[i];
    return data;
}

// SPI

uint32_t valueOr(const DeviceState& state, Setting::Name name, uint32_t otherwise)
{
    const auto found = state.values.find(name);
    return found == state.values.end() ? otherwise : found->second;
}

/// With the mode and the clock that hold; the clock of a segment only where it is not the transfer's.
void addSettings(SpiTransfer& transfer, const DeviceState& state)
{
    if (state.values.count(Setting::Name::mode) > 0)
        transfer.mode = state.values.at(Setting::Name::mode);
    const uint32_t deviceSpeed = valueOr(state, Setting::Name::speed, 0);
    for (SpiSegment& segment : transfer.segments) {
        if (segment.speedHz == 0)
            segment.speedHz = deviceSpeed;
        if (segment.bitsPerWord == 0)
            segment.bitsPerWord = valueOr(state, Setting::Name::bits, 0);
        if (segment.bitsPerWord == usualBits)
            segment.bitsPerWord = 0;
    }
    const uint32_t speed = transfer.segments.back().speedHz;
    if (speed != 0)
        transfer.speedHz = speed;
    for (SpiSegment& segment : transfer.segments)
        segment.speedHz = segment.speedHz == speed ? 0 : segment.speedHz;
}

SpiTransfer halfDuplex(const Message& message, bool ended)
{
    const Request& request = message.request;
    const bool succeeded = ended && request.result >= 0;
    SpiSegment segment;
    if (request.kind == RequestKind::read) {
        segment.out = session::known(std::vector<uint8_t>(request.value));
        segment.in = succeeded ? partOf(message.data, request.value) : session::planned(request.value);
    } else {
        segment.out = session::known(message.data);
        segment.in = succeeded ? anyBytes(message.data.size()) : session::planned(message.data.size());
    }
    return {{segment}, {}, {}, 0};
}

SpiTransfer fullDuplex(const Message& message, bool ended)
{
    const Request& request = message.request;
    const bool succeeded = ended && request.result >= 0;
    Reader reader{message.data};
    std::vector<SpiPart> parts;
    for (uint32_t i = 0; i < request.value; ++i)
        parts.push_back(reader.record<SpiPart>());

    SpiTransfer transfer;
    for (const SpiPart& part : parts) {
        SpiSegment segment;
        segment.out = session::known(part.hasOut != 0 ? reader.bytes(part.length) : std::vector<uint8_t>(part.length));
        segment.in = succeeded ? anyBytes(part.length) : session::planned(part.length);
        segment.speedHz = part.speedHz;
        segment.bitsPerWord = part.bitsPerWord;
        segment.outLines = part.outLines > 1 ? part.outLines : 0;
        segment.inLines = part.inLines > 1 ? part.inLines : 0;
        segment.chipSelectChange = part.chipSelectChange != 0;
        transfer.segments.push_back(segment);
    }
    for (size_t i = 0; succeeded && i < parts.size(); ++i) {
        if (parts[i].hasIn != 0)
            transfer.segments[i].in = session::known(reader.bytes(parts[i].length));
    }
    return transfer;
}

// Serial ports

std::optional<SerialTransfer> serial(const Message& message)
{
    const Request& request = message.request;
    SerialTransfer transfer;
    transfer.received = request.kind == RequestKind::read;
    transfer.error = request.error;
    std::vector<uint8_t> bytes = message.data;
    if (request.result < 0) {
        if (transfer.received)
            bytes.clear();
        transfer.data = session::planned(transfer.received ? request.value : bytes.size());
    } else {
        bytes.resize(static_cast<size_t>(request.result));
        transfer.data = session::known(bytes);
    }
    const bool isOnlyWaiting = request.error == EAGAIN || request.error == EINTR;
    if (isOnlyWaiting || length(transfer.data) == 0)
        return std::nullopt;
    return transfer;
}

}  // namespace

void DeviceState::learn(const Event& event)
{
    if (session::errorOf(event) != 0)
        return;
    if (const auto* open = std::get_if<session::Open>(&event.what)) {
        if (open->mode)
            values[Setting::Name::mode] = *open->mode;
        if (open->speedHz)
            values[Setting::Name::speed] = *open->speedHz;
        if (open->line)
            line = open->line;
    } else if (const auto* setting = std::get_if<Setting>(&event.what)) {
        if (setting->name == Setting::Name::line)
            line = setting->line;
        else
            values[setting->name] = setting->value;
        if (setting->name == Setting::Name::lsbFirst && values.count(Setting::Name::mode) > 0) {
            uint32_t& mode = values[Setting::Name::mode];
            mode = setting->value != 0 ? mode | SPI_LSB_FIRST : mode & ~static_cast<uint32_t>(SPI_LSB_FIRST);
        }
    }
}

uint32_t Calls::add(const OpenFile& file)
{
    files.push_back(file);
    return static_cast<uint32_t>(files.size());
}

uint32_t Calls::find(const DescriptorId& id) const
{
    for (size_t handle = files.size(); handle > 0; --handle) {
        if (files[handle - 1].deviceId == id.device && files[handle - 1].inode == id.inode)
            return static_cast<uint32_t>(handle);
    }
    return 0;
}

OpenFile& Calls::file(uint32_t handle)
{
    if (handle == 0 || handle > files.size())
        throw std::runtime_error("a message of the preloaded library about an unknown file");
    return files[handle - 1];
}

std::optional<Event> Calls::event(const Message& message, bool ended)
{
    const Request& request = message.request;
    const OpenFile& file = this->file(request.handle);
    const int error = ended ? request.error : 0;
    Event event;
    event.device = file.device;

    if (request.kind == RequestKind::set || request.kind == RequestKind::get) {
        Setting setting;
        setting.name = static_cast<Setting::Name>(request.setting);
        setting.isAnswer = request.kind == RequestKind::get;
        setting.value = setting.isAnswer && error != 0 ? 0 : request.value;
        setting.error = error;
        event.what = setting;
        return event;
    }
    if (request.kind == RequestKind::line) {
        Setting setting;
        setting.name = Setting::Name::line;
        setting.line = settingsOf(Reader{message.data}.record<LineState>());
        setting.error = error;
        event.what = setting;
        const std::optional<session::LineSettings>& known = states[file.device].line;
        const bool changes = !known || !(*known == setting.line) || error != 0;
        return changes ? std::optional<Event>{event} : std::nullopt;
    }

    switch (file.bus) {
    case BusKind::i2c: {
        I2cTransfer transfer = request.kind == RequestKind::i2c     ? combined(message, ended)
                               : request.kind == RequestKind::smbus ? smbus(message, file, ended)
                                                                    : readOrWrite(message, file, ended);
        transfer.error = error;
        event.what = transfer;
        return transfer.messages.empty() ? std::nullopt : std::optional<Event>{event};
    }
    case BusKind::spi: {
        SpiTransfer transfer =
            request.kind == RequestKind::spi ? fullDuplex(message, ended) : halfDuplex(message, ended);
        if (transfer.segments.empty())
            return std::nullopt;
        addSettings(transfer, states[file.device]);
        transfer.error = error;
        event.what = transfer;
        return event;
    }
    default:
        const std::optional<SerialTransfer> transfer = serial(message);
        if (!transfer)
            return std::nullopt;
        event.what = *transfer;
        return event;
    }
}

void Calls::learn(const Message& message, const Event& event)
{
    states[event.device].learn(event);
    const auto* setting = std::get_if<Setting>(&event.what);
    if (setting == nullptr || setting->error != 0)
        return;
    OpenFile& opened = file(message.request.handle);
    if (setting->name == Setting::Name::address || setting->name == Setting::Name::forceAddress)
        opened.address = static_cast<uint16_t>(setting->value);
    if (setting->name == Setting::Name::tenBit)
        opened.tenBit = setting->value != 0;
}

Event openEvent(const Message& message, OpenFile& file)
{
    Reader reader{message.data};
    const auto state = reader.record<OpenState>();
    const std::vector<uint8_t> path = reader.rest();
    file.device.assign(path.begin(), path.end());
    file.bus = state.bus;
    file.deviceId = state.device;
    file.inode = state.inode;

    session::Open open;
    open.bus = static_cast<session::Bus>(state.bus);
    if (state.hasMode != 0) {
        open.mode = state.mode;
        open.speedHz = state.speedHz;
    }
    if (state.hasLine != 0)
        open.line = settingsOf(state.line);
    open.error = message.request.error;
    Event event;
    event.device = file.device;
    event.what = open;
    return event;
}

Reply answerTo(const Message& message, const Event& event, std::vector<uint8_t>& data)
{
    Reply reply = {};
    reply.error = session::errorOf(event);
    if (reply.error != 0)
        return reply;

    const RequestKind kind = message.request.kind;
    if (const auto* setting = std::get_if<Setting>(&event.what)) {
        reply.result = setting->isAnswer ? setting->value : 0;
    } else if (const auto* i2c = std::get_if<I2cTransfer>(&event.what)) {
        if (kind == RequestKind::smbus) {
            data = smbusData(Reader{message.data}.record<SmbusCall>(), *i2c);
            return reply;
        }
        bool isComplete = true;
        for (const I2cMessage& each : i2c->messages) {
            isComplete = isComplete && each.data.missing == 0;
            reply.result += isComplete ? 1 : 0;
            const std::vector<uint8_t> bytes = each.read ? bytesOf(each.data) : std::vector<uint8_t>{};
            data.insert(data.end(), bytes.begin(), bytes.end());
        }
        if (kind != RequestKind::i2c)
            reply.result = static_cast<int64_t>(i2c->messages.front().data.bytes.size());
    } else if (const auto* spi = std::get_if<SpiTransfer>(&event.what)) {
        size_t part = 0;
        for (const SpiSegment& segment : spi->segments) {
            reply.result += static_cast<int64_t>(segment.in.bytes.size());
            bool isWanted = kind == RequestKind::read;
            if (kind == RequestKind::spi) {
                SpiPart record = {};
                memcpy(&record, message.data.data() + part++ * sizeof record, sizeof record);
                isWanted = record.hasIn != 0;
            }
            const std::vector<uint8_t> bytes = isWanted ? bytesOf(segment.in) : std::vector<uint8_t>{};
            data.insert(data.end(), bytes.begin(), bytes.end());
        }
    }
    return reply;
}

session::LineSettings settingsOf(const LineState& line)
{
    return {line.baudRate, line.dataBits,    static_cast<char>(line.parity),
            line.stopBits, line.rtsCts != 0, line.xonXoff != 0};
}

LineState stateOf(const session::LineSettings& line)
{
    LineState state = {};
    state.baudRate = line.baudRate;
    state.dataBits = line.dataBits;
    state.parity = static_cast<uint8_t>(line.parity);
    state.stopBits = line.stopBits;
    state.rtsCts = line.rtsCts ? 1 : 0;
    state.xonXoff = line.xonXoff ? 1 : 0;
    return state;
}

}  // namespace replay
