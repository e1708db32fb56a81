// A fake i2c-dev bus and a fake spidev device in the test's own process: in a program that links this, open, stat,
// euidaccess, close, read, write and ioctl use them for their paths, and the kernel for all others.
#pragma once

#include <serialComm/SyncSerialBase.h>

#include <stddef.h>
#include <stdint.h>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

struct i2c_msg;

/// A chip on the bus. The test defines what it does with the bytes.
class FakeChip
{
public:
    virtual ~FakeChip() = default;

    /// false: not acknowledged.
    virtual bool write(const ByteArray& bytes) = 0;
    /// Nothing: not acknowledged.
    virtual std::optional<ByteArray> read(size_t count) = 0;
};

/// Registers with a pointer of `width` bytes, which a write sets and each byte increments.
class FakeRegisters : public FakeChip
{
public:
    explicit FakeRegisters(size_t size, size_t pointerWidth = 1) : memory(size), width(pointerWidth) {}
    bool write(const ByteArray& bytes) override;
    std::optional<ByteArray> read(size_t count) override;

    ByteArray memory;

private:
    size_t width;
    size_t pointer = 0;
};

/// What a device node does. A negative result is -errno.
class FakeDevice
{
public:
    virtual ~FakeDevice() = default;

    /// The object behind a new descriptor; null: the node itself.
    virtual std::shared_ptr<FakeDevice> opened() { return nullptr; }
    [[nodiscard]] virtual unsigned int majorNumber() const { return 0; }
    int openError = 0;    ///< errno of open
    int accessError = 0;  ///< errno of euidaccess

    virtual long write(const ByteArray& /*bytes*/) { return -22; }
    virtual long read(uint8_t* /*buffer*/, size_t /*count*/) { return -22; }
    virtual long ioctl(unsigned long request, void* argument) = 0;
};

/// Answers as i2c-dev does: an I2C_RDWR with the number of messages, at most 8192 bytes per plain transfer, ENXIO (or
/// another errno) if no chip acknowledges, EOPNOTSUPP for what the adapter does not support. Records the traffic in the
/// tool's notation, with [N] for bytes that were read.
class FakeI2cBus : public FakeDevice
{
public:
    std::shared_ptr<FakeDevice> opened() override;
    [[nodiscard]] unsigned int majorNumber() const override { return 89; }
    long ioctl(unsigned long request, void* argument) override;

    /// Performs the messages between a start and the stop.
    long transfer(struct i2c_msg* messages, size_t count);

    std::map<int, std::shared_ptr<FakeChip>> chips;
    std::vector<int> inUse;            ///< addresses that a kernel driver uses: I2C_SLAVE fails with EBUSY
    int bindError = 0;                 ///< errno of I2C_SLAVE
    int noAnswerError = 6;             ///< ENXIO
    unsigned long functions = ~0UL;    ///< I2C_FUNC_...
    std::vector<std::string> traffic;  ///< one transaction per line, as far as it was acknowledged
};

/// Answers as spidev does: a message with its byte count, EMSGSIZE above 4096 bytes, EINVAL for a mode that the
/// controller does not support. `exchange` is the chip: bytes in, as many bytes out.
class FakeSpi : public FakeDevice
{
public:
    [[nodiscard]] unsigned int majorNumber() const override { return 153; }
    long ioctl(unsigned long request, void* argument) override;

    std::function<ByteArray(const ByteArray&)> exchange = [](const ByteArray& out) { return out; };
    uint8_t mode = 0;
    uint8_t refusedModes = 0x18;  ///< mode bits that are refused
    uint32_t speedHz = 20'000'000;
    size_t limit = 4096;
    int error = 0;                     ///< errno of every message
    std::vector<std::string> sent;     ///< MOSI of each message in hex
    std::vector<uint32_t> usedSpeeds;  ///< clock of each message
};

/// While it lives, opening these paths opens these devices.
class FakeKernel
{
public:
    FakeKernel();
    FakeKernel(const FakeKernel&) = delete;
    FakeKernel& operator=(const FakeKernel&) = delete;
    ~FakeKernel();

    std::map<std::string, std::shared_ptr<FakeDevice>> devices;
    std::vector<int> outputQueue;  ///< results of TIOCOUTQ on ports of the real kernel, last one first
    std::vector<int> portWrites;   ///< errno of writes to ports of the real kernel, last one first; 0: it writes

    /// Answers a request on a port of the real kernel; nothing: the real kernel answers.
    std::function<std::optional<long>(unsigned long request, void* argument)> port;
};

/// What a command line printed and how it ended, run in this process: tool({"i2c", "get", "4", "0x48", "0x00"}).
struct Outcome {
    int status = 0;
    std::string out;
    std::string err;
};
Outcome tool(const std::vector<std::string>& words, const std::string& input = {});

/// The same, with the words split at spaces.
Outcome tool(const std::string& line, const std::string& input = {});
