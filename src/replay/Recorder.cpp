#include "Recorder.h"

#include "Calls.h"
#include "Channel.h"

#include <string.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <optional>

namespace replay
{

namespace
{

using session::Event;
using session::SerialTransfer;
using session::Setting;

/// Writes events as they come. Bytes of a serial port that belong together are one line, however a program reads them.
class Writer
{
public:
    Writer(const std::string& path, const Command& command, bool withTimes) : file(path), name(path), times(withTimes)
    {
        file << session::versionLine() << "# " << toText(command) << '\n';
        check();
    }

    void add(Event event, int64_t time)
    {
        if (pending && continues(event))
            return;
        flush();
        if (times) {
            event.after = std::chrono::microseconds{last ? (time - *last) / 1000 : 0};
            last = time;
        }
        if (std::holds_alternative<SerialTransfer>(event.what) && session::errorOf(event) == 0)
            pending = event;
        else
            write(event);
    }

    void flush()
    {
        if (pending)
            write(*pending);
        pending.reset();
    }

    void check()
    {
        file.flush();
        if (!file)
            throw Problem(name + ": cannot be written: " + strerror(errno), 1);
    }

private:
    void write(const Event& event)
    {
        session::Session line;
        line.items.push_back({session::Item::Kind::event, event, {}});
        file << session::toText(line).substr(session::versionLine().size());
        check();
    }

    bool continues(const Event& event)
    {
        auto* before = std::get_if<SerialTransfer>(&pending->what);
        const auto* more = std::get_if<SerialTransfer>(&event.what);
        if (more == nullptr || more->error != 0 || event.device != pending->device ||
            more->received != before->received)
            return false;
        std::vector<session::Byte>& bytes = before->data.bytes;
        if (bytes.back() == '\n')  // one line of text is one of the file
            return false;
        bytes.insert(bytes.end(), more->data.bytes.begin(), more->data.bytes.end());
        return true;
    }

    std::ofstream file;
    std::string name;
    bool times;
    std::optional<Event> pending;
    std::optional<int64_t> last;
};

class Recording
{
public:
    explicit Recording(Writer& to) : writer(to) {}

    /// Whether the library was loaded into any program.
    [[nodiscard]] bool wasLoaded() const { return loaded; }

    void handle(const Message& message)
    {
        Reply reply = {};
        switch (message.request.kind) {
        case RequestKind::hello:
            loaded = true;
            reply.result = static_cast<int64_t>(Mode::record);
            Channel::reply(message.connection, reply);
            break;
        case RequestKind::open:
            reply.handle = open(message);
            Channel::reply(message.connection, reply);
            break;
        case RequestKind::inherited:
            reply.handle = inherited(message);
            reply.bus = reply.handle != 0 ? calls.file(reply.handle).bus : BusKind::i2c;
            Channel::reply(message.connection, reply);
            break;
        default:
            if (std::optional<Event> event = calls.event(message, true); event && isNews(*event)) {
                writer.add(*event, message.request.time);
                calls.learn(message, *event);
            }
            break;
        }
    }

private:
    uint32_t open(const Message& message)
    {
        OpenFile file;
        const Event event = openEvent(message, file);
        writer.add(event, message.request.time);
        calls.state(event.device).learn(event);
        return message.request.error == 0 ? calls.add(file) : 0;
    }

    [[nodiscard]] uint32_t inherited(const Message& message) const
    {
        DescriptorId id = {};
        if (message.data.size() != sizeof id)
            return 0;
        memcpy(&id, message.data.data(), sizeof id);
        return calls.find(id);
    }

    /// An answer that follows from the lines before is none.
    bool isNews(const Event& event)
    {
        const auto* setting = std::get_if<Setting>(&event.what);
        if (setting == nullptr || !setting->isAnswer || setting->error != 0)
            return true;
        const auto& values = calls.state(event.device).values;
        const auto known = values.find(setting->name);
        return known == values.end() || known->second != setting->value;
    }

    Writer& writer;
    Calls calls;
    bool loaded = false;
};

}  // namespace

Recorder::Recorder(std::string file, RecordOptions options) : path(std::move(file)), settings(std::move(options)) {}

int Recorder::run(const Command& command)
{
    const bool isNew = access(path.c_str(), F_OK) != 0;
    if (!std::ofstream{path, std::ios::app})
        throw Problem(path + ": " + strerror(errno), 1);
    Channel channel;
    std::optional<Program> program;
    try {
        program.emplace(command, settings.library, channel.name(), Program::Output::shown);
    } catch (const Problem&) {
        if (isNew)
            unlink(path.c_str());
        throw;
    }
    Writer writer{path, command, settings.times};
    Recording recording{writer};

    std::vector<struct pollfd> others = {{program->descriptor(), POLLIN, 0}};
    const auto handleAll = [&](std::chrono::milliseconds timeout) {
        const std::vector<Message> messages = channel.wait(others, timeout);
        for (const Message& message : messages)
            recording.handle(message);
        return !messages.empty();
    };
    while (others[0].revents == 0)
        handleAll(std::chrono::milliseconds{-1});
    const int status = program->wait();
    while (handleAll(std::chrono::milliseconds{0})) {  // what it had sent before its end
    }
    writer.flush();
    writer.check();
    if (!recording.wasLoaded())
        warnNotLoaded(command);
    return status;
}

}  // namespace replay
