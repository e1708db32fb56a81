// Controllers: what the device tree says about them, and whether a driver has them.

#include "doctor/Checks.h"

#include "device/System.h"

namespace doctor
{
namespace
{

const std::string tree = "/proc/device-tree";

bool isEnabled(const std::string& node)
{
    const std::string status = firstLine(node + "/status");
    return status.empty() || status == "okay" || status == "ok";
}

/// Adds the controllers below a node that are disabled, each with its path in the device tree.
void collectDisabled(const std::string& path, const std::string& controller, std::vector<std::string>& found)
{
    for (const std::string& name : namesBelow(tree + path, "")) {
        const std::string below = std::string{path}.append("/").append(name);
        if (!exists(tree + below + "/name"))  // a property
            continue;
        if (isEnabled(tree + below))
            collectDisabled(below, controller, found);
        else if (name.compare(0, controller.size() + 1, controller + '@') == 0)
            found.push_back(below);
    }
}

std::string nameOf(const std::string& path)
{
    return path.substr(path.rfind('/') + 1);
}

}  // namespace

/// That some are disabled is usual, as not all are wired. It is the cause when no other is there.
Findings disabledControllers(const Bus& bus)
{
    std::vector<std::string> paths;
    collectDisabled("", bus.treeName, paths);
    Findings findings;
    std::string names;
    for (const std::string& path : paths) {
        names += (names.empty() ? "" : ", ") + nameOf(path);
        findings.push_back({"disabled",
                            nameOf(path),
                            "disabled in the device tree",
                            {"fdtput -t s BOARD.dtb " + path + " status okay", asRoot("reboot")}});
    }
    if (findings.empty() || bus.controllers().empty())
        return findings;
    return {{"disabled", "device tree", "disabled: " + names}};
}

Findings controllersWithoutDriver(const Bus& bus)
{
    const std::string devices = "/sys/bus/platform/devices/";
    Findings findings;
    for (const std::string& name : namesBelow(devices, "")) {
        const std::string device = devices + name;
        if (firstLine(device + "/of_node/name") != bus.treeName || exists(device + "/driver"))
            continue;
        findings.push_back({"no_driver",
                            name,
                            "enabled in the device tree, but no driver is bound to it",
                            {asRoot("modprobe \"$(cat " + device + "/modalias)\""),
                             writing(name, "/sys/bus/platform/drivers_probe")}});
    }
    return findings;
}

}  // namespace doctor
