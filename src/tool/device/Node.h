// Device nodes: which there are, what is behind them, who may open them and who has them open.
#pragma once

#include "base/Failure.h"

#include <string>
#include <vector>

/// A device node, and what sysfs says about the device behind it. What is not known is empty.
struct Node {
    std::string path;
    std::string description;  ///< adapter's name, modalias, USB product
    std::string driver = {};
    std::string byId = {};    ///< the lasting name below /dev/serial/by-id
    std::string usbId = {};   ///< "0403:6001"
    std::string serial = {};  ///< serial number of a USB device
};

/// What the nodes of one bus have in common.
struct NodeKind {
    const char* bus;               ///< "i2c"
    const char* name;              ///< "an I2C bus"
    const char* prefix;            ///< "/dev/i2c-": its nodes can be named without it
    unsigned int majorNumber;      ///< of its nodes; 0 when there are several
    const char* others;            ///< "buses here"
    const char* missingHint;       ///< what to try when there is no such node
    std::vector<Node> (*nodes)();  ///< those that are present
};

extern const NodeKind i2cBuses;
extern const NodeKind spiDevices;
extern const NodeKind serialPorts;

/// A node that could not be opened: missing, forbidden, of another kind, busy, or else what `error` says.
Failure openFailure(const std::string& path, int error, const NodeKind& kind);

/// "yes", or why this user may not open the node: "no: group i2c".
std::string mayOpen(const std::string& path);

/// "serialcomm (process 4711)" for another process that has the node open, if possible locked; "another program" where
/// it cannot be seen.
std::string otherUser(const std::string& path);

/// The minor number of a character device with this major number; -1 for any other file.
int minorNumber(const std::string& path, unsigned int majorNumber);

/// The kernel driver of the chip at an address of an I2C bus; empty when there is none.
std::string i2cDriver(const std::string& bus, int address);

/// "4-0068": that chip's name in sysfs.
std::string i2cDeviceName(const std::string& bus, int address);

/// Names in a directory that begin with `prefix`, without it, in natural order; none when there is no such directory.
std::vector<std::string> namesBelow(const std::string& directory, const std::string& prefix);

/// First line of a small file such as those in sysfs; empty when it cannot be read.
std::string firstLine(const std::string& path);
