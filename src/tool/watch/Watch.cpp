// Watches: from the kernel's events to lines, files and a summary.

#include "base/Failure.h"
#include "base/Files.h"
#include "base/Signals.h"
#include "base/Values.h"
#include "device/Node.h"
#include "device/System.h"
#include "watch/Assembler.h"
#include "watch/Files.h"
#include "watch/Names.h"
#include "watch/Render.h"
#include "watch/Summary.h"
#include "watch/Tracing.h"
#include "watch/Verb.h"

#include <replay/Program.h>
#include <session/Session.h>

#include <time.h>

#include <algorithm>
#include <cerrno>

namespace watch
{
namespace
{

constexpr uint64_t millisecond = 1'000'000;
constexpr int pause = 20;        ///< ms between two looks at a busy bus
constexpr int longPause = 1000;  ///< ms after which a processor that was switched on is noticed
constexpr size_t timeWidth = 10;

/// The number of an I2C adapter. It need not have a node: kernel drivers use it without.
int adapterOf(const std::string& path)
{
    const std::string prefix = i2cBuses.prefix;
    const std::string digits = startsWith(path, prefix) ? path.substr(prefix.size()) : "";
    if (!digits.empty() && exists("/sys/bus/i2c/devices/i2c-" + digits))
        return static_cast<int>(numberOf(digits, 10).value_or(0));
    const int number = minorNumber(path, i2cBuses.majorNumber);
    if (number < 0)
        throw openFailure(path, ENOENT, i2cBuses);
    return number;
}

/// Bus and chip select of an SPI device, which may have another driver than spidev.
std::pair<int, int> chipOf(const std::string& path)
{
    const std::string prefix = spiDevices.prefix;
    const std::string name = startsWith(path, prefix) ? path.substr(prefix.size()) : "";
    const size_t point = std::min(name.find('.'), name.size());
    const auto bus = numberOf(name.substr(0, point), 10);
    const auto chip = numberOf(point < name.size() ? name.substr(point + 1) : "", 10);
    if (!bus || !chip || !exists("/sys/bus/spi/devices/spi" + name))
        throw openFailure(path, ENOENT, spiDevices);
    return {static_cast<int>(*bus), static_cast<int>(*chip)};
}

Scope scopeOf(const Request& request)
{
    Scope scope;
    for (const std::string& path : request.buses)
        scope.adapters.push_back(adapterOf(path));
    for (const std::string& path : request.chips)
        scope.chips.push_back(chipOf(path));
    scope.i2cOnly = request.address.has_value();
    return scope;
}

/// What is to be added to a time of the events, to make it one since 1970.
uint64_t sinceEpoch()
{
    return Tracing::now(CLOCK_REALTIME) - Tracing::now();
}

ByteArray bytesOf(const std::string& text)
{
    return {text.begin(), text.end()};
}

class Watcher
{
public:
    Watcher(const Request& given, Output& results) : request(given), output(results), scope(scopeOf(given))
    {
        if (!request.sessionFile.empty())
            session.emplace(request.sessionFile);
        if (!request.captureFile.empty())
            capture.emplace(request.captureFile);
        tracing.emplace(scope);
        if (!request.program.empty())
            program.emplace(
                replay::Command{request.program.front(), {request.program.begin() + 1, request.program.end()}});
        if (session)
            session->replace(bytesOf(session::versionLine()));
        if (capture)
            capture->replace(captureHeader());
    }

    /// Returns the program's exit status.
    int run()
    {
        while (!isOver()) {
            wait();
            show(tracing->read());
        }
        const Batch last = tracing->finish();
        stoppedAt = Tracing::now();
        show(last);
        assembler.endAll();
        showTransfers();
        tracing.reset();
        showSummary();
        report();
        return program ? program->wait() : 0;
    }

    [[nodiscard]] bool hasLost() const { return lost > 0; }

private:
    [[nodiscard]] bool isOver() const
    {
        return programEnded || (!program && signalled()) || isComplete() || remaining() == 0;
    }

    [[nodiscard]] bool isComplete() const { return request.count > 0 && shown >= request.count; }

    /// ms until the end that was asked for; -1 if there is none.
    [[nodiscard]] int remaining() const
    {
        if (!request.duration)
            return -1;
        const uint64_t end = startedAt + static_cast<uint64_t>(request.duration->count()) * millisecond;
        const uint64_t now = Tracing::now();
        return now >= end ? 0 : static_cast<int>((end - now + millisecond - 1) / millisecond);
    }

    /// Until something is recorded; on a busy bus, for a moment.
    void wait()
    {
        std::vector<struct pollfd> all = {{program ? program->descriptor() : -1, POLLIN, 0}};
        const bool isBusy = !tracing->isIdle() || hasShown;
        if (!isBusy) {
            const std::vector<struct pollfd> buffers = tracing->descriptors();
            all.insert(all.end(), buffers.begin(), buffers.end());
        }
        const int left = remaining();
        const int most = isBusy ? pause : longPause;
        poll(all.data(), all.size(), left < 0 ? most : std::min(left, most));
        programEnded = (all.front().revents & POLLIN) != 0;
    }

    void show(const Batch& batch)
    {
        hasShown = !batch.events.empty();
        bool isLossShown = batch.lost == 0;
        for (const Event& event : batch.events) {
            if (!isLossShown && event.time >= batch.lostAt) {
                showLoss(batch);
                isLossShown = true;
            }
            assembler.add(event);
        }
        if (!isLossShown)
            showLoss(batch);
        showTransfers();
    }

    void showLoss(const Batch& batch)
    {
        assembler.endAll();
        showTransfers();
        lost += batch.lost;
        output.result({{"time", secondsSinceEpoch(batch.lostAt)}, {"lost", batch.lost}},
                      timeText(batch.lostAt) + "  " + std::to_string(batch.lost) +
                          " events of the kernel were lost here");
    }

    void showTransfers()
    {
        for (Transfer& transfer : assembler.take()) {
            names.fill(transfer);
            if (isWanted(transfer))
                show(transfer);
        }
    }

    [[nodiscard]] bool isWanted(const Transfer& transfer)
    {
        if (isComplete() || (!request.process.empty() && !names.isOf(transfer, request.process)))
            return false;
        if (!request.address || transfer.i2c() == nullptr)
            return true;
        const auto& messages = transfer.i2c()->messages;
        return messages.empty() ||
               std::any_of(messages.begin(), messages.end(),
                           [&](const session::I2cMessage& message) { return message.address == *request.address; });
    }

    void show(const Transfer& transfer)
    {
        ++shown;
        if (output.json())
            output.result(fieldsOf(transfer, secondsSinceEpoch(transfer.time)), {});
        else
            output.result({}, textOf(transfer, timeText(transfer.time)));
        if (request.summary)
            summary.add(transfer, names.clockOf(transfer));
        if (capture)
            capture->append(packetsOf(transfer, epoch + transfer.time));
        if (session)
            save(transfer);
    }

    void save(const Transfer& transfer)
    {
        if (transfer.thread != savedThread)
            session->append(bytesOf("# " + transfer.process + '[' + std::to_string(transfer.thread) + "]\n"));
        savedThread = transfer.thread;
        ++saved;
        notSaved += notReplayable(transfer).empty() ? 0 : 1;
        session->append(bytesOf(sessionLine(transfer)));
    }

    std::string timeText(uint64_t time)
    {
        if (request.times == Request::Times::wall)
            return timeOfDay(epoch + time, 6);
        const bool isRelative = request.times == Request::Times::relative;
        const uint64_t since = isRelative ? lastTime.value_or(time) : startedAt;
        lastTime = time;
        const std::string text = secondsText(time > since ? time - since : 0);
        return std::string(timeWidth - std::min(text.size(), timeWidth), ' ') + text;
    }

    [[nodiscard]] double secondsSinceEpoch(uint64_t time) const
    {
        const uint64_t microseconds = (epoch + time) / 1000;
        return static_cast<double>(microseconds) / 1e6;
    }

    void showSummary()
    {
        if (!request.summary)
            return;
        const uint64_t watched = stoppedAt - startedAt;
        if (!output.json())
            print('\n' + summary.text(watched));
        for (const Fields& fields : output.json() ? summary.fields(watched) : std::vector<Fields>{})
            output.result(fields, {});
    }

    void report()
    {
        if (notSaved > 0)
            printError(request.sessionFile + ": " + std::to_string(notSaved) + " of " + std::to_string(saved) +
                       " transfers cannot be replayed; the file has them as comments");
        if (lost > 0)
            printError("the kernel lost " + std::to_string(lost) +
                       " events, because they came faster than they were read; transfers are missing");
    }

    const Request& request;
    Output& output;
    Scope scope;
    std::optional<OutputFile> session;
    std::optional<OutputFile> capture;
    uint64_t startedAt = Tracing::now();
    uint64_t stoppedAt = 0;
    uint64_t epoch = sinceEpoch();
    std::optional<Tracing> tracing;
    std::optional<replay::Program> program;
    Assembler assembler;
    Names names{Tracing::threadName};
    Summary summary;
    std::optional<uint64_t> lastTime;
    size_t shown = 0;
    size_t saved = 0;
    size_t notSaved = 0;
    int savedThread = -1;
    uint64_t lost = 0;
    bool hasShown = false;
    bool programEnded = false;
};

}  // namespace

void run(const Request& request, Output& output)
{
    int status = 0;
    bool hasLost = false;
    try {
        Watcher watcher{request, output};
        status = watcher.run();
        hasLost = watcher.hasLost();
    } catch (const replay::Problem& problem) {
        throw Failure{static_cast<Status>(problem.status), problem.what()};
    }
    if (request.program.empty())
        throwIfSignalled();
    if (status != 0 || hasLost)
        throw ExitStatus{status != 0 ? status : TransferFailed};
}

}  // namespace watch
