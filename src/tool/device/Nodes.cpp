// The nodes of each bus, from /dev and sysfs.

#include "device/Node.h"

#include "base/Bytes.h"
#include "device/System.h"

namespace
{

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
        if (!isSerialPort(name) || !exists("/dev/" + name))  // a container may lack the node
            continue;
        const std::string device = "/sys/class/tty/" + name + "/device";
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

bool isSerialPort(const std::string& name)
{
    const std::string tty = "/sys/class/tty/" + name;
    return exists(tty + "/device") &&
           firstLine(tty + "/type") != "0";  // 0: the driver for PC ports keeps it in reserve
}

std::string i2cDeviceName(const std::string& bus, int address)
{
    return std::to_string(minorNumber(bus, i2cBuses.majorNumber)) + "-" +
           hexNumber(static_cast<unsigned int>(address), 4).substr(2);
}

std::string i2cDriver(const std::string& bus, int address)
{
    return linkTarget("/sys/bus/i2c/devices/" + i2cDeviceName(bus, address) + "/driver");
}
