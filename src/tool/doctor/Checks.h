// What the doctor checks. Each check looks at one thing and returns what it finds.
#pragma once

#include "device/Node.h"

#include <string>
#include <vector>

namespace doctor
{

struct Finding {
    std::string name;    ///< for scripts: "no_permission"
    std::string object;  ///< "/dev/i2c-4"
    std::string cause;
    std::vector<std::string> repair = {};  ///< commands; none for a note: nothing is wrong
};

using Findings = std::vector<Finding>;

/// What the checks need to know about one of the three buses.
struct Bus {
    const NodeKind& kind;
    const char* treeName;                       ///< of a controller in the device tree: "i2c" of "i2c@30ad0000"
    const char* sysfsClass;                     ///< where the kernel lists what has a node
    std::vector<std::string> (*controllers)();  ///< those with a driver: "i2c-4"
};

// Controllers
Findings disabledControllers(const Bus& bus);
Findings controllersWithoutDriver(const Bus& bus);

// Nodes
Findings missingNodes(const Bus& bus);
Findings deniedNodes(const Bus& bus);
Findings usedNodes(const Bus& bus);

// One bus only
Findings i2cDevNotLoaded(const Bus& bus);
Findings i2cChipsInUse(const Bus& bus);
Findings spiBusesWithoutDevice(const Bus& bus);
Findings spiDevicesWithoutSpidev(const Bus& bus);
Findings modemManager(const Bus& bus);
Findings latencyTimers(const Bus& bus);

/// A command that needs root: with sudo unless this is root.
std::string asRoot(const std::string& command);

/// The command that writes a word to a file of sysfs, as root.
std::string writing(const std::string& word, const std::string& path);

/// Ends a process and keeps it from coming back; `unit` is what systemd calls it.
std::string ending(const std::string& unit, int process);

}  // namespace doctor
