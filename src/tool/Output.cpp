#include "Output.h"

#include "Failure.h"
#include "Signals.h"

#include <nlohmann/json.hpp>

#include <poll.h>
#include <signal.h>
#include <string.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <string>

static int64_t nowMs()
{
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
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
            throwIfSignalled();  // not before: what was received is still shown
            struct pollfd room = {fd, POLLOUT, 0};
            poll(&room, 1, -1);
        } else if (error == EPIPE) {
            throw Interrupted{SIGPIPE};
        } else {
            throw Failure{TransferFailed, name + ": " + strerror(error)};
        }
    }
}

void print(const std::string& text)
{
    writeAll(STDOUT_FILENO, text.data(), text.size(), "standard output");
}

void printLine(const std::string& line)
{
    print(line + '\n');
}

void printBytes(const std::vector<uint8_t>& bytes)
{
    writeAll(STDOUT_FILENO, bytes.data(), bytes.size(), "standard output");
}

void printJson(const nlohmann::ordered_json& object)
{
    printLine(object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace));
}

static void printOnStandardError(const std::string& line)
{
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, line.data(), line.size());
}

bool showTraffic(const Common& common, const std::string& lines)
{
    if (common.dryRun && common.json)
        printJson({{"traffic", lines}});
    else if (common.dryRun)
        printLine(lines);
    else if (common.verbosity > 0)
        printOnStandardError(lines + '\n');
    return common.dryRun;
}

void say(const std::string& message)
{
    printOnStandardError("serialcomm: " + message + '\n');
}

std::vector<uint8_t> readStandardInput(size_t most)
{
    std::vector<uint8_t> bytes;
    std::vector<uint8_t> piece(65536);
    for (;;) {
        throwIfSignalled();
        const ssize_t count = read(STDIN_FILENO, piece.data(), piece.size());
        if (count == 0)
            return bytes;
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0 && errno == EAGAIN) {
            struct pollfd input = {STDIN_FILENO, POLLIN, 0};
            poll(&input, 1, -1);
            continue;
        }
        if (count < 0)
            throw Failure{WrongCommandLine, std::string{"standard input: "} + strerror(errno)};
        bytes.insert(bytes.end(), piece.begin(), piece.begin() + count);
        if (bytes.size() > most)
            throw Failure{WrongCommandLine, "standard input: more than " + std::to_string(most) + " bytes"};
    }
}

Progress::Progress(const Common& common)
    : startedMs(nowMs()), wanted(common.verbosity == 0 && isatty(STDERR_FILENO) == 1)
{
}

Progress::~Progress()
{
    wipe();
}

void Progress::show(const std::string& what)
{
    if (!wanted || nowMs() - startedMs < 1000)
        return;
    const std::string line = "\r\x1b[K" + what;
    shown = write(STDERR_FILENO, line.data(), line.size()) > 0;
}

void Progress::wipe()
{
    if (shown)
        shown = write(STDERR_FILENO, "\r\x1b[K", 4) < 0;
}
