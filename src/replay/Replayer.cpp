#include "Replayer.h"

#include "Calls.h"
#include "Channel.h"
#include "SerialPort.h"

#include <signal.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <sstream>

namespace replay
{

namespace
{

using Clock = std::chrono::steady_clock;
using session::Event;
using session::I2cTransfer;
using session::Open;
using session::SerialTransfer;
using session::SpiTransfer;

/// What is to fail in a run.
struct Failure {
    size_t event = 0;                  ///< Its index among the session's lines.
    int error = 0;                     ///< 0: a short count.
    std::optional<size_t> shortCount;  ///< Bytes that read() or write() transfers.
};

/// How a run ended.
struct Outcome {
    int status = 0;
    int signal = 0;
    bool hung = false;
    bool failed = false;   ///< The failure took place,
    bool retried = false;  ///< and the program asked again for what had failed.
    bool loaded = false;   ///< The library was loaded into any program.
    std::string report;
};

void printLine(const std::string& text)
{
    std::fprintf(stderr, "%s\n", text.c_str());
}

/// One run of a program.
class Run
{
public:
    Run(const session::Session& session, const ReplayOptions& options, std::optional<Failure> failure)
        : settings(options), player(session), toFail(failure)
    {
        std::chrono::microseconds time{0};
        for (const Event* event : session::eventsOf(player.played())) {
            time += event->after.value_or(std::chrono::microseconds{0});
            times[event] = time;
            events.push_back(event);
        }
    }

    Outcome play(const Command& command, const std::string& file, Program::Output output)
    {
        Program program{command, settings.library, channel.name(), output};
        const Clock::time_point deadline =
            settings.timeout ? Clock::now() + *settings.timeout : Clock::time_point::max();
        Outcome outcome;
        while (!hasEnded && !outcome.hung) {
            step(program.descriptor(), std::min(deadline, nextDue()));
            outcome.hung = Clock::now() >= deadline;
        }
        if (outcome.hung)
            program.kill();
        outcome.status = program.wait();
        outcome.signal = program.endedBySignal();
        finish();
        outcome.failed = hasFailed;
        outcome.retried = wasRetried;
        outcome.loaded = wasLoaded;
        outcome.report = player.report(file);
        return outcome;
    }

private:
    struct Pace {
        Clock::time_point real;
        std::chrono::microseconds recorded{0};
        bool begun = false;
    };

    [[nodiscard]] Clock::time_point nextDue() const
    {
        return later.empty() ? Clock::time_point::max() : later.begin()->first;
    }

    /// Waits for what comes next, and handles it.
    void step(int programDescriptor, Clock::time_point until)
    {
        std::vector<struct pollfd> others = {{programDescriptor, POLLIN, 0}};
        std::vector<std::string> names;
        for (const auto& [name, port] : ports) {
            if (port->descriptor() < 0)
                continue;
            const int unsent = port->hasUnsent() ? POLLOUT : 0;
            others.push_back({port->descriptor(), static_cast<short>(POLLIN | unsent), 0});
            names.push_back(name);
        }
        using std::chrono::milliseconds;
        const auto left = std::chrono::ceil<milliseconds>(until - std::min(Clock::now(), until));
        const auto longest = milliseconds{60'000};
        const std::vector<Message> messages = channel.wait(others, std::min(left, longest));
        for (const Message& message : messages)
            handleSafely(message);
        for (const std::string& name : names) {
            SerialPort& port = *ports.at(name);
            port.sendMore();
            exchange(name, port.receive());
        }
        while (!later.empty() && later.begin()->first <= Clock::now()) {
            const std::function<void()> action = later.begin()->second;
            later.erase(later.begin());
            action();
        }
        hasEnded = messages.empty() && others[0].revents != 0;
    }

    void handleSafely(const Message& message)
    {
        try {
            handle(message);
        } catch (const Problem& problem) {
            printLine(std::string{"serialcomm: "} + problem.what());
            Channel::reply(message.connection, failing(EIO));
        }
    }

    static Reply failing(int error)
    {
        Reply reply = {};
        reply.error = error;
        return reply;
    }

    void handle(const Message& message)
    {
        switch (message.request.kind) {
        case RequestKind::hello:
            hello(message);
            break;
        case RequestKind::open:
            open(message);
            break;
        case RequestKind::inherited:
            inherited(message);
            break;
        case RequestKind::sent: {
            const std::string& device = calls.file(message.request.handle).device;
            const auto port = ports.find(device);
            if (port != ports.end())
                exchange(device, port->second->receiveSent(message.request.value));
            break;
        }
        case RequestKind::getLine: {
            const std::optional<session::LineSettings>& line =
                calls.state(calls.file(message.request.handle).device).line;
            std::vector<uint8_t> data;
            if (line) {
                const LineState state = stateOf(*line);
                const auto* bytes = reinterpret_cast<const uint8_t*>(&state);
                data.assign(bytes, bytes + sizeof state);
            }
            Channel::reply(message.connection, {}, data);
            break;
        }
        default:
            call(message);
            break;
        }
    }

    void hello(const Message& message)
    {
        wasLoaded = true;
        std::vector<uint8_t> list;
        for (const std::string& device : player.devices()) {
            const std::vector<const Event*> next = player.next(device);
            const Open* open = next.empty() ? nullptr : std::get_if<Open>(&next.front()->what);
            list.push_back(open != nullptr && open->error == ENOENT ? '-' : '+');
            list.push_back(static_cast<uint8_t>('0' + static_cast<int>(player.busOf(device).value())));
            list.insert(list.end(), device.begin(), device.end());
            list.push_back(0);
        }
        Reply reply = {};
        reply.result = static_cast<int64_t>(Mode::replay);
        Channel::reply(message.connection, reply, list);
    }

    void open(const Message& message)
    {
        OpenFile file;
        Event asked = openEvent(message, file);
        if (const std::optional<session::Bus> bus = player.busOf(file.device)) {
            std::get<Open>(asked.what).bus = *bus;
            file.bus = static_cast<BusKind>(*bus);
        }
        const Event* answer = player.answer(asked);
        if (answer == nullptr || session::errorOf(*answer) != 0) {
            atPace(answer, [message, error = answer == nullptr ? EIO : session::errorOf(*answer)] {
                Channel::reply(message.connection, failing(error));
            });
            return;
        }
        calls.state(file.device).learn(*answer);
        OpenState state = {};
        memcpy(&state, message.data.data(), sizeof state);
        const int descriptor =
            file.bus == BusKind::serial ? openPort(file.device, state.flags) : openMemory(file.device);
        Reply reply = descriptor < 0 ? failing(errno) : Reply{};
        struct stat status = {};
        fstat(descriptor, &status);
        file.deviceId = status.st_dev;
        file.inode = status.st_ino;
        reply.handle = calls.add(file);
        reply.bus = file.bus;
        atPace(answer, [message, reply, descriptor] {
            Channel::reply(message.connection, reply, {}, descriptor);
            if (descriptor >= 0)
                close(descriptor);
        });
        if (file.bus == BusKind::serial)
            exchange(file.device, {});
    }

    static int openMemory(const std::string& device)
    {
        return memfd_create(session::deviceName(device).c_str(), MFD_CLOEXEC);
    }

    int openPort(const std::string& device, int flags)
    {
        std::unique_ptr<SerialPort>& port = ports[device];
        if (!port || port->descriptor() < 0) {
            const session::LineSettings usual{9600, 8, 'N', 1, false, false};
            port = std::make_unique<SerialPort>(stateOf(calls.state(device).line.value_or(usual)));
        }
        return port->openPeer(flags);
    }

    void inherited(const Message& message)
    {
        DescriptorId id = {};
        if (message.data.size() == sizeof id)
            memcpy(&id, message.data.data(), sizeof id);
        Reply reply = {};
        reply.handle = calls.find(id);
        reply.bus = reply.handle != 0 ? calls.file(reply.handle).bus : BusKind::i2c;
        Channel::reply(message.connection, reply);
    }

    /// A transfer or a setting.
    void call(const Message& message)
    {
        const std::optional<Event> asked = calls.event(message, false);
        if (!asked) {
            const bool isLine = message.request.kind == RequestKind::line;  // that changes nothing
            Channel::reply(message.connection, failing(isLine ? 0 : EINVAL));
            return;
        }
        if (fails(message, *asked))
            return;
        const Event* answer = player.answer(*asked);
        if (answer == nullptr) {
            Channel::reply(message.connection, failing(EIO));
            hangUpAfterDeviation(asked->device);
            return;
        }
        calls.learn(message, *answer);
        std::vector<uint8_t> data;
        const Reply reply = answerTo(message, *answer, data);
        atPace(answer, [message, reply, data] { Channel::reply(message.connection, reply, data); });
        if (calls.file(message.request.handle).bus == BusKind::serial)
            exchange(asked->device, {});
    }

    // The failure of this run

    [[nodiscard]] bool isToFail(const Event* event) const { return toFail && event == events[toFail->event]; }

    /// Whether this call is the one that fails: then it is answered here.
    bool fails(const Message& message, const Event& asked)
    {
        const Event* found = player.find(asked);
        if (hasFailed && !wasRetried && asked.device == events[toFail->event]->device) {
            wasRetried = isToFail(found);
            if (!wasRetried && found == nullptr)
                player.skip(*events[toFail->event]);  // the program goes on without it
            return false;
        }
        if (hasFailed || !isToFail(found))
            return false;
        const RequestKind kind = message.request.kind;
        if (toFail->shortCount && kind != RequestKind::read && kind != RequestKind::write)
            return false;  // no such count comes of this call
        hasFailed = true;
        Reply reply = failing(toFail->error);
        std::vector<uint8_t> data;
        if (toFail->shortCount) {
            reply = answerTo(message, *found, data);
            reply.result = static_cast<int64_t>(*toFail->shortCount);
            data.resize(std::min(data.size(), *toFail->shortCount));
        }
        Channel::reply(message.connection, reply, data);
        return true;
    }

    // Serial ports

    void exchange(const std::string& device, const std::vector<uint8_t>& sent)
    {
        const auto found = ports.find(device);
        if (found == ports.end())
            return;
        const size_t before = player.deviations().size();
        for (const Event* event : player.exchange(device, sent)) {
            const auto& transfer = std::get<SerialTransfer>(event->what);
            const bool isFailing = isToFail(event) && transfer.received;
            hasFailed = hasFailed || isFailing;
            if (transfer.error != 0)
                atPace(event, [this, device] { ports.at(device)->hangUp(); });
            else if (transfer.received && !isFailing)
                atPace(event, [this, device, bytes = bytesOf(transfer.data)] { ports.at(device)->send(bytes); });
        }
        const std::vector<const Event*> next = player.next(device);
        if (!hasFailed && !next.empty() && isToFail(next.front()) &&
            std::holds_alternative<SerialTransfer>(next.front()->what)) {
            hasFailed = true;
            found->second->hangUp();
        }
        if (player.deviations().size() > before)
            hangUpAfterDeviation(device);
    }

    void hangUpAfterDeviation(const std::string& device)
    {
        const auto port = ports.find(device);
        if (port != ports.end())
            port->second->hangUp();
    }

    void finish()
    {
        for (const auto& [device, port] : ports)
            exchange(device, port->receiveSent(0));
        player.finish();
    }

    // Times

    /// Does it now, or when the recording had it: as long after the device's line before.
    void atPace(const Event* event, const std::function<void()>& action)
    {
        const auto recorded = times.find(event);
        if (!settings.times || recorded == times.end()) {
            action();
            return;
        }
        Pace& pace = paces[event->device];
        const Clock::time_point now = Clock::now();
        Clock::time_point due = pace.begun ? pace.real + (recorded->second - pace.recorded) : now;
        due = std::max(due, now);
        pace = {due, recorded->second, true};
        if (due <= now)
            action();
        else
            later.emplace(due, action);
    }

    ReplayOptions settings;
    session::Player player;
    std::optional<Failure> toFail;
    std::vector<const Event*> events;
    std::map<const Event*, std::chrono::microseconds> times;
    Channel channel;
    Calls calls;
    std::map<std::string, std::unique_ptr<SerialPort>> ports;
    std::map<std::string, Pace> paces;
    std::multimap<Clock::time_point, std::function<void()>> later;
    bool hasEnded = false;
    bool hasFailed = false;
    bool wasRetried = false;
    bool wasLoaded = false;
};

// --fail-each

std::vector<size_t> shortCounts(size_t length)
{
    constexpr size_t each = 8;
    std::vector<size_t> counts;
    for (size_t count = 0; count < std::min(length, each); ++count)
        counts.push_back(count);
    if (length > each)
        counts.insert(counts.end(), {length / 2, length - 1});
    return counts;
}

/// What the driver of such a bus answers when a transfer fails: see the kernel's fault-codes.
std::vector<Failure> failuresOf(size_t index, const Event& event)
{
    std::vector<Failure> failures;
    const auto add = [&](std::initializer_list<int> errors) {
        for (const int error : errors)
            failures.push_back({index, error, std::nullopt});
    };
    if (session::errorOf(event) != 0)
        return failures;
    if (const auto* i2c = std::get_if<I2cTransfer>(&event.what)) {
        add({ENXIO, EREMOTEIO, ETIMEDOUT, EAGAIN, EIO});
        if (i2c->messages.size() == 1) {
            for (const size_t count : shortCounts(i2c->messages.front().data.bytes.size()))
                failures.push_back({index, 0, count});
        }
    } else if (std::holds_alternative<SpiTransfer>(event.what)) {
        add({EIO, ETIMEDOUT, ESHUTDOWN});
    } else if (std::holds_alternative<SerialTransfer>(event.what)) {
        add({EIO});
    }
    return failures;
}

std::string nameOf(const Failure& failure, const Event& event)
{
    if (failure.shortCount)
        return "only " + std::to_string(*failure.shortCount) + (*failure.shortCount == 1 ? " byte" : " bytes");
    const auto* serial = std::get_if<SerialTransfer>(&event.what);
    if (serial != nullptr)
        return serial->received ? "nothing is received" : "the port is gone";
    return session::errorName(failure.error);
}

/// What is wrong with it; empty if nothing is.
std::string complaint(const Outcome& outcome)
{
    if (outcome.hung)
        return "the program hung and was ended";
    if (outcome.signal != 0)
        return std::string{"the program crashed: "} + strsignal(outcome.signal);
    if (outcome.status == 0 && !outcome.retried)
        return "the program ended in 0, as if nothing had happened";
    return "";
}

}  // namespace

Replayer::Replayer(std::string file, ReplayOptions options) : path(std::move(file)), settings(std::move(options))
{
    std::ifstream stream{path};
    if (!stream.is_open())
        throw Problem(path + ": " + strerror(errno), 1);
    try {
        session = session::parse({std::istreambuf_iterator<char>{stream}, {}});
    } catch (const std::ios_base::failure& error) {
        throw Problem(path + ": " + error.code().message(), 1);
    } catch (const session::FormatError& error) {
        throw Problem(path + ":" + std::to_string(error.fileLine) + ": " + error.what(), 1);
    }
}

int Replayer::run(const Command& command)
{
    Run run{session, settings, std::nullopt};
    const Outcome outcome = run.play(command, path, Program::Output::shown);
    if (!outcome.loaded)
        warnNotLoaded(command);
    std::fputs(outcome.report.c_str(), stderr);
    if (outcome.hung) {
        printLine(path + ": the program was ended after " + std::to_string(settings.timeout->count()) + " ms");
        return 1;
    }
    return outcome.report.empty() ? outcome.status : 1;
}

int Replayer::failEach(const Command& command)
{
    ReplayOptions options = settings;
    options.timeout = settings.timeout.value_or(std::chrono::seconds{10});
    const Outcome plain = Run{session, options, std::nullopt}.play(command, path, Program::Output::dropped);
    if (!plain.report.empty() || plain.hung)
        throw Problem(
            path + ": the program does something else already when nothing fails; replay it without failures first", 1);

    size_t runs = 0;
    size_t complaints = 0;
    const std::vector<const Event*> events = session::eventsOf(session);
    for (size_t i = 0; i < events.size(); ++i) {
        for (const Failure& failure : failuresOf(i, *events[i])) {
            const Outcome outcome = Run{session, options, failure}.play(command, path, Program::Output::dropped);
            if (!outcome.failed)
                continue;
            ++runs;
            const std::string wrong = complaint(outcome);
            if (wrong.empty())
                continue;
            ++complaints;
            printLine(path + ':' + std::to_string(events[i]->fileLine) + ": " + nameOf(failure, *events[i]) + ": " +
                      wrong + ": " + session::withoutTime(*events[i]));
        }
    }
    printLine(path + ": " + std::to_string(runs) + " failures, " + std::to_string(complaints) + " complaints");
    return complaints == 0 ? 0 : 1;
}

}  // namespace replay
