// Transfers and settings.
#include "Preload.h"

#include <errno.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <linux/spi/spidev.h>
#include <stdarg.h>
#include <sys/ioctl.h>
#include <sys/uio.h>
#include <termios.h>
#include <unistd.h>

using namespace replay;
using namespace replay::preload;

namespace
{

constexpr uint32_t mostSpiBytes = 16 << 20;

Request requestFor(const Device& device, RequestKind kind)
{
    Request request = {};
    request.kind = kind;
    request.handle = device.handle;
    return request;
}

/// When recording: adds how the call ended, and sends it.
template <class Result>
Result reported(Request request, const Buffer& payload, Result result)
{
    request.result = result;
    request.error = result < 0 ? errno : 0;
    report(request, payload);
    return result;
}

/// In replay: the call's result.
struct Answer {
    Reply reply = {};
    Buffer data;
};

long answered(const Request& request, const Buffer& payload, Answer& answer)
{
    if (!ask(request, payload, answer.reply, answer.data))
        answer.reply.error = EIO;
    if (answer.reply.error != 0) {
        errno = answer.reply.error;
        return -1;
    }
    return static_cast<long>(answer.reply.result);
}

long answered(const Request& request, const Buffer& payload)
{
    Answer answer;
    return answered(request, payload, answer);
}

/// Takes the answer's bytes in turn.
class Received
{
public:
    explicit Received(const Answer& from) : answer(from) {}

    void to(void* memory, size_t size)
    {
        const size_t there = answer.data.size() - at;
        const size_t count = size < there ? size : there;
        memcpy(memory, answer.data.data() + at, count);
        at += count;
    }

private:
    const Answer& answer;
    size_t at = 0;
};

/// A null pointer, for which the kernel has EFAULT.
bool isMissing(const void* memory, size_t size)
{
    return memory == nullptr && size > 0;
}

int fault()
{
    errno = EFAULT;
    return -1;
}

// read and write

template <class Next>
ssize_t readDevice(int descriptor, void* buffer, size_t size, const Next& nextRead)
{
    const Device device = deviceOf(descriptor);
    if (device.handle == 0 || (device.bus == BusKind::serial && mode() == Mode::replay))
        return nextRead();
    if (isMissing(buffer, size))
        return fault();
    Request request = requestFor(device, RequestKind::read);
    request.value = size > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(size);
    if (mode() == Mode::replay) {
        Answer answer;
        const long result = answered(request, Buffer{}, answer);
        if (result > 0)
            Received{answer}.to(buffer, static_cast<size_t>(result) < size ? static_cast<size_t>(result) : size);
        return result;
    }
    const ssize_t result = nextRead();
    Buffer received;
    received.append(buffer, result > 0 ? static_cast<size_t>(result) : 0);
    return reported(request, received, result);
}

template <class Next>
ssize_t writeDevice(int descriptor, const void* buffer, size_t size, const Next& nextWrite)
{
    const Device device = deviceOf(descriptor);
    if (device.handle == 0)
        return nextWrite();
    if (device.bus == BusKind::serial && mode() == Mode::replay) {
        const ssize_t result = nextWrite();
        if (result > 0) {
            Request request = requestFor(device, RequestKind::sent);
            request.value = static_cast<uint32_t>(result);
            report(request, Buffer{});
        }
        return result;
    }
    if (isMissing(buffer, size))
        return fault();
    const Request request = requestFor(device, RequestKind::write);
    Buffer sent;
    sent.append(buffer, size);
    return mode() == Mode::replay ? answered(request, sent) : reported(request, sent, nextWrite());
}

/// As the kernel does it for these devices: a transfer for each part, up to a short one.
template <class Transfer>
ssize_t inParts(const struct iovec* parts, int count, const Transfer& transfer)
{
    ssize_t total = 0;
    for (int i = 0; i < count; ++i) {
        const ssize_t result = transfer(parts[i]);
        if (result < 0)
            return total > 0 ? total : result;
        total += result;
        if (static_cast<size_t>(result) != parts[i].iov_len)
            break;
    }
    return total;
}

// Settings

template <class Next>
int set(const Device& device, SettingKind kind, uint32_t value, const Next& nextIoctl)
{
    Request request = requestFor(device, RequestKind::set);
    request.setting = kind;
    request.value = value;
    return mode() == Mode::replay ? static_cast<int>(answered(request, Buffer{}))
                                  : reported(request, Buffer{}, nextIoctl());
}

template <class Value, class Next>
int get(const Device& device, SettingKind kind, Value* value, const Next& nextIoctl)
{
    Request request = requestFor(device, RequestKind::get);
    request.setting = kind;
    if (mode() == Mode::replay) {
        Answer answer;
        const long result = answered(request, Buffer{}, answer);
        if (result < 0)
            return -1;
        *value = static_cast<Value>(result);
        return 0;
    }
    const int result = nextIoctl();
    request.value = result >= 0 ? static_cast<uint32_t>(*value) : 0;
    return reported(request, Buffer{}, result);
}

// I2C

bool isRead(const struct i2c_msg& message)
{
    return (message.flags & I2C_M_RD) != 0;
}

/// How many bytes a message that was read has: where the chip says how many, the first byte does.
size_t receivedLength(const struct i2c_msg& message)
{
    return (message.flags & I2C_M_RECV_LEN) != 0 ? size_t{1} + message.buf[0] : message.len;
}

template <class Next>
int transferI2c(const Device& device, const struct i2c_rdwr_ioctl_data& messages, const Next& nextIoctl)
{
    for (uint32_t i = 0; messages.msgs != nullptr && i < messages.nmsgs; ++i) {
        if (isMissing(messages.msgs[i].buf, messages.msgs[i].len))
            return fault();
    }
    if (isMissing(messages.msgs, messages.nmsgs))
        return fault();
    Request request = requestFor(device, RequestKind::i2c);
    request.value = messages.nmsgs;
    Buffer payload;
    for (uint32_t i = 0; i < messages.nmsgs; ++i) {
        const struct i2c_msg& message = messages.msgs[i];
        payload.append(I2cPart{message.addr, message.flags, message.len});
    }
    for (uint32_t i = 0; i < messages.nmsgs; ++i) {
        if (!isRead(messages.msgs[i]))
            payload.append(messages.msgs[i].buf, messages.msgs[i].len);
    }

    if (mode() == Mode::replay) {
        Answer answer;
        const long result = answered(request, payload, answer);
        Received received{answer};
        for (uint32_t i = 0; static_cast<long>(i) < result && i < messages.nmsgs; ++i) {
            const struct i2c_msg& message = messages.msgs[i];
            if (!isRead(message))
                continue;
            if ((message.flags & I2C_M_RECV_LEN) == 0) {
                received.to(message.buf, message.len);
                continue;
            }
            received.to(message.buf, 1);
            if (message.buf[0] <= I2C_SMBUS_BLOCK_MAX)
                received.to(message.buf + 1, message.buf[0]);
        }
        return static_cast<int>(result);
    }

    const int result = nextIoctl();
    const int error = errno;
    for (uint32_t i = 0; static_cast<int>(i) < result && i < messages.nmsgs; ++i) {
        if (isRead(messages.msgs[i]))
            payload.append(messages.msgs[i].buf, receivedLength(messages.msgs[i]));
    }
    errno = error;
    return reported(request, payload, result);
}

template <class Next>
int transferSmbus(const Device& device, const struct i2c_smbus_ioctl_data& call, const Next& nextIoctl)
{
    SmbusCall record = {};
    record.isRead = call.read_write;
    record.command = call.command;
    record.size = call.size;
    constexpr size_t size = sizeof(union i2c_smbus_data);
    static_assert(size <= sizeof record.data);
    if (call.data != nullptr)
        memcpy(record.data, call.data, size);

    const Request request = requestFor(device, RequestKind::smbus);
    Buffer payload;
    payload.append(record);
    if (mode() == Mode::replay) {
        Answer answer;
        const int result = static_cast<int>(answered(request, payload, answer));
        if (result >= 0 && call.data != nullptr)
            Received{answer}.to(call.data, size);
        return result;
    }
    const int result = nextIoctl();
    if (call.data != nullptr)
        payload.append(call.data, size);  // with what was received
    return reported(request, payload, result);
}

template <class Next>
int controlI2c(const Device& device, unsigned long request, unsigned long argument, const Next& nextIoctl)
{
    const auto value = static_cast<uint32_t>(argument);
    const bool takesRecord = request == I2C_FUNCS || request == I2C_RDWR || request == I2C_SMBUS;
    if (takesRecord && argument == 0)
        return fault();
    switch (request) {
    case I2C_SLAVE:
        return set(device, SettingKind::address, value, nextIoctl);
    case I2C_SLAVE_FORCE:
        return set(device, SettingKind::forceAddress, value, nextIoctl);
    case I2C_TENBIT:
        return set(device, SettingKind::tenBit, value, nextIoctl);
    case I2C_PEC:
        return set(device, SettingKind::pec, value, nextIoctl);
    case I2C_TIMEOUT:
        return set(device, SettingKind::timeout, value, nextIoctl);
    case I2C_RETRIES:
        return set(device, SettingKind::retries, value, nextIoctl);
    case I2C_FUNCS:
        return get(device, SettingKind::functions, reinterpret_cast<unsigned long*>(argument), nextIoctl);
    case I2C_RDWR:
        return transferI2c(device, *reinterpret_cast<const struct i2c_rdwr_ioctl_data*>(argument), nextIoctl);
    case I2C_SMBUS:
        return transferSmbus(device, *reinterpret_cast<const struct i2c_smbus_ioctl_data*>(argument), nextIoctl);
    default:
        if (mode() == Mode::record)
            return nextIoctl();
        errno = ENOTTY;
        return -1;
    }
}

// SPI

template <class Pointer>
Pointer* pointer(uint64_t address)
{
    return reinterpret_cast<Pointer*>(static_cast<uintptr_t>(address));
}

template <class Next>
int transferSpi(const Device& device, const struct spi_ioc_transfer* transfers, size_t count, const Next& nextIoctl)
{
    Request request = requestFor(device, RequestKind::spi);
    request.value = static_cast<uint32_t>(count);
    Buffer payload;
    for (size_t i = 0; i < count; ++i) {
        const struct spi_ioc_transfer& transfer = transfers[i];
        if (transfer.len > mostSpiBytes) {  // the kernel refuses much less
            errno = EMSGSIZE;
            return -1;
        }
        SpiPart part = {};
        part.length = transfer.len;
        part.speedHz = transfer.speed_hz;
        part.bitsPerWord = transfer.bits_per_word;
        part.chipSelectChange = transfer.cs_change;
        part.outLines = transfer.tx_nbits;
        part.inLines = transfer.rx_nbits;
        part.hasOut = transfer.tx_buf != 0 ? 1 : 0;
        part.hasIn = transfer.rx_buf != 0 ? 1 : 0;
        payload.append(part);
    }
    for (size_t i = 0; i < count; ++i) {
        if (transfers[i].tx_buf != 0)
            payload.append(pointer<const void>(transfers[i].tx_buf), transfers[i].len);
    }

    if (mode() == Mode::replay) {
        Answer answer;
        const int result = static_cast<int>(answered(request, payload, answer));
        Received received{answer};
        for (size_t i = 0; result >= 0 && i < count; ++i) {
            if (transfers[i].rx_buf != 0)
                received.to(pointer<void>(transfers[i].rx_buf), transfers[i].len);
        }
        return result;
    }

    const int result = nextIoctl();
    for (size_t i = 0; result >= 0 && i < count; ++i) {
        if (transfers[i].rx_buf != 0)
            payload.append(pointer<const void>(transfers[i].rx_buf), transfers[i].len);
    }
    return reported(request, payload, result);
}

template <class Next>
int controlSpi(const Device& device, unsigned long request, void* argument, const Next& nextIoctl)
{
    if (argument == nullptr)
        return fault();
    auto* byte = static_cast<uint8_t*>(argument);
    auto* word = static_cast<uint32_t*>(argument);
    switch (request) {
    case SPI_IOC_WR_MODE:
        return set(device, SettingKind::mode, *byte, nextIoctl);
    case SPI_IOC_RD_MODE:
        return get(device, SettingKind::mode, byte, nextIoctl);
    case SPI_IOC_WR_MODE32:
        return set(device, SettingKind::mode, *word, nextIoctl);
    case SPI_IOC_RD_MODE32:
        return get(device, SettingKind::mode, word, nextIoctl);
    case SPI_IOC_WR_LSB_FIRST:
        return set(device, SettingKind::lsbFirst, *byte, nextIoctl);
    case SPI_IOC_RD_LSB_FIRST:
        return get(device, SettingKind::lsbFirst, byte, nextIoctl);
    case SPI_IOC_WR_BITS_PER_WORD:
        return set(device, SettingKind::bits, *byte, nextIoctl);
    case SPI_IOC_RD_BITS_PER_WORD:
        return get(device, SettingKind::bits, byte, nextIoctl);
    case SPI_IOC_WR_MAX_SPEED_HZ:
        return set(device, SettingKind::speed, *word, nextIoctl);
    case SPI_IOC_RD_MAX_SPEED_HZ:
        return get(device, SettingKind::speed, word, nextIoctl);
    default:
        break;
    }
    const size_t size = _IOC_SIZE(request);
    if (_IOC_TYPE(request) == SPI_IOC_MAGIC && _IOC_NR(request) == 0 && _IOC_DIR(request) == _IOC_WRITE &&
        size % sizeof(struct spi_ioc_transfer) == 0)
        return transferSpi(device, static_cast<const struct spi_ioc_transfer*>(argument),
                           size / sizeof(struct spi_ioc_transfer), nextIoctl);
    if (mode() == Mode::record)
        return nextIoctl();
    errno = ENOTTY;
    return -1;
}

// Serial ports

int lineSet(int descriptor, const Device& device, const TermiosFlags& flags, int result)
{
    const int error = errno;
    Request request = requestFor(device, RequestKind::line);
    Buffer payload;
    payload.append(askedLine(descriptor, flags));
    errno = error;
    if (mode() == Mode::record)
        return reported(request, payload, result);
    return result < 0 ? result : static_cast<int>(answered(request, payload));
}

void showLine(const Device& device, void* record)
{
    Answer answer;
    LineState line = {};
    if (answered(requestFor(device, RequestKind::getLine), Buffer{}, answer) < 0 || answer.data.size() < sizeof line)
        return;
    memcpy(&line, answer.data.data(), sizeof line);
    TermiosFlags flags = {};
    memcpy(&flags, record, sizeof flags);
    showFrame(flags, line);
    memcpy(record, &flags, sizeof flags);
}

/// Sets attributes in replay as they are asked for, but for what would change the bytes or drop some.
template <class Record, class Next>
int setTransparent(const Record* record, size_t size, const Next& nextSet)
{
    uint8_t copy[128];
    memcpy(copy, record, size);
    TermiosFlags flags = {};
    memcpy(&flags, copy, sizeof flags);
    makeTransparent(flags);
    memcpy(copy, &flags, sizeof flags);
    return nextSet(copy);
}

TermiosFlags flagsOf(const void* record)
{
    TermiosFlags flags = {};
    memcpy(&flags, record, sizeof flags);
    return flags;
}

template <class Next>
int controlSerial(int descriptor, const Device& device, unsigned long request, void* argument, const Next& nextIoctl)
{
    const bool replaying = mode() == Mode::replay;
    if (const size_t size = setSize(request); size > 0 && argument != nullptr) {
        const int result =
            replaying
                ? setTransparent(argument, size,
                                 [&](void* record) { return NEXT(ioctl)(descriptor, withoutFlush(request), record); })
                : nextIoctl();
        return lineSet(descriptor, device, flagsOf(argument), result);
    }
    if (replaying && isFlush(request))
        return 0;
    const int result = nextIoctl();
    if (replaying && result == 0 && getSize(request) > 0)
        showLine(device, argument);
    return result;
}

}  // namespace

namespace replay::preload
{

bool readSpi(int descriptor, uint32_t& mode, uint32_t& speedHz)
{
    return NEXT(ioctl)(descriptor, SPI_IOC_RD_MODE32, &mode) == 0 &&
           NEXT(ioctl)(descriptor, SPI_IOC_RD_MAX_SPEED_HZ, &speedHz) == 0;
}

}  // namespace replay::preload

extern "C" {

ssize_t __read_chk(int descriptor, void* buffer, size_t size, size_t capacity);

ssize_t read(int descriptor, void* buffer, size_t size)
{
    return readDevice(descriptor, buffer, size, [=] { return NEXT(read)(descriptor, buffer, size); });
}

ssize_t __read_chk(int descriptor, void* buffer, size_t size, size_t capacity)
{
    return readDevice(descriptor, buffer, size, [=] { return NEXT(__read_chk)(descriptor, buffer, size, capacity); });
}

ssize_t write(int descriptor, const void* buffer, size_t size)
{
    return writeDevice(descriptor, buffer, size, [=] { return NEXT(write)(descriptor, buffer, size); });
}

ssize_t readv(int descriptor, const struct iovec* parts, int count)
{
    if (deviceOf(descriptor).handle == 0)
        return NEXT(readv)(descriptor, parts, count);
    return inParts(parts, count,
                   [=](const struct iovec& part) { return read(descriptor, part.iov_base, part.iov_len); });
}

ssize_t writev(int descriptor, const struct iovec* parts, int count)
{
    if (deviceOf(descriptor).handle == 0)
        return NEXT(writev)(descriptor, parts, count);
    return inParts(parts, count,
                   [=](const struct iovec& part) { return write(descriptor, part.iov_base, part.iov_len); });
}

int ioctl(int descriptor, unsigned long request, ...) noexcept
{
    va_list arguments;
    va_start(arguments, request);
    void* argument = va_arg(arguments, void*);
    va_end(arguments);
    const auto nextIoctl = [=] { return NEXT(ioctl)(descriptor, request, argument); };
    const Device device = deviceOf(descriptor);
    if (device.handle == 0)
        return nextIoctl();
    switch (device.bus) {
    case BusKind::i2c:
        return controlI2c(device, request, reinterpret_cast<unsigned long>(argument), nextIoctl);
    case BusKind::spi:
        return controlSpi(device, request, argument, nextIoctl);
    default:
        return controlSerial(descriptor, device, request, argument, nextIoctl);
    }
}

int tcsetattr(int descriptor, int when, const struct termios* attributes) noexcept
{
    const Device device = deviceOf(descriptor);
    if (device.handle == 0 || device.bus != BusKind::serial)
        return NEXT(tcsetattr)(descriptor, when, attributes);
    const auto nextSet = [=](const void* record) {
        return NEXT(tcsetattr)(descriptor, when == TCSAFLUSH && mode() == Mode::replay ? TCSADRAIN : when,
                               static_cast<const struct termios*>(record));
    };
    static_assert(sizeof *attributes <= 128);
    const int result =
        mode() == Mode::replay ? setTransparent(attributes, sizeof *attributes, nextSet) : nextSet(attributes);
    return lineSet(descriptor, device, flagsOf(attributes), result);
}

int tcgetattr(int descriptor, struct termios* attributes) noexcept
{
    const int result = NEXT(tcgetattr)(descriptor, attributes);
    if (result != 0)
        return result;
    const Device device = deviceOf(descriptor);
    if (device.handle != 0 && device.bus == BusKind::serial && mode() == Mode::replay)
        showLine(device, attributes);
    return result;
}

int tcflush(int descriptor, int queue) noexcept
{
    const Device device = deviceOf(descriptor);
    if (device.handle != 0 && device.bus == BusKind::serial && mode() == Mode::replay)
        return 0;  // what the session has was read by the program
    return NEXT(tcflush)(descriptor, queue);
}

}  // extern "C"
