// Opening, closing, duplicating and looking for devices.
#include "Preload.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdarg.h>
#include <stdio.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <termios.h>
#include <unistd.h>

using namespace replay;
using namespace replay::preload;

namespace
{

constexpr unsigned int i2cMajor = 89;
constexpr unsigned int spiMajor = 153;
constexpr unsigned int consoleMajor = 4;  // up to 63 virtual consoles, then serial ports
constexpr unsigned int firstSerialPort = 64;
constexpr unsigned int specialTerminals = 5;  // /dev/tty, /dev/console, /dev/ptmx

bool startsWith(const char* text, const char* start)
{
    return strncmp(text, start, strlen(start)) == 0;
}

bool isDigit(char character)
{
    return character >= '0' && character <= '9';
}

/// What a node of this name is by convention.
bool isBusName(const char* path, BusKind& bus)
{
    if (startsWith(path, "/dev/i2c-") && isDigit(path[9])) {
        bus = BusKind::i2c;
        return true;
    }
    if (startsWith(path, "/dev/spidev") && isDigit(path[11])) {
        bus = BusKind::spi;
        return true;
    }
    if ((startsWith(path, "/dev/tty") && path[8] != '\0' && !isDigit(path[8])) || startsWith(path, "/dev/serial/")) {
        bus = BusKind::serial;
        return true;
    }
    return false;
}

const char* baseName(const char* path)
{
    const char* slash = strrchr(path, '/');
    return slash != nullptr ? slash + 1 : path;
}

/// Removes "//", "/./" and "/x/../"; links stay as they are.
void normalise(char* path)
{
    char* end = path;  // of what is kept
    for (const char* part = path; *part != '\0';) {
        while (*part == '/')
            ++part;
        const size_t size = strcspn(part, "/");
        if (size == 2 && part[0] == '.' && part[1] == '.') {
            while (end > path && *--end != '/') {
            }
        } else if (size > 0 && !(size == 1 && part[0] == '.')) {
            *end++ = '/';
            memmove(end, part, size);
            end += size;
        }
        part += size;
    }
    if (end == path)
        *end++ = '/';
    *end = '\0';
}

bool makeAbsolute(int directory, const char* path, char* absolute)
{
    absolute[0] = '\0';
    if (path[0] != '/' && directory == AT_FDCWD && getcwd(absolute, PATH_MAX) == nullptr)
        return false;
    if (path[0] != '/' && directory != AT_FDCWD) {
        char link[32];
        snprintf(link, sizeof link, "/proc/self/fd/%d", directory);
        const ssize_t size = readlink(link, absolute, PATH_MAX - 1);
        if (size < 0)
            return false;
        absolute[size] = '\0';
    }
    const size_t used = strlen(absolute);
    if (used + 1 + strlen(path) >= PATH_MAX)
        return false;
    absolute[used] = '/';
    memcpy(absolute + used + 1, path, strlen(path) + 1);
    normalise(absolute);
    return true;
}

/// The program's own terminal is not a port that it talks to.
bool isOwnTerminal(int descriptor)
{
    const pid_t session = tcgetsid(descriptor);
    return session >= 0 && session == getsid(0);
}

bool isDevice(int descriptor, OpenState& state)
{
    struct stat status = {};
    if (NEXT(fstat)(descriptor, &status) != 0 || !S_ISCHR(status.st_mode))
        return false;
    state.device = status.st_dev;
    state.inode = status.st_ino;
    const unsigned int kind = major(status.st_rdev);
    if (kind == i2cMajor) {
        state.bus = BusKind::i2c;
        return true;
    }
    if (kind == spiMajor) {
        state.bus = BusKind::spi;
        state.hasMode = readSpi(descriptor, state.mode, state.speedHz) ? 1 : 0;
        return true;
    }
    if (kind == specialTerminals || (kind == consoleMajor && minor(status.st_rdev) < firstSerialPort))
        return false;
    state.bus = BusKind::serial;
    state.hasLine = readLine(descriptor, state.line) && !isOwnTerminal(descriptor) ? 1 : 0;
    return state.hasLine != 0;
}

int recordOpen(int directory, const char* path, int flags, int descriptor)
{
    const int error = errno;
    if (descriptor >= 0)
        forget(descriptor);
    OpenState state = {};
    char absolute[PATH_MAX];
    const bool ours = descriptor >= 0 ? isDevice(descriptor, state) && makeAbsolute(directory, path, absolute)
                                      : mayBeDevice(path) && makeAbsolute(directory, path, absolute) &&
                                            isBusName(absolute, state.bus);
    if (ours) {
        Request request = {};
        request.kind = RequestKind::open;
        request.result = descriptor;
        request.error = descriptor < 0 ? error : 0;
        state.flags = flags;
        Buffer payload;
        payload.append(state);
        payload.append(absolute, strlen(absolute));
        Reply reply = {};
        Buffer none;
        if (ask(request, payload, reply, none) && descriptor >= 0)
            track(descriptor, {reply.handle, state.bus});
    }
    errno = error;
    return descriptor;
}

/// False where the open is for the kernel.
bool replayOpen(int directory, const char* path, int flags, int& descriptor)
{
    char absolute[PATH_MAX];
    bool exists = false;
    OpenState state = {};
    if (!mayBeDevice(path) || !makeAbsolute(directory, path, absolute) ||
        !(isInSession(absolute, exists, state.bus) || isBusName(absolute, state.bus)))
        return false;

    Request request = {};
    request.kind = RequestKind::open;
    state.flags = flags;
    Buffer payload;
    payload.append(state);
    payload.append(absolute, strlen(absolute));
    Reply reply = {};
    Buffer none;
    descriptor = -1;
    if (!ask(request, payload, reply, none, &descriptor)) {
        errno = EIO;
    } else if (reply.error != 0) {
        errno = reply.error;
    } else if (descriptor >= 0) {
        if ((flags & O_CLOEXEC) == 0)
            NEXT(fcntl)(descriptor, F_SETFD, 0);
        track(descriptor, {reply.handle, reply.bus});
    }
    return true;
}

template <class Open>
int openFile(int directory, const char* path, int flags, const Open& open)
{
    if (path == nullptr || !isConnected())
        return open();
    int descriptor = -1;
    if (mode() == Mode::replay) {
        if (replayOpen(directory, path, flags, descriptor))
            return descriptor;
        descriptor = open();
        forget(descriptor);
        return descriptor;
    }
    return recordOpen(directory, path, flags, open());
}

mode_t modeArgument(int flags, va_list arguments)
{
    return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE ? va_arg(arguments, mode_t) : 0;
}

/// In replay, whether the session has this device: then what a look at it tells.
bool isSessionDevice(int directory, const char* path, BusKind& bus)
{
    char absolute[PATH_MAX];
    bool exists = false;
    return path != nullptr && path[0] != '\0' && isConnected() && mode() == Mode::replay && mayBeDevice(path) &&
           makeAbsolute(directory, path, absolute) && isInSession(absolute, exists, bus) && exists;
}

/// The first number at the end of the name.
unsigned int numberIn(const char* path)
{
    const char* digits = path + strlen(path);
    while (digits > path && isDigit(digits[-1]))
        --digits;
    unsigned int number = 0;
    for (; isDigit(*digits); ++digits)
        number = number * 10 + static_cast<unsigned int>(*digits - '0');
    return number;
}

dev_t deviceNumber(BusKind bus, unsigned int number)
{
    switch (bus) {
    case BusKind::i2c:
        return makedev(i2cMajor, number);
    case BusKind::spi:
        return makedev(spiMajor, number);
    default:
        return makedev(consoleMajor, firstSerialPort + number);
    }
}

template <class Stat>
void describe(Stat& status, BusKind bus, unsigned int number)
{
    memset(&status, 0, sizeof status);
    status.st_mode = S_IFCHR | 0660;
    status.st_nlink = 1;
    status.st_ino = 1 + number;
    status.st_uid = geteuid();
    status.st_gid = getegid();
    status.st_rdev = deviceNumber(bus, number);
    status.st_blksize = 4096;
}

template <class Stat, class Next>
int statPath(int directory, const char* path, Stat* status, const Next& nextStat)
{
    BusKind bus = {};
    if (!isSessionDevice(directory, path, bus))
        return nextStat();
    describe(*status, bus, numberIn(path));
    return 0;
}

template <class Stat>
int statDescriptor(int descriptor, Stat* status, int result)
{
    if (result == 0 && S_ISREG(status->st_mode)) {  // in replay, a file in memory
        const Device device = deviceOf(descriptor);
        if (device.handle != 0) {
            status->st_mode = S_IFCHR | 0660;
            status->st_rdev = deviceNumber(device.bus, 0);
        }
    }
    return result;
}

int accessPath(int directory, const char* path, int result)
{
    BusKind bus = {};
    return isSessionDevice(directory, path, bus) ? 0 : result;
}

/// Whether the program closes what is not its own.
bool isSocket(int descriptor)
{
    return descriptor >= 0 && descriptor == socketDescriptor();
}

int duplicated(int from, int to)
{
    copyTrack(from, to);
    return to;
}

/// The result of fcntl.
int controlled(int descriptor, int command, int result)
{
    return command == F_DUPFD || command == F_DUPFD_CLOEXEC ? duplicated(descriptor, result) : result;
}

void forgetRange(unsigned int first, unsigned int last)
{
    for (unsigned int descriptor = first; descriptor <= last && descriptor < mostDescriptors; ++descriptor)
        forget(static_cast<int>(descriptor));
}

}  // namespace

bool replay::preload::mayBeDevice(const char* path)
{
    const char* name = baseName(path);
    return startsWith(name, "i2c-") || startsWith(name, "spidev") || startsWith(name, "tty") ||
           strstr(path, "serial/") != nullptr || isNameInSession(name);
}

extern "C" {

// The names that the compiler's and the C library's headers give to open.
int __open_2(const char* path, int flags);
int __open64_2(const char* path, int flags);
int __openat_2(int directory, const char* path, int flags);
int __openat64_2(int directory, const char* path, int flags);
int __xstat(int version, const char* path, struct stat* status);
int __xstat64(int version, const char* path, struct stat64* status);
int __lxstat(int version, const char* path, struct stat* status);
int __lxstat64(int version, const char* path, struct stat64* status);

int open(const char* path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t access = modeArgument(flags, arguments);
    va_end(arguments);
    return openFile(AT_FDCWD, path, flags, [=] { return NEXT(open)(path, flags, access); });
}

int open64(const char* path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t access = modeArgument(flags, arguments);
    va_end(arguments);
    return openFile(AT_FDCWD, path, flags, [=] { return NEXT(open64)(path, flags, access); });
}

int openat(int directory, const char* path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t access = modeArgument(flags, arguments);
    va_end(arguments);
    return openFile(directory, path, flags, [=] { return NEXT(openat)(directory, path, flags, access); });
}

int openat64(int directory, const char* path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t access = modeArgument(flags, arguments);
    va_end(arguments);
    return openFile(directory, path, flags, [=] { return NEXT(openat64)(directory, path, flags, access); });
}

int __open_2(const char* path, int flags)
{
    return openFile(AT_FDCWD, path, flags, [=] { return NEXT(__open_2)(path, flags); });
}

int __open64_2(const char* path, int flags)
{
    return openFile(AT_FDCWD, path, flags, [=] { return NEXT(__open64_2)(path, flags); });
}

int __openat_2(int directory, const char* path, int flags)
{
    return openFile(directory, path, flags, [=] { return NEXT(__openat_2)(directory, path, flags); });
}

int __openat64_2(int directory, const char* path, int flags)
{
    return openFile(directory, path, flags, [=] { return NEXT(__openat64_2)(directory, path, flags); });
}

int creat(const char* path, mode_t access)
{
    return openFile(AT_FDCWD, path, O_CREAT | O_WRONLY | O_TRUNC, [=] { return NEXT(creat)(path, access); });
}

int creat64(const char* path, mode_t access)
{
    return openFile(AT_FDCWD, path, O_CREAT | O_WRONLY | O_TRUNC, [=] { return NEXT(creat64)(path, access); });
}

int close(int descriptor)
{
    if (isSocket(descriptor))
        return 0;
    forget(descriptor);
    return NEXT(close)(descriptor);
}

int close_range(unsigned int first, unsigned int last, int flags) noexcept
{
    constexpr int onlyOnExec = 1 << 2;  // CLOSE_RANGE_CLOEXEC
    if ((flags & onlyOnExec) == 0)
        forgetRange(first, last);
    const auto socket = static_cast<unsigned int>(socketDescriptor());
    if (socketDescriptor() < 0 || first > socket || last < socket)
        return NEXT(close_range)(first, last, flags);
    const int below = first < socket ? NEXT(close_range)(first, socket - 1, flags) : 0;
    const int above = last > socket ? NEXT(close_range)(socket + 1, last, flags) : 0;
    return below != 0 ? below : above;
}

void closefrom(int first) noexcept
{
    if (close_range(first < 0 ? 0 : static_cast<unsigned int>(first), ~0U, 0) == 0)
        return;
    for (int descriptor = first; descriptor < mostDescriptors; ++descriptor)  // before Linux 5.9
        close(descriptor);
}

int dup(int descriptor) noexcept
{
    return duplicated(descriptor, NEXT(dup)(descriptor));
}

int dup2(int from, int to) noexcept
{
    if (isSocket(to))
        moveSocket();
    return duplicated(from, NEXT(dup2)(from, to));
}

int dup3(int from, int to, int flags) noexcept
{
    if (isSocket(to))
        moveSocket();
    return duplicated(from, NEXT(dup3)(from, to, flags));
}

int fcntl(int descriptor, int command, ...)
{
    va_list arguments;
    va_start(arguments, command);
    void* argument = va_arg(arguments, void*);
    va_end(arguments);
    return controlled(descriptor, command, NEXT(fcntl)(descriptor, command, argument));
}

int fcntl64(int descriptor, int command, ...)
{
    va_list arguments;
    va_start(arguments, command);
    void* argument = va_arg(arguments, void*);
    va_end(arguments);
    return controlled(descriptor, command, NEXT(fcntl64)(descriptor, command, argument));
}

int stat(const char* path, struct stat* status) noexcept
{
    return statPath(AT_FDCWD, path, status, [=] { return NEXT(stat)(path, status); });
}

int stat64(const char* path, struct stat64* status) noexcept
{
    return statPath(AT_FDCWD, path, status, [=] { return NEXT(stat64)(path, status); });
}

int lstat(const char* path, struct stat* status) noexcept
{
    return statPath(AT_FDCWD, path, status, [=] { return NEXT(lstat)(path, status); });
}

int lstat64(const char* path, struct stat64* status) noexcept
{
    return statPath(AT_FDCWD, path, status, [=] { return NEXT(lstat64)(path, status); });
}

int fstatat(int directory, const char* path, struct stat* status, int flags) noexcept
{
    return statPath(directory, path, status, [=] { return NEXT(fstatat)(directory, path, status, flags); });
}

int fstatat64(int directory, const char* path, struct stat64* status, int flags) noexcept
{
    return statPath(directory, path, status, [=] { return NEXT(fstatat64)(directory, path, status, flags); });
}

int __xstat(int version, const char* path, struct stat* status)
{
    return statPath(AT_FDCWD, path, status, [=] { return NEXT(__xstat)(version, path, status); });
}

int __xstat64(int version, const char* path, struct stat64* status)
{
    return statPath(AT_FDCWD, path, status, [=] { return NEXT(__xstat64)(version, path, status); });
}

int __lxstat(int version, const char* path, struct stat* status)
{
    return statPath(AT_FDCWD, path, status, [=] { return NEXT(__lxstat)(version, path, status); });
}

int __lxstat64(int version, const char* path, struct stat64* status)
{
    return statPath(AT_FDCWD, path, status, [=] { return NEXT(__lxstat64)(version, path, status); });
}

int fstat(int descriptor, struct stat* status) noexcept
{
    return statDescriptor(descriptor, status, NEXT(fstat)(descriptor, status));
}

int fstat64(int descriptor, struct stat64* status) noexcept
{
    return statDescriptor(descriptor, status, NEXT(fstat64)(descriptor, status));
}

int statx(int directory, const char* __restrict path, int flags, unsigned int mask,
          struct statx* __restrict status) noexcept
{
    BusKind bus = {};
    if (!isSessionDevice(directory, path, bus))
        return NEXT(statx)(directory, path, flags, mask, status);
    struct stat found = {};
    describe(found, bus, numberIn(path));
    memset(status, 0, sizeof *status);
    status->stx_mask = STATX_BASIC_STATS;
    status->stx_mode = static_cast<uint16_t>(found.st_mode);
    status->stx_nlink = 1;
    status->stx_uid = found.st_uid;
    status->stx_gid = found.st_gid;
    status->stx_ino = found.st_ino;
    status->stx_blksize = 4096;
    status->stx_rdev_major = major(found.st_rdev);
    status->stx_rdev_minor = minor(found.st_rdev);
    return 0;
}

int access(const char* path, int kind) noexcept
{
    return accessPath(AT_FDCWD, path, NEXT(access)(path, kind));
}

int euidaccess(const char* path, int kind) noexcept
{
    return accessPath(AT_FDCWD, path, NEXT(euidaccess)(path, kind));
}

int eaccess(const char* path, int kind) noexcept
{
    return accessPath(AT_FDCWD, path, NEXT(eaccess)(path, kind));
}

int faccessat(int directory, const char* path, int kind, int flags) noexcept
{
    return accessPath(directory, path, NEXT(faccessat)(directory, path, kind, flags));
}

}  // extern "C"
