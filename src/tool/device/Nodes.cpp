// The nodes of each bus, from /dev and sysfs.

#include "device/Node.h"

#include "base/Bytes.h"

#include <limits.h>
#include <stdlib.h>
#include <unistd.h>

#include <array>

namespace
{

std::string linkTarget(const std::string& path)
{
    std::array<char, PATH_MAX> target{};
    const ssize_t length = readlink(path.c_str(), target.data(), target.size());
    const std::string text(target.data(), length > 0 ? static_cast<size_t>(length) : 0);
    return text.substr(text.rfind('/') + 1);
}

bool exists(const std::string& path)
{
    return access(path.c_str(), F_OK) == 0;
}

/// The absolute path that a symbolic link leads to; empty if the link is broken.
std::string realPath(const std::string& path)
{
    std::array<char, PATH_MAX> target{};
    return realpath(path.c_str(), target.data()) == nullptr ? "" : target.data();
}

std::vector<Node> i2cNodes()
{
    std::vector<Node> nodes;
    for (const std::string& number : namesBelow("/dev", "i2c-"))
        nodes.push_back({"/dev/i2c-" + number, firstLine("/sys/bus/i2c/devices/i2c-" + number + "/name")});
    return nodes;
}

std::vector<Node> spiNodes()
{
    std::vector<Node> nodes;
    for (const std::string& number : namesBelow("/dev", "spidev")) {
        const std::string device = "/sys/bus/spi/devices/spi" + number;
        nodes.push_back({"/dev/spidev" + number, firstLine(device + "/modalias"), linkTarget(device + "/driver")});
    }
    return nodes;
}

std::string byIdOf(const std::string& path)
{
    const std::string directory = "/dev/serial/by-id/";
    for (const std::string& name : namesBelow(directory, "")) {
        if (realPath(directory + name) == path)
            return directory + name;
    }
    return {};
}

/// The USB attributes belong to the device above the interface, one or two levels above the tty's device.
void addUsb(const std::string& device, Node& node)
{
    for (const std::string above : {"/../", "/../../"}) {
        const std::string vendor = firstLine(device + above + "idVendor");
        if (vendor.empty())
            continue;
        node.usbId = vendor + ':' + firstLine(device + above + "idProduct");
        node.serial = firstLine(device + above + "serial");
        node.description = firstLine(device + above + "product");
        return;
    }
}

std::vector<Node> serialNodes()
{
    std::vector<Node> nodes;
    for (const std::string& name : namesBelow("/sys/class/tty", "")) {
        const std::string device = "/sys/class/tty/" + name + "/device";
        // The driver of PC ports also lists ports without hardware, with type 0. A container may lack the node.
        if (!exists(device) || firstLine("/sys/class/tty/" + name + "/type") == "0" || !exists("/dev/" + name))
            continue;
        // Newer kernels put two devices of their own, with the driver "port", between the tty and the hardware.
        const bool direct = linkTarget(device + "/driver") != "port";
        Node node{"/dev/" + name, "", linkTarget(device + (direct ? "/driver" : "/../../driver"))};
        addUsb(device, node);
        node.byId = byIdOf(node.path);
        nodes.push_back(node);
    }
    return nodes;
}

}  // namespace

const NodeKind i2cBuses{"i2c",   "an I2C bus",  "/dev/i2c-",
                        89,      "buses found", "modprobe i2c-dev, if the bus exists in /sys/bus/i2c/devices",
                        i2cNodes};
const NodeKind spiDevices{"spi",
                          "a spidev node",
                          "/dev/spidev",
                          153,
                          "spidev nodes found",
                          "bind the spidev driver, by the device tree or by driver_override in /sys/bus/spi/devices",
                          spiNodes};
const NodeKind serialPorts{"uart", "a serial port", "/dev/", 0, "ports found", "serialcomm list uart", serialNodes};

std::string i2cDeviceName(const std::string& bus, int address)
{
    return std::to_string(minorNumber(bus, i2cBuses.majorNumber)) + "-" +
           hexNumber(static_cast<unsigned int>(address), 4).substr(2);
}

std::string i2cDriver(const std::string& bus, int address)
{
    return linkTarget("/sys/bus/i2c/devices/" + i2cDeviceName(bus, address) + "/driver");
}
