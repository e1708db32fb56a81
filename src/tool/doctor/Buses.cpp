// What can be wrong on one bus only.

#include "doctor/Checks.h"

#include "base/Values.h"
#include "device/System.h"

namespace doctor
{

Findings i2cDevNotLoaded(const Bus& bus)
{
    if (bus.controllers().empty() || exists(std::string{"/sys/class/"} + bus.sysfsClass))
        return {};
    return {{"no_i2c_dev", "i2c-dev", "the driver is not loaded: no bus has a node", {asRoot("modprobe i2c-dev")}}};
}

Findings i2cChipsInUse(const Bus& /*bus*/)
{
    const std::string devices = "/sys/bus/i2c/devices/";
    Findings findings;
    for (const std::string& name : namesBelow(devices, "")) {
        const size_t dash = name.find('-');
        const std::string driver = linkTarget(devices + name + "/driver");
        if (dash != std::string::npos && consistsOf(name.substr(0, dash), "0123456789") && !driver.empty())
            findings.push_back({"in_use", "0x" + name.substr(name.size() - 2) + " on /dev/i2c-" + name.substr(0, dash),
                                "in use by the kernel driver " + driver});
    }
    return findings;
}

Findings spiBusesWithoutDevice(const Bus& bus)
{
    Findings findings;
    for (const std::string& name : bus.controllers()) {
        if (namesBelow("/sys/bus/spi/devices", name + ".").empty())
            findings.push_back({"no_device", name, "no device: the device tree names no chip on this bus"});
    }
    return findings;
}

/// Without a driver, or with a chip's own, a device has no node.
Findings spiDevicesWithoutSpidev(const Bus& /*bus*/)
{
    const std::string devices = "/sys/bus/spi/devices/";
    const std::string spidev = "/sys/bus/spi/drivers/spidev";
    Findings findings;
    for (const std::string& name : namesBelow(devices, "")) {
        const std::string driver = linkTarget(devices + name + "/driver");
        if (driver == "spidev")
            continue;
        if (!driver.empty()) {
            findings.push_back({"in_use", name, "in use by the kernel driver " + driver});
            continue;
        }
        Finding finding{"no_driver", name, "no driver; its modalias is " + firstLine(devices + name + "/modalias")};
        if (!exists(spidev))
            finding.repair.push_back(asRoot("modprobe spidev"));
        finding.repair.push_back(writing("spidev", devices + name + "/driver_override"));
        finding.repair.push_back(writing(name, spidev + "/bind"));
        findings.push_back(finding);
    }
    return findings;
}

/// It looks for modems at USB ports that are plugged in, unless a udev rule excludes them.
Findings modemManager(const Bus& bus)
{
    const std::vector<Process> managers = processesNamed("ModemManager");
    Findings findings;
    for (const Node& port : managers.empty() ? std::vector<Node>{} : bus.kind.nodes()) {
        const std::string name = port.path.substr(port.path.rfind('/') + 1);
        const std::string properties = contentOf("/run/udev/data/c" + firstLine("/sys/class/tty/" + name + "/dev"));
        if (!port.usbId.empty() && properties.find("ID_MM_DEVICE_IGNORE=1") == std::string::npos)
            findings.push_back({"modem_manager",
                                port.path,
                                managers.front().text() + " sends commands to it when it is plugged in",
                                {ending("ModemManager", managers.front().id)}});
    }
    return findings;
}

/// How long a USB adapter keeps received bytes back to collect more; 16 ms unless it was set.
Findings latencyTimers(const Bus& bus)
{
    constexpr uint64_t unlessSet = 16;
    Findings findings;
    for (const Node& port : bus.kind.nodes()) {
        const std::string name = port.path.substr(port.path.rfind('/') + 1);
        const std::string file = "/sys/class/tty/" + name + "/device/latency_timer";
        const std::string latency = firstLine(file);
        if (numberOf(latency, 10).value_or(0) >= unlessSet)
            findings.push_back({"latency",
                                port.path,
                                "latency timer at " + latency + " ms: short answers come that late",
                                {writing("1", file)}});
    }
    return findings;
}

}  // namespace doctor
