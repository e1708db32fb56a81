#include "FakeKernel.h"

#include "base/Bytes.h"
#include "cli/CommandLine.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <linux/spi/spidev.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <sstream>

namespace
{

FakeKernel* kernel = nullptr;
std::map<int, std::shared_ptr<FakeDevice>> openDevices;

template <typename Function>
Function* next(const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

FakeDevice* deviceOf(int fd)
{
    const auto found = openDevices.find(fd);
    return found == openDevices.end() ? nullptr : found->second.get();
}

std::shared_ptr<FakeDevice> nodeAt(const char* path)
{
    if (kernel == nullptr)
        return nullptr;
    const auto found = kernel->devices.find(path);
    return found == kernel->devices.end() ? nullptr : found->second;
}

long finish(long result)
{
    if (result >= 0)
        return result;
    errno = static_cast<int>(-result);
    return -1;
}

std::string counted(size_t count)
{
    return " R [" + std::to_string(count) + "]";
}

}  // namespace

extern "C" {

__attribute__((visibility("default"))) int open(const char* path, int flags, ...)
{
    static auto* const real = next<int(const char*, int, ...)>("open");
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    const auto node = nodeAt(path);
    if (!node)
        return real(path, flags, mode);
    if (node->openError != 0)
        return static_cast<int>(finish(-node->openError));
    const int fd = real("/dev/null", O_RDWR | O_CLOEXEC);
    const auto file = node->opened();
    openDevices[fd] = file ? file : node;
    return fd;
}

__attribute__((visibility("default"))) int stat(const char* path, struct stat* status)
{
    static auto* const real = next<int(const char*, struct stat*)>("stat");
    const auto node = nodeAt(path);
    if (!node)
        return real(path, status);
    *status = {};
    status->st_mode = S_IFCHR | S_IRUSR | S_IWUSR;
    status->st_rdev = makedev(node->majorNumber(), 4);
    return 0;
}

__attribute__((visibility("default"))) int euidaccess(const char* path, int mode) noexcept
{
    static auto* const real = next<int(const char*, int)>("euidaccess");
    const auto node = nodeAt(path);
    return node ? static_cast<int>(finish(-node->accessError)) : real(path, mode);
}

__attribute__((visibility("default"))) int close(int fd)
{
    static auto* const real = next<int(int)>("close");
    openDevices.erase(fd);
    return real(fd);
}

__attribute__((visibility("default"))) ssize_t read(int fd, void* buffer, size_t count)
{
    static auto* const real = next<ssize_t(int, void*, size_t)>("read");
    FakeDevice* device = deviceOf(fd);
    return device == nullptr ? real(fd, buffer, count) : finish(device->read(static_cast<uint8_t*>(buffer), count));
}

__attribute__((visibility("default"))) ssize_t write(int fd, const void* data, size_t count)
{
    static auto* const real = next<ssize_t(int, const void*, size_t)>("write");
    FakeDevice* device = deviceOf(fd);
    const auto* bytes = static_cast<const uint8_t*>(data);
    if (kernel != nullptr && !kernel->portWrites.empty() && isatty(fd) == 1) {
        const int error = kernel->portWrites.back();
        kernel->portWrites.pop_back();
        if (error != 0)
            return finish(-error);
    }
    return device == nullptr ? real(fd, data, count) : finish(device->write(ByteArray(bytes, bytes + count)));
}

__attribute__((visibility("default"))) int ioctl(int fd, unsigned long request, ...)
{
    static auto* const real = next<int(int, unsigned long, ...)>("ioctl");
    va_list arguments;
    va_start(arguments, request);
    void* argument = va_arg(arguments, void*);
    va_end(arguments);
    FakeDevice* device = deviceOf(fd);
    if (kernel != nullptr && request == TIOCOUTQ && !kernel->outputQueue.empty()) {
        *static_cast<int*>(argument) = kernel->outputQueue.back();
        kernel->outputQueue.pop_back();
        return 0;
    }
    const auto answer =
        kernel != nullptr && device == nullptr && kernel->port ? kernel->port(request, argument) : std::nullopt;
    if (answer)
        return static_cast<int>(finish(*answer));
    return device == nullptr ? real(fd, request, argument) : static_cast<int>(finish(device->ioctl(request, argument)));
}
}

bool FakeRegisters::write(const ByteArray& bytes)
{
    const size_t addressed = std::min(width, bytes.size());
    if (addressed > 0)
        pointer = 0;
    for (size_t i = 0; i < bytes.size(); ++i) {
        if (i < width)
            pointer = (pointer << 8 | bytes[i]) % memory.size();
        else
            memory[std::exchange(pointer, (pointer + 1) % memory.size())] = bytes[i];
    }
    return true;
}

std::optional<ByteArray> FakeRegisters::read(size_t count)
{
    ByteArray bytes;
    for (size_t i = 0; i < count; ++i)
        bytes.push_back(memory[std::exchange(pointer, (pointer + 1) % memory.size())]);
    return bytes;
}

namespace
{

/// A descriptor of a bus, with the address that it is bound to.
class FakeI2cFile : public FakeDevice
{
public:
    explicit FakeI2cFile(FakeI2cBus& behind) : bus(behind) {}

    long write(const ByteArray& bytes) override
    {
        ByteArray cut(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(std::min(bytes.size(), limit)));
        return plain(0, cut.data(), cut.size());
    }

    long read(uint8_t* buffer, size_t count) override { return plain(I2C_M_RD, buffer, std::min(count, limit)); }

    long ioctl(unsigned long request, void* argument) override
    {
        if (request != I2C_SLAVE)
            return bus.ioctl(request, argument);
        address = static_cast<int>(reinterpret_cast<uintptr_t>(argument));
        if (address > 0x7f)
            return -EINVAL;
        return std::count(bus.inUse.begin(), bus.inUse.end(), address) > 0 ? -EBUSY : -bus.bindError;
    }

private:
    static constexpr size_t limit = 8192;

    long plain(uint16_t flags, uint8_t* buffer, size_t count)
    {
        struct i2c_msg message = {static_cast<uint16_t>(address), flags, static_cast<uint16_t>(count), buffer};
        const long result = bus.transfer(&message, 1);
        return result < 0 ? result : static_cast<long>(count);
    }

    FakeI2cBus& bus;
    int address = -1;
};

}  // namespace

std::shared_ptr<FakeDevice> FakeI2cBus::opened()
{
    return std::make_shared<FakeI2cFile>(*this);
}

long FakeI2cBus::ioctl(unsigned long request, void* argument)
{
    if (request == I2C_FUNCS) {
        *static_cast<unsigned long*>(argument) = functions;
        return 0;
    }
    if (request != I2C_RDWR)
        return -ENOTTY;
    const auto& call = *static_cast<const struct i2c_rdwr_ioctl_data*>(argument);
    return transfer(call.msgs, call.nmsgs);
}

long FakeI2cBus::transfer(struct i2c_msg* messages, size_t count)
{
    if ((functions & I2C_FUNC_I2C) == 0)
        return -EOPNOTSUPP;
    std::string line;
    long result = static_cast<long>(count);
    for (size_t i = 0; i < count && result >= 0; ++i) {
        const struct i2c_msg& message = messages[i];
        const auto found = chips.find(message.addr);
        FakeChip* chip = found == chips.end() ? nullptr : found->second.get();
        if (message.len > 8192)
            return -EINVAL;
        if (message.len == 0 && (functions & I2C_FUNC_SMBUS_QUICK) == 0)
            return -EOPNOTSUPP;
        line += (i == 0 ? "S " : " Sr ") + hexPair(message.addr);
        if ((message.flags & I2C_M_RD) != 0) {
            line += counted(message.len);
            const auto bytes = chip == nullptr ? std::nullopt : chip->read(message.len);
            if (bytes)
                std::copy(bytes->begin(), bytes->end(), message.buf);
            else
                result = -noAnswerError;
        } else {
            const ByteArray bytes(message.buf, message.buf + message.len);
            line += std::string{" W"} + (bytes.empty() ? "" : " ") + shortHex(bytes);
            if (chip == nullptr || !chip->write(bytes))
                result = -noAnswerError;
        }
    }
    traffic.push_back(line + " P");
    return result;
}

long FakeSpi::ioctl(unsigned long request, void* argument)
{
    switch (request) {
    case SPI_IOC_WR_MODE:
        if ((*static_cast<uint8_t*>(argument) & refusedModes) != 0)
            return -EINVAL;
        mode = *static_cast<uint8_t*>(argument);
        return 0;
    case SPI_IOC_RD_MODE:
        *static_cast<uint8_t*>(argument) = mode;
        return 0;
    case SPI_IOC_RD_BITS_PER_WORD:
        *static_cast<uint8_t*>(argument) = 8;
        return 0;
    case SPI_IOC_WR_MAX_SPEED_HZ:
        if (*static_cast<uint32_t*>(argument) == 0)
            return -EINVAL;
        speedHz = *static_cast<uint32_t*>(argument);
        return 0;
    case SPI_IOC_RD_MAX_SPEED_HZ:
        *static_cast<uint32_t*>(argument) = speedHz;
        return 0;
    default:
        break;
    }
    if (request != SPI_IOC_MESSAGE(1))
        return -ENOTTY;
    const auto& message = *static_cast<const struct spi_ioc_transfer*>(argument);
    const auto* tx = reinterpret_cast<const uint8_t*>(static_cast<uintptr_t>(message.tx_buf));
    auto* rx = reinterpret_cast<uint8_t*>(static_cast<uintptr_t>(message.rx_buf));
    const ByteArray out = tx == nullptr ? ByteArray(message.len) : ByteArray(tx, tx + message.len);
    sent.push_back(hexLine(out));
    usedSpeeds.push_back(message.speed_hz);
    if (error != 0 || message.len > limit)
        return error != 0 ? -error : -EMSGSIZE;
    const ByteArray in = exchange(out);
    if (rx != nullptr)
        std::copy(in.begin(), in.end(), rx);
    return message.len;
}

FakeKernel::FakeKernel()
{
    kernel = this;
}

FakeKernel::~FakeKernel()
{
    kernel = nullptr;
}

namespace
{

/// Redirects a standard descriptor to a file in memory while it lives.
class Redirected
{
public:
    Redirected(int descriptor, const std::string& content)
        : fd(descriptor), saved(fcntl(descriptor, F_DUPFD_CLOEXEC, 3)), file(memfd_create("stream", MFD_CLOEXEC))
    {
        EXPECT_EQ(static_cast<ssize_t>(content.size()), ::write(file, content.data(), content.size()));
        lseek(file, 0, SEEK_SET);
        dup2(file, fd);
    }
    ~Redirected()
    {
        dup2(saved, fd);
        ::close(saved);
        ::close(file);
    }
    Redirected(const Redirected&) = delete;
    Redirected& operator=(const Redirected&) = delete;

    [[nodiscard]] std::string content() const
    {
        std::string text(static_cast<size_t>(lseek(file, 0, SEEK_END)), '\0');
        EXPECT_EQ(static_cast<ssize_t>(text.size()), pread(file, text.data(), text.size(), 0));
        return text;
    }

private:
    int fd;
    int saved;
    int file;
};

}  // namespace

Outcome tool(const std::vector<std::string>& words, const std::string& input)
{
    const Redirected in{STDIN_FILENO, input};
    const Redirected out{STDOUT_FILENO, {}};
    const Redirected err{STDERR_FILENO, {}};
    const int status = runCommandLine(words);
    return {status, out.content(), err.content()};
}

Outcome tool(const std::string& line, const std::string& input)
{
    std::istringstream stream{line};
    std::vector<std::string> words;
    for (std::string word; stream >> word;)
        words.push_back(word);
    return tool(words, input);
}
