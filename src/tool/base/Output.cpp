#include "base/Output.h"

#include "base/Bytes.h"
#include "base/Failure.h"
#include "base/Signals.h"

#include <poll.h>
#include <signal.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>

static void writeError(const std::string& text)
{
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, text.data(), text.size());
}

static void waitFor(int fd, short event)
{
    struct pollfd stream = {fd, event, 0};
    poll(&stream, 1, -1);
}

void writeAll(int fd, const void* data, size_t size, const std::string& name)
{
    const auto* next = static_cast<const char*>(data);
    while (size > 0) {
        const ssize_t written = write(fd, next, size);
        const int error = errno;
        if (written >= 0) {
            next += written;
            size -= static_cast<size_t>(written);
        } else if (error == EAGAIN || error == EINTR) {
            throwIfSignalled();  // not earlier, so that received bytes are still shown
            waitFor(fd, POLLOUT);
        } else if (error == EPIPE) {
            throw Interrupted{SIGPIPE};
        } else {
            throw Failure{TransferFailed, name + ": " + strerror(error)};
        }
    }
}

std::string timeOfDay(uint64_t sinceEpoch, size_t decimals)
{
    constexpr uint64_t second = 1'000'000'000;
    const auto seconds = static_cast<time_t>(sinceEpoch / second);
    struct tm local {
    };
    localtime_r(&seconds, &local);
    std::array<char, 48> text{};
    std::snprintf(text.data(), text.size(), "%02d:%02d:%02d.%09u", local.tm_hour, local.tm_min, local.tm_sec,
                  static_cast<unsigned int>(sinceEpoch % second));
    return std::string{text.data()}.substr(0, strlen("12:34:56.") + decimals);
}

std::string timeOfDay()
{
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return '[' + timeOfDay(static_cast<uint64_t>(std::chrono::nanoseconds{now}.count()), 3) + "] ";
}

void print(const std::string& text)
{
    writeAll(STDOUT_FILENO, text.data(), text.size(), "standard output");
}

void printLine(const std::string& line)
{
    print(line + '\n');
}

void printBytes(const ByteArray& bytes)
{
    writeAll(STDOUT_FILENO, bytes.data(), bytes.size(), "standard output");
}

void printError(const std::string& message)
{
    writeError("serialcomm: " + printable(message) + '\n');
}

void printHint(const std::string& hint)
{
    writeError("  try: " + printable(hint) + '\n');
}

ByteArray readFrom(int fd, const std::string& name)
{
    ByteArray bytes(65536);
    for (;;) {
        throwIfSignalled();
        const ssize_t count = read(fd, bytes.data(), bytes.size());
        const int error = errno;
        if (count >= 0) {
            bytes.resize(static_cast<size_t>(count));
            return bytes;
        }
        if (error == EAGAIN)
            waitFor(fd, POLLIN);
        else if (error != EINTR)
            throw Failure{WrongCommandLine, name + ": " + strerror(error)};
    }
}

ByteArray readInput()
{
    return readFrom(STDIN_FILENO, "standard input");
}

ByteArray readWhole(int fd, const std::string& name, size_t most)
{
    ByteArray bytes;
    for (;;) {
        const ByteArray piece = readFrom(fd, name);
        if (piece.empty())
            return bytes;
        bytes.insert(bytes.end(), piece.begin(), piece.end());
        if (bytes.size() > most)
            throw Failure{WrongCommandLine, name + ": more than " + std::to_string(most) + " bytes"};
    }
}

ByteArray readWholeInput(size_t most)
{
    return readWhole(STDIN_FILENO, "standard input", most);
}

int64_t Output::nowMs()
{
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

void Output::progress(const std::string& text)
{
    if (!progressShown && (text.empty() || options.verbosity > 0 || nowMs() - startedMs < 1000))
        return;
    if (isatty(STDERR_FILENO) == 1)
        writeError("\r\x1b[K" + text);
    progressShown = !text.empty();
}

void Output::startSeries(bool withTimes)
{
    series = true;
    times = withTimes;
}

/// One object, one line.
void Output::writeJson(Fields fields) const
{
    if (times) {
        const auto now = std::chrono::system_clock::now().time_since_epoch();
        const auto microseconds = std::chrono::duration_cast<std::chrono::microseconds>(now).count();
        fields.prepend("time", static_cast<double>(microseconds) / 1e6);
    }
    printLine(fields.text());
}

void Output::line(const std::string& text) const
{
    printLine(times ? timeOfDay() + text : text);
}

void Output::bytes(const Fields& fields, const ByteArray& bytes, size_t firstOffset)
{
    progress({});
    if (options.json) {
        Fields object = fields;
        object["bytes"] = bytes;
        writeJson(object);
    } else if (options.raw) {
        printBytes(bytes);
    } else if (options.hexDump) {
        print(::hexDump(bytes, firstOffset, 8));
    } else if (series) {
        line(hexLine(bytes));
    } else {
        print(hexLines(bytes));
    }
}

void Output::result(const Fields& fields, const std::string& text)
{
    progress({});
    if (options.json)
        writeJson(fields);
    else
        line(text);
}

void Output::traffic(const std::string& lines) const
{
    if (options.verbosity > 0)
        writeError(lines + '\n');
}

void Output::plannedTraffic(const std::string& lines)
{
    result({{"traffic", lines}}, lines);
}
