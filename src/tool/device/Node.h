// Device nodes: which exist, their devices, who may open them and who has them open.
#pragma once

#include "base/Failure.h"

#include <string>
#include <vector>

/// A device node, and what sysfs says about its device. Unknown values are empty.
struct Node {
    std::string path;
    std::string description;  ///< adapter's name, modalias, USB product
    std::string driver = {};
    std::string byId = {};    ///< the stable name below /dev/serial/by-id
    std::string usbId = {};   ///< "0403:6001"
    std::string serial = {};  ///< serial number of a USB device
};

/// What the nodes of one bus have in common.
struct NodeKind {
    const char* bus;               ///< "i2c"
    const char* name;              ///< "an I2C bus"
    const char* prefix;            ///< "/dev/i2c-": its nodes can be named without it
    unsigned int majorNumber;      ///< of its nodes; 0 if there are several
    const char* others;            ///< "buses found"
    const char* missingHint;       ///< what to try if the node does not exist
    std::vector<Node> (*nodes)();  ///< those that are present
};

extern const NodeKind i2cBuses;
extern const NodeKind spiDevices;
extern const NodeKind serialPorts;

/// Why a node could not be opened: missing, no permission, of another kind, busy, or else the text of `error`.
Failure openFailure(const std::string& path, int error, const NodeKind& kind);

/// "yes", or why this user may not open the node: "no: group i2c".
std::string mayOpen(const std::string& path);

/// "serialcomm (process 4711)": another process that has the node open, preferably one that has locked it; "another
/// program" if this user cannot see it.
std::string otherUser(const std::string& path);

/// The minor number of a character device with this major number; -1 for any other file.
int minorNumber(const std::string& path, unsigned int majorNumber);

/// The kernel driver of the chip at an address of an I2C bus; empty when there is none.
std::string i2cDriver(const std::string& bus, int address);

/// "4-0068": that chip's name in sysfs.
std::string i2cDeviceName(const std::string& bus, int address);

/// Names in a directory that begin with `prefix`, without it, in natural order; none if there is no such directory.
std::vector<std::string> namesBelow(const std::string& directory, const std::string& prefix);

/// First line of a small file such as those in sysfs; empty if it cannot be read.
std::string firstLine(const std::string& path);
