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

/// Whether this process may open a node.
struct NodeAccess {
    enum Verdict { Allowed, NoPermission, Forbidden, Unknown };

    Verdict verdict;        ///< Forbidden: by a container's or service's device rules
    std::string group;      ///< of NoPermission: the group that may open it; empty when only the owner may
    bool isMember = false;  ///< this user is in that group, but the session began before
};

NodeAccess accessTo(const std::string& path);

/// The name of the user that this process runs as, or the number where it has none.
std::string userName();

/// "serialcomm (process 4711)" for another process that has the node open, preferably one that has locked it; empty if
/// none can be seen.
std::string userOf(const std::string& path);

/// The same; "another program" if none can be seen.
std::string otherUser(const std::string& path);

/// The minor number of a character device with this major number; -1 for any other file.
int minorNumber(const std::string& path, unsigned int majorNumber);

/// The kernel driver of the chip at an address of an I2C bus; empty when there is none.
std::string i2cDriver(const std::string& bus, int address);

/// "4-0068": that chip's name in sysfs.
std::string i2cDeviceName(const std::string& bus, int address);

/// Whether there is hardware behind the tty of this name in sysfs.
bool isSerialPort(const std::string& name);
