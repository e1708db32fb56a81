// What the system calls threads and devices, and how fast their buses are.
#pragma once

#include "watch/Transfer.h"

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>

namespace watch
{

class Names
{
public:
    /// @param nameOf Asks the kernel for the name of a thread, which may have ended; empty if it knows none.
    explicit Names(std::function<std::string(int)> nameOf) : threadName(std::move(nameOf)) {}

    /// Fills in process and device.
    void fill(Transfer& transfer);

    /// Whether the thread of the transfer is that process, or one of its threads: a name or a number.
    bool isOf(const Transfer& transfer, const std::string& process);

    /// The clock of an I2C bus as the device tree has it, and the one that was set up of SPI.
    std::optional<uint32_t> clockOf(const Transfer& transfer);

private:
    struct Thread {
        std::string name;
        std::string process;  ///< its number
        std::string processName;
        uint64_t askedAt = 0;  ///< time of the transfer
    };

    const Thread& threadOf(const Transfer& transfer);

    std::function<std::string(int)> threadName;
    std::map<int, Thread> threads;
    std::map<Place, std::string> devices;
    std::map<int, std::optional<uint32_t>> clocks;
};

}  // namespace watch
