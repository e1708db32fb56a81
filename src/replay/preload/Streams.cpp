// Streams of <stdio.h> on devices. The C library's own would read and write without a call that can be seen.
#include "Preload.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/types.h>
#include <termios.h>
#include <unistd.h>

using namespace replay;
using namespace replay::preload;

namespace
{

struct Stream {
    std::atomic<FILE*> file{nullptr};
    int descriptor = -1;
    std::atomic<bool> isUsed{false};
};
Stream streams[32];

ssize_t readStream(void* stream, char* bytes, size_t size)
{
    return read(static_cast<Stream*>(stream)->descriptor, bytes, size);
}

ssize_t writeStream(void* stream, const char* bytes, size_t size)
{
    const ssize_t written = write(static_cast<Stream*>(stream)->descriptor, bytes, size);
    return written < 0 ? 0 : written;  // the C library's word for an error
}

int closeStream(void* opened)
{
    auto* stream = static_cast<Stream*>(opened);
    const int descriptor = stream->descriptor;
    stream->file = nullptr;
    stream->isUsed = false;
    return close(descriptor);
}

int flagsOf(const char* mode)
{
    const bool both = strchr(mode, '+') != nullptr;
    const int access = both ? O_RDWR : mode[0] == 'r' ? O_RDONLY : O_WRONLY;
    const int create = mode[0] == 'w' ? O_CREAT | O_TRUNC : mode[0] == 'a' ? O_CREAT | O_APPEND : 0;
    return access | create | (strchr(mode, 'e') != nullptr ? O_CLOEXEC : 0);
}

FILE* streamOf(int descriptor, const char* mode)
{
    for (Stream& stream : streams) {
        if (stream.isUsed.exchange(true))
            continue;
        stream.descriptor = descriptor;
        FILE* file = fopencookie(&stream, mode, {readStream, writeStream, nullptr, closeStream});
        if (file != nullptr && isatty(descriptor) != 0)
            setvbuf(file, nullptr, _IOLBF, BUFSIZ);
        stream.file = file;
        stream.isUsed = file != nullptr;
        return file;
    }
    errno = EMFILE;
    return nullptr;
}

template <class Next>
FILE* openStream(const char* path, const char* mode, const Next& nextOpen)
{
    if (path == nullptr || mode == nullptr || !isConnected() || !mayBeDevice(path))
        return nextOpen();
    constexpr mode_t access = 0666;
    const int descriptor = open(path, flagsOf(mode), access);
    if (descriptor < 0)
        return nullptr;
    FILE* file = deviceOf(descriptor).handle != 0 ? streamOf(descriptor, mode) : fdopen(descriptor, mode);
    if (file == nullptr) {
        const int error = errno;
        close(descriptor);
        errno = error;
    }
    return file;
}

template <class Next>
int descriptorOf(FILE* file, const Next& nextFileno)
{
    for (const Stream& stream : streams) {
        if (file != nullptr && stream.file == file)
            return stream.descriptor;
    }
    return nextFileno();
}

}  // namespace

extern "C" {

FILE* fopen(const char* path, const char* mode)
{
    return openStream(path, mode, [=] { return NEXT(fopen)(path, mode); });
}

FILE* fopen64(const char* path, const char* mode)
{
    return openStream(path, mode, [=] { return NEXT(fopen64)(path, mode); });
}

int fileno(FILE* file) noexcept
{
    return descriptorOf(file, [=] { return NEXT(fileno)(file); });
}

int fileno_unlocked(FILE* file) noexcept
{
    return descriptorOf(file, [=] { return NEXT(fileno_unlocked)(file); });
}

}  // extern "C"
