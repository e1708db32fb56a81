#include "base/Files.h"

#include "base/Failure.h"
#include "base/Output.h"

#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace
{

Failure fileFailure(const std::string& path)
{
    const int error = errno;
    return {CannotOpen, (path.empty() ? "\"\"" : path) + ": " + strerror(error)};
}

}  // namespace

ByteArray readFile(const std::string& path, size_t most)
{
    if (path == "-")
        return readWhole(STDIN_FILENO, "standard input", most);
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY);
    if (fd < 0)
        throw fileFailure(path);
    try {
        ByteArray content = readWhole(fd, path, most);
        close(fd);
        return content;
    } catch (...) {
        close(fd);
        throw;
    }
}

OutputFile::OutputFile(const std::string& name)
    : path(name), fd(path == "-" ? STDOUT_FILENO : open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOCTTY, 0666))
{
    if (fd < 0)
        throw fileFailure(path);
}

OutputFile::~OutputFile()
{
    if (fd != STDOUT_FILENO)
        close(fd);
}

void OutputFile::replace(const ByteArray& content)
{
    struct stat file {
    };
    const bool regular = fd != STDOUT_FILENO && fstat(fd, &file) == 0 && S_ISREG(file.st_mode);
    if (regular && ftruncate(fd, 0) != 0)
        throw fileFailure(path);
    append(content);
}

void OutputFile::append(const ByteArray& content)
{
    writeAll(fd, content.data(), content.size(), path == "-" ? "standard output" : path);
}
