#include "watch/Names.h"

#include "base/Values.h"
#include "device/System.h"

namespace watch
{
namespace
{

constexpr uint64_t askAgain = 1'000'000'000;  ///< ns after which a number may be another thread's
constexpr size_t longestName = 15;            ///< of a thread

/// The number of the process that a thread belongs to; empty if it has ended.
std::string processOf(int thread)
{
    return restOfLine(contentOf("/proc/" + std::to_string(thread) + "/status"), "Tgid:\t");
}

std::string deviceAt(const Place& place)
{
    if (place.bus == Place::Bus::i2c)
        return "/dev/i2c-" + std::to_string(place.number);
    const std::string name = std::to_string(place.number) + '.' + std::to_string(place.chip);
    const bool isSpidev = linkTarget("/sys/bus/spi/devices/spi" + name + "/driver") == "spidev";
    return isSpidev ? "/dev/spidev" + name : "spi" + name;
}

/// A cell of the device tree, which has its high byte first.
std::optional<uint32_t> cellOf(const std::string& path)
{
    const std::string bytes = contentOf(path);
    if (bytes.size() != sizeof(uint32_t))
        return {};
    uint32_t number = 0;
    for (const char byte : bytes)
        number = number << 8 | static_cast<uint8_t>(byte);
    return number;
}

}  // namespace

const Names::Thread& Names::threadOf(const Transfer& transfer)
{
    Thread& thread = threads[transfer.thread];
    if (!thread.name.empty() && transfer.time - thread.askedAt < askAgain)
        return thread;
    if (const std::string name = threadName(transfer.thread); !name.empty())
        thread.name = name;
    thread.process = processOf(transfer.thread);
    thread.processName = thread.process.empty() ? "" : firstLine("/proc/" + thread.process + "/comm");
    thread.askedAt = transfer.time;
    return thread;
}

void Names::fill(Transfer& transfer)
{
    transfer.process = threadOf(transfer).name;
    std::string& device = devices[transfer.place];
    if (device.empty())
        device = deviceAt(transfer.place);
    transfer.device = device;
}

bool Names::isOf(const Transfer& transfer, const std::string& process)
{
    const Thread& thread = threadOf(transfer);
    const std::string name = process.substr(0, longestName);
    return process == std::to_string(transfer.thread) || process == thread.process || name == thread.name ||
           name == thread.processName;
}

std::optional<uint32_t> Names::clockOf(const Transfer& transfer)
{
    if (transfer.spi() != nullptr)
        return transfer.spi()->speedHz;
    const int bus = transfer.place.number;
    const auto known = clocks.find(bus);
    if (known != clocks.end())
        return known->second;
    return clocks[bus] = cellOf("/sys/bus/i2c/devices/i2c-" + std::to_string(bus) + "/of_node/clock-frequency");
}

}  // namespace watch
