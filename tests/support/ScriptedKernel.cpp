#include "ScriptedKernel.h"

#include "LineSpeeds.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <linux/spi/spidev.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <termios.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <iomanip>
#include <sstream>

static thread_local ScriptedKernel* active = nullptr;
static thread_local bool willing = false;

ScriptedKernel::ScriptedKernel(Script answersToGive) : script(std::move(answersToGive)), outer(active)
{
    active = this;
}

ScriptedKernel::~ScriptedKernel()
{
    active = outer;
    EXPECT_EQ(script.size(), used) << "unused answers after:\n" << text;
}

RecordedKernel::RecordedKernel() : ScriptedKernel(Script{})
{
    passesOn = true;
}

ScriptedKernel* ScriptedKernel::ofThisThread()
{
    return active;
}

void ScriptedKernel::expectLinesFrom(std::string file, std::string function)
{
    expectedFile = std::move(file);
    expectedFunction = std::move(function);
}

void ScriptedKernel::callersBuffer(const ByteArray& buffer)
{
    caller = buffer.data();
}

void ScriptedKernel::add(const std::string& line)
{
    text += line + '\n';
}

void ScriptedKernel::returned(bool result)
{
    add(result ? "returned true" : "returned false");
}

void ScriptedKernel::returned(const ByteArray& result)
{
    add("returned [" + hex(result.data(), result.size()) + "]");
}

Answer ScriptedKernel::next(const std::string& call)
{
    if (used == script.size()) {
        ADD_FAILURE() << "unexpected call: " << call;
        return fails(ENOSYS);
    }
    return script[used++];
}

static std::string describe(const struct termios& attributes);

static std::string stored(const ByteArray& bytes)
{
    struct termios attributes;
    if (bytes.size() != sizeof attributes) {
        return hex(bytes.data(), bytes.size());
    }
    memcpy(&attributes, bytes.data(), sizeof attributes);
    return describe(attributes);
}

void ScriptedKernel::finish(const std::string& call, const Answer& answer)
{
    std::string line = call + " = " + std::to_string(answer.result);
    if (answer.errorNumber != 0) {
        const char* name = strerrorname_np(answer.errorNumber);
        line += " " + (name != nullptr ? std::string{name} : std::to_string(answer.errorNumber));
    }
    if (!answer.bytes.empty()) {
        line += " [" + stored(answer.bytes) + "]";
    }
    add(line);
    errno = answer.errorNumber != 0 ? answer.errorNumber : nonsense;
}

std::string ScriptedKernel::memory(const void* address, size_t size) const
{
    if (address == nullptr) {
        return "NULL";
    }
    return (address == caller ? "caller's [" : "[") + hex(address, size) + "]";
}

void ScriptedKernel::logged(const std::string& line, const std::string& file, const std::string& function)
{
    std::string shown = line;
    const std::string scope = " SerialComm/" + function + ":";
    if (const size_t at = shown.find(scope); at != std::string::npos) {
        shown.replace(at, scope.size(), ":");
    }
    const bool expected = expectedFile.empty() || (file == expectedFile && function == expectedFunction);
    add(expected ? shown : shown + " (from " + file + ", " + function + ")");
}

WillingKernel::WillingKernel()
{
    willing = true;
}

WillingKernel::~WillingKernel()
{
    willing = false;
}

std::string hex(const void* bytes, size_t size)
{
    if (bytes == AbsentBytes::address) {
        return std::to_string(size) + "*..";
    }
    const auto* first = static_cast<const uint8_t*>(bytes);
    std::ostringstream text;
    if (size > 16 && std::equal(first, first + size - 1, first + 1)) {
        text << size << "*";
        size = 1;
    }
    text << std::hex << std::setfill('0');
    for (size_t i = 0; i < size; ++i) {
        text << (i == 0 ? "" : " ") << std::setw(2) << int{first[i]};
    }
    return text.str();
}

template <class Number>
static std::string inHex(Number number)
{
    std::ostringstream text;
    text << std::hex << "0x" << +number;
    return text.str();
}

/// The end of a record's text. The fields in the text are set to 0 here; all other bytes, padding included, must be 0.
template <class Record>
static std::string rest(const Record& record)
{
    const Record zero{};
    return memcmp(&record, &zero, sizeof record) == 0 ? "}" : ", and more}";
}

static std::string describe(const struct spi_ioc_transfer& transfer, const ScriptedKernel& kernel)
{
    const auto pointer = [](uint64_t address) { return reinterpret_cast<const void*>(address); };
    struct spi_ioc_transfer left = transfer;
    left.tx_buf = left.rx_buf = left.len = left.speed_hz = left.bits_per_word = 0;
    return "{tx " + kernel.memory(pointer(transfer.tx_buf), transfer.len) + ", rx " +
           kernel.memory(pointer(transfer.rx_buf), transfer.len) + ", len " + std::to_string(transfer.len) + ", " +
           std::to_string(transfer.speed_hz) + " Hz, " + std::to_string(transfer.bits_per_word) + " bits" + rest(left);
}

static std::string describe(const struct i2c_msg& message, const ScriptedKernel& kernel)
{
    return "{addr " + inHex(message.addr) + ", flags " + inHex(message.flags) + ", len " + std::to_string(message.len) +
           ", " + kernel.memory(message.buf, message.len) + "}";
}

/// "B9600", as the C library's headers name it.
static std::string nameOf(speed_t speed)
{
    for (const LineSpeed& known : lineSpeeds) {
        if (known.constant == speed) {
            return "B" + std::to_string(known.baud);
        }
    }
    return speed == B0 ? "B0" : std::to_string(speed);
}

/// The text is the same with every C library: newer ones repeat the speed's code in c_cflag as the input speed.
static std::string describe(const struct termios& attributes)
{
    struct termios left;
    memcpy(&left, &attributes, sizeof left);
    left.c_cflag = left.c_ispeed = left.c_ospeed = left.c_cc[VTIME] = 0;

    constexpr int inputSpeedShift = 16;
    tcflag_t flags = attributes.c_cflag;
    if ((flags & CIBAUD) == (flags & CBAUD) << inputSpeedShift) {
        flags &= ~static_cast<tcflag_t>(CIBAUD);
    }
    return "{cflag " + inHex(flags) + ", VTIME " + std::to_string(attributes.c_cc[VTIME]) + ", speeds " +
           nameOf(attributes.c_ispeed) + " " + nameOf(attributes.c_ospeed) + rest(left);
}

static std::string describe(unsigned long request, void* argument, const ScriptedKernel& kernel)
{
    switch (request) {
    case I2C_SLAVE:
        return "I2C_SLAVE, " + inHex(reinterpret_cast<uintptr_t>(argument));
    case I2C_RDWR: {
        const auto& messages = *static_cast<struct i2c_rdwr_ioctl_data*>(argument);
        std::string text = "I2C_RDWR";
        for (uint32_t i = 0; i < messages.nmsgs; ++i) {
            text += ", " + describe(messages.msgs[i], kernel);
        }
        return text;
    }
    case SPI_IOC_WR_MODE:
        return "SPI_IOC_WR_MODE, " + kernel.memory(argument, 1);
    case SPI_IOC_RD_MODE:
        return "SPI_IOC_RD_MODE, " + kernel.memory(argument, 1);
    case SPI_IOC_WR_MAX_SPEED_HZ:
        return "SPI_IOC_WR_MAX_SPEED_HZ, " + std::to_string(*static_cast<uint32_t*>(argument));
    case SPI_IOC_RD_MAX_SPEED_HZ:
        return "SPI_IOC_RD_MAX_SPEED_HZ, " + std::to_string(*static_cast<uint32_t*>(argument));
    case SPI_IOC_MESSAGE(1):
        return "SPI_IOC_MESSAGE(1), " + describe(*static_cast<struct spi_ioc_transfer*>(argument), kernel);
    default:
        return inHex(request);
    }
}

/// The address at which the kernel stores the result of a request.
static void* destination(unsigned long request, void* argument)
{
    if (request == I2C_RDWR) {
        return static_cast<struct i2c_rdwr_ioctl_data*>(argument)->msgs[1].buf;
    }
    if (request == SPI_IOC_MESSAGE(1)) {
        return reinterpret_cast<void*>(static_cast<struct spi_ioc_transfer*>(argument)->rx_buf);
    }
    return argument;
}

static std::string describeFlags(int flags)
{
    std::string text = (flags & O_ACCMODE) == O_RDWR ? "O_RDWR" : inHex(flags & O_ACCMODE);
    text += (flags & O_NOCTTY) != 0 ? " | O_NOCTTY" : "";
    text += (flags & O_NONBLOCK) != 0 ? " | O_NONBLOCK" : "";
    const int left = flags & ~(O_ACCMODE | O_NOCTTY | O_NONBLOCK);
    return left == 0 ? text : text + " | " + inHex(left);
}

/// The number of bytes that the kernel stores if a request succeeds.
static size_t storedSize(unsigned long request, void* argument)
{
    switch (request) {
    case I2C_RDWR:
        return static_cast<struct i2c_rdwr_ioctl_data*>(argument)->msgs[1].len;
    case SPI_IOC_MESSAGE(1):
        return destination(request, argument) != nullptr ? static_cast<struct spi_ioc_transfer*>(argument)->len : 0;
    case SPI_IOC_RD_MODE:
        return sizeof(uint8_t);
    case SPI_IOC_RD_MAX_SPEED_HZ:
        return sizeof(uint32_t);
    default:
        return 0;
    }
}

static std::string onDescriptor(const char* name, int fd, const std::string& arguments = "")
{
    return std::string{name} + "(" + std::to_string(fd) + (arguments.empty() ? "" : ", ") + arguments + ")";
}

/// The C library's own function of this name.
template <class Function>
static Function* original(const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

constexpr size_t itsResult = SIZE_MAX;

/// Answers a system call: from the script, storing the script's bytes, or by the real kernel, recording the bytes that
/// it stores.
///
/// @param call Returns the text of the call.
/// @param size Bytes that the kernel stores on success; `itsResult` if the result is that number.
template <class Result, class Kernel, class Call>
static Result ask(const Kernel& kernel, const Call& call, void* storage = nullptr, size_t size = 0)
{
    if (active == nullptr) {
        return static_cast<Result>(kernel());
    }
    const std::string text = call();
    Answer answer;
    if (!active->passesOn) {
        answer = active->next(text);
        if (storage != nullptr) {
            std::copy(answer.bytes.begin(), answer.bytes.end(), static_cast<uint8_t*>(storage));
        }
    } else if ((answer.result = kernel()) < 0) {
        answer.errorNumber = errno;
    } else {
        const auto* bytes = static_cast<const uint8_t*>(storage);
        answer.bytes.assign(bytes, bytes + (size == itsResult ? static_cast<size_t>(answer.result) : size));
    }
    active->finish(text, answer);
    return static_cast<Result>(answer.result);
}

/// Opens a file. While calls are recorded, its descriptor is 7 or the next free one, as in scripts.
static long openFile(const char* path, int flags, int mode)
{
    const long fd = syscall(SYS_openat, AT_FDCWD, path, flags, mode);
    if (active == nullptr || fd < 0) {
        return fd;
    }
    const long moved = syscall(SYS_fcntl, fd, F_DUPFD, 7);
    syscall(SYS_close, fd);
    return moved;
}

#ifndef __clang__
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"  // the buffer of a read() is shown before it is filled
#endif

// The system interface. These definitions take precedence over the C library's, also for calls from shared libraries.

extern "C" int open(const char* path, int flags, ...)
{
    if (willing) {
        return 7;
    }
    va_list arguments;
    va_start(arguments, flags);
    const int mode = (flags & (O_CREAT | __O_TMPFILE)) != 0 ? va_arg(arguments, int) : 0;
    va_end(arguments);
    return ask<int>([=] { return openFile(path, flags, mode); },
                    [=] { return "open(\"" + std::string{path} + "\", " + describeFlags(flags) + ")"; });
}

extern "C" int close(int fd)
{
    if (willing) {
        return 0;
    }
    return ask<int>([=] { return syscall(SYS_close, fd); }, [=] { return onDescriptor("close", fd); });
}

extern "C" ssize_t read(int fd, void* buffer, size_t size)
{
    if (willing) {
        return static_cast<ssize_t>(size);
    }
    return ask<ssize_t>(
        [=] { return syscall(SYS_read, fd, buffer, size); },
        [=] { return onDescriptor("read", fd, active->memory(buffer, size) + ", " + std::to_string(size)); }, buffer,
        itsResult);
}

extern "C" ssize_t write(int fd, const void* buffer, size_t size)
{
    if (willing) {
        return static_cast<ssize_t>(size);
    }
    return ask<ssize_t>(
        [=] { return syscall(SYS_write, fd, buffer, size); },
        [=] { return onDescriptor("write", fd, active->memory(buffer, size) + ", " + std::to_string(size)); });
}

extern "C" int ioctl(int fd, unsigned long request, ...) noexcept
{
    if (willing) {
        return request == SPI_IOC_MESSAGE(1) ? 1 : 0;
    }
    va_list arguments;
    va_start(arguments, request);
    void* argument = va_arg(arguments, void*);
    va_end(arguments);
    return ask<int>([=] { return syscall(SYS_ioctl, fd, request, argument); },
                    [=] { return onDescriptor("ioctl", fd, describe(request, argument, *active)); },
                    destination(request, argument), storedSize(request, argument));
}

extern "C" int tcgetattr(int fd, struct termios* attributes) noexcept
{
    if (willing) {
        return 0;
    }
    return ask<int>([=] { return original<int(int, struct termios*)>("tcgetattr")(fd, attributes); },
                    [=] { return onDescriptor("tcgetattr", fd, describe(*attributes)); }, attributes,
                    sizeof *attributes);
}

extern "C" int tcsetattr(int fd, int action, const struct termios* attributes) noexcept
{
    if (willing) {
        return 0;
    }
    return ask<int>([=] { return original<int(int, int, const struct termios*)>("tcsetattr")(fd, action, attributes); },
                    [=] {
                        const std::string when = action == TCSANOW ? "TCSANOW" : std::to_string(action);
                        return onDescriptor("tcsetattr", fd, when + ", " + describe(*attributes));
                    });
}

// These two only fill the record: they are recorded and carried out.

extern "C" int cfsetispeed(struct termios* attributes, speed_t speed) noexcept
{
    if (active != nullptr) {
        active->add("cfsetispeed(" + describe(*attributes) + ", " + nameOf(speed) + ")");
    }
    return original<int(struct termios*, speed_t)>("cfsetispeed")(attributes, speed);
}

extern "C" int cfsetospeed(struct termios* attributes, speed_t speed) noexcept
{
    if (active != nullptr) {
        active->add("cfsetospeed(" + describe(*attributes) + ", " + nameOf(speed) + ")");
    }
    return original<int(struct termios*, speed_t)>("cfsetospeed")(attributes, speed);
}

extern "C" int tcflush(int fd, int queue) noexcept
{
    if (willing) {
        return 0;
    }
    return ask<int>([=] { return original<int(int, int)>("tcflush")(fd, queue); },
                    [=] {
                        const std::string which = queue == TCIOFLUSH ? "TCIOFLUSH" : std::to_string(queue);
                        return onDescriptor("tcflush", fd, which);
                    });
}

extern "C" char* ptsname(int fd) noexcept
{
    if (willing) {
        return nullptr;
    }
    if (active == nullptr) {
        return original<char*(int)>("ptsname")(fd);
    }
    static thread_local std::string name;
    const std::string call = onDescriptor("ptsname", fd);
    if (active->passesOn) {
        const char* slave = original<char*(int)>("ptsname")(fd);
        name = slave != nullptr ? slave : "";
    } else {
        name = active->next(call).text;
    }
    active->add(call + " = " + (name.empty() ? "NULL" : name));
    errno = nonsense;
    return name.empty() ? nullptr : name.data();
}

extern "C" int grantpt(int fd) noexcept
{
    return ask<int>([=] { return original<int(int)>("grantpt")(fd); }, [=] { return onDescriptor("grantpt", fd); });
}

extern "C" int unlockpt(int fd) noexcept
{
    return ask<int>([=] { return original<int(int)>("unlockpt")(fd); }, [=] { return onDescriptor("unlockpt", fd); });
}
