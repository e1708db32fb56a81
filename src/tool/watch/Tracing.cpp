#include "watch/Tracing.h"

#include "base/Failure.h"
#include "base/Values.h"
#include "device/System.h"

#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

// As in <tracefs.h>, which is not C++ in the versions that are common.
extern "C" {
int tracefs_set_tracing_dir(char* tracing_dir);
tracefs_instance* tracefs_instance_create(const char* name);
int tracefs_instance_destroy(tracefs_instance* instance);
void tracefs_instance_free(tracefs_instance* instance);
int tracefs_instance_file_write(tracefs_instance* instance, const char* file, const char* str);
char* tracefs_instance_file_read(tracefs_instance* instance, const char* file, int* psize);
bool tracefs_event_file_exists(tracefs_instance* instance, const char* system, const char* event, const char* file);
char* tracefs_event_file_read(tracefs_instance* instance, const char* system, const char* event, const char* file,
                              int* psize);
int tracefs_event_file_write(tracefs_instance* instance, const char* system, const char* event, const char* file,
                             const char* str);
int tracefs_event_enable(tracefs_instance* instance, const char* system, const char* event);
int tracefs_trace_off(tracefs_instance* instance);
}

namespace watch
{
namespace
{

constexpr auto folder = "/sys/kernel/tracing";
constexpr auto instancePrefix = "serialcomm-";  ///< of an instance, before the process
constexpr long tracefsMagic = 0x74726163;
constexpr uint64_t settling = 2'000'000;  ///< ns between an event's time and its being readable, at most
constexpr size_t pageSize = 65536;        ///< the largest that a kernel has

Failure noAccess(const std::string& path, int error)
{
    if (error == EACCES || error == EPERM)
        return {CannotOpen, path + ": " + strerror(error) + "; only root may record what the kernel does",
                "sudo serialcomm watch; in a container, give it the capability CAP_SYS_ADMIN and " +
                    std::string{folder}};
    return {CannotOpen, path + ": " + strerror(error)};
}

void checkMounted()
{
    struct statfs mounted {
    };
    if (statfs(folder, &mounted) != 0) {
        const int error = errno;
        if (error != ENOENT)
            throw noAccess(folder, error);
        throw Failure{CannotOpen, std::string{folder} + " is missing: this kernel has no tracing",
                      "a kernel with CONFIG_FTRACE and CONFIG_ENABLE_DEFAULT_TRACERS or another tracer"};
    }
    if (mounted.f_type != tracefsMagic)
        throw Failure{CannotOpen, std::string{folder} + ": tracefs is not mounted",
                      "mount -t tracefs tracefs " + std::string{folder}};
    if (access(folder, R_OK | W_OK | X_OK) != 0)
        throw noAccess(folder, errno);
}

/// Removes instances whose process has ended. One that is in use elsewhere is busy, and stays.
void removeLeftovers()
{
    const std::string instances = std::string{folder} + "/instances/";
    for (const std::string& process : namesBelow(instances, instancePrefix)) {
        const bool isGone = consistsOf(process, "0123456789") && !exists("/proc/" + process);
        if (isGone || process == std::to_string(getpid()))
            rmdir(std::string{instances}.append(instancePrefix).append(process).c_str());
    }
}

Failure noEvents(const std::string& bus)
{
    const std::string system = std::string{folder} + "/events/" + bus;
    if (bus == "i2c")
        return {CannotOpen, system + " is missing: this kernel does not record I2C transfers",
                "modprobe i2c-dev, or a kernel with CONFIG_I2C and CONFIG_EVENT_TRACING"};
    return {CannotOpen, system + " is missing: this kernel does not record SPI transfers",
            "a kernel with CONFIG_SPI and CONFIG_EVENT_TRACING"};
}

bool hasEvents(const std::string& bus)
{
    const std::vector<EventName>& events = eventsOf(bus);
    return std::all_of(events.begin(), events.end(), [](const EventName& event) {
        return !event.isRequired || tracefs_event_file_exists(nullptr, event.system, event.name, "format");
    });
}

std::string formatOf(const EventName& event)
{
    char* text = tracefs_event_file_read(nullptr, event.system, event.name, "format", nullptr);
    std::string format = text != nullptr ? text : "";
    free(text);
    return format;
}

std::string adapterFilter(const std::vector<int>& adapters)
{
    std::string filter;
    for (const int adapter : adapters)
        filter += (filter.empty() ? "" : " || ") + ("adapter_nr == " + std::to_string(adapter));
    return filter;
}

std::string chipFilter(const std::vector<std::pair<int, int>>& chips)
{
    std::string filter;
    for (const auto& [bus, chip] : chips)
        filter += (filter.empty() ? "" : " || ") +
                  ("(bus_num == " + std::to_string(bus) + " && chip_select == " + std::to_string(chip) + ")");
    return filter;
}

}  // namespace

void Tracing::FreeInstance::operator()(tracefs_instance* used) const
{
    tracefs_instance_free(used);
}

Tracing::Tracing(const Scope& scope) : name(instancePrefix + std::to_string(getpid()))
{
    checkMounted();
    tracefs_set_tracing_dir(const_cast<char*>(folder));
    removeLeftovers();
    const bool i2c = scope.wantsI2c() && hasEvents("i2c");
    const bool spi = scope.wantsSpi() && hasEvents("spi");
    if (!i2c && (!scope.adapters.empty() || !spi))
        throw noEvents("i2c");
    if (!spi && !scope.chips.empty())
        throw noEvents("spi");

    instance.reset(tracefs_instance_create(name.c_str()));
    if (instance == nullptr)
        throw noAccess(std::string{folder} + "/instances/" + name, errno);
    try {
        tracefs_instance_file_write(instance.get(), "trace_clock", "mono");
        tracefs_instance_file_write(instance.get(), "buffer_percent", "0");  // poll() reports the first event
        decoder.learnHeader(contentOf(std::string{folder} + "/events/header_page"));
        openBuffers();
        if (i2c)
            enable("i2c", adapterFilter(scope.adapters));
        if (spi)
            enable("spi", chipFilter(scope.chips));
    } catch (...) {
        remove();
        throw;
    }
}

Tracing::~Tracing()
{
    remove();
}

void Tracing::remove()
{
    for (const int fd : buffers)
        close(fd);
    buffers.clear();
    tracefs_trace_off(instance.get());
    tracefs_instance_destroy(instance.get());
}

void Tracing::enable(const std::string& bus, const std::string& filter)
{
    for (const EventName& event : eventsOf(bus)) {
        const bool isKnown = decoder.learn(event, formatOf(event));
        if (!isKnown && event.isRequired)
            throw Failure{CannotOpen, std::string{folder} + "/events/" + event.system + '/' + event.name +
                                          "/format: cannot be read"};
        if (!isKnown)
            continue;
        if (!filter.empty())
            tracefs_event_file_write(instance.get(), event.system, event.name, "filter", filter.c_str());
        if (tracefs_event_enable(instance.get(), event.system, event.name) != 0)
            throw noAccess(std::string{folder} + "/instances/" + name + "/events/" + event.system + '/' + event.name,
                           errno);
    }
}

void Tracing::openBuffers()
{
    const std::string processors = std::string{folder} + "/instances/" + name + "/per_cpu/";
    for (const std::string& number : namesBelow(processors, "cpu")) {
        const std::string path = std::string{processors}.append("cpu").append(number).append("/trace_pipe_raw");
        const int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        if (fd < 0)
            throw noAccess(path, errno);
        buffers.push_back(fd);
    }
}

std::vector<struct pollfd> Tracing::descriptors() const
{
    std::vector<struct pollfd> all;
    for (const int fd : buffers)
        all.push_back({fd, POLLIN, 0});
    poll(all.data(), all.size(), 0);
    const auto isOff = [](const struct pollfd& each) { return (each.revents & POLLERR) != 0; };
    all.erase(std::remove_if(all.begin(), all.end(), isOff), all.end());
    return all;
}

void Tracing::readBuffer(int fd)
{
    static std::vector<uint8_t> bytes(pageSize);
    for (;;) {
        const ssize_t count = ::read(fd, bytes.data(), bytes.size());
        if (count <= 0)
            return;
        const Page page = decoder.page(bytes.data(), static_cast<size_t>(count));
        if ((page.lostBefore || page.damaged) && !isLosing) {
            isLosing = true;
            lostAt = page.records.empty() ? now() : page.records.front().time;
        }
        for (const Record& record : page.records) {
            if (std::optional<Event> event = decoder.event(record))
                pending.push_back(std::move(*event));
        }
    }
}

/// Events that did not fit into the buffers, since the start.
uint64_t Tracing::dropped() const
{
    uint64_t number = 0;
    const std::string processors = std::string{folder} + "/instances/" + name + "/per_cpu/";
    for (const std::string& processor : namesBelow(processors, "cpu")) {
        const std::string statistics =
            contentOf(std::string{processors}.append("cpu").append(processor).append("/stats"));
        for (const char* key : {"overrun: ", "commit overrun: ", "dropped events: "})
            number += numberOf(restOfLine(statistics, key), 10).value_or(0);
    }
    return number;
}

Batch Tracing::take(uint64_t until)
{
    std::stable_sort(pending.begin(), pending.end(), [](const Event& a, const Event& b) { return a.time < b.time; });
    const auto end =
        std::find_if(pending.begin(), pending.end(), [&](const Event& event) { return event.time > until; });
    Batch batch;
    batch.events.assign(std::make_move_iterator(pending.begin()), std::make_move_iterator(end));
    pending.erase(pending.begin(), end);
    if (isLosing && lostAt <= until) {
        const uint64_t all = dropped();
        batch.lost = all > lost ? all - lost : 1;
        batch.lostAt = lostAt;
        lost = std::max(all, lost + 1);
        isLosing = false;
    }
    return batch;
}

Batch Tracing::read()
{
    const uint64_t until = now() - settling;
    for (const int fd : buffers)
        readBuffer(fd);
    return take(until);
}

Batch Tracing::finish()
{
    tracefs_trace_off(instance.get());
    for (const int fd : buffers)
        readBuffer(fd);
    if (!isLosing && dropped() > lost) {
        isLosing = true;
        lostAt = now();
    }
    return take(UINT64_MAX);
}

std::string Tracing::threadName(int thread)
{
    std::string alive = firstLine("/proc/" + std::to_string(thread) + "/comm");
    if (!alive.empty())
        return alive;
    char* saved = tracefs_instance_file_read(nullptr, "saved_cmdlines", nullptr);
    const std::string lines = saved != nullptr ? saved : "";
    free(saved);
    return restOfLine(lines, std::to_string(thread) + ' ');
}

uint64_t Tracing::now(clockid_t clock)
{
    struct timespec time {
    };
    clock_gettime(clock, &time);
    return static_cast<uint64_t>(time.tv_sec) * 1'000'000'000 + static_cast<uint64_t>(time.tv_nsec);
}

}  // namespace watch
