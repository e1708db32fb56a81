// Device nodes: whether they exist, whether this user may open them, and who has them.

#include "doctor/Checks.h"

#include "device/System.h"

#include <algorithm>

namespace doctor
{
namespace
{

bool isGetty(const Process& process)
{
    const std::string& name = process.name;
    const std::string getty = "getty";
    return name == "login" || (name.size() >= getty.size() && name.substr(name.size() - getty.size()) == getty);
}

Finding denial(const std::string& path, const NodeAccess& access)
{
    if (access.verdict == NodeAccess::Forbidden)
        return {"device_rules",
                path,
                "forbidden by the device rules of this container or service",
                {"docker run --device " + path + " IMAGE"}};
    if (access.group.empty())
        return {"no_permission",
                path,
                "permission denied; only its owner may open it",
                {asRoot("chown " + userName() + ' ' + path)}};
    const std::string user = userName();
    Finding finding{"no_permission", path, "permission denied; it belongs to group " + access.group, {}};
    if (access.isMember)
        finding.cause += ", which " + user + " is in, but not yet in this session";
    else
        finding.repair.push_back(asRoot("usermod -aG " + access.group + ' ' + user));
    finding.repair.push_back("newgrp " + access.group);
    return finding;
}

}  // namespace

/// The kernel has the device, but /dev lacks its node, as in a container.
Findings missingNodes(const Bus& bus)
{
    const std::string folder = std::string{"/sys/class/"} + bus.sysfsClass + '/';
    Findings findings;
    for (const std::string& name : namesBelow(folder, "")) {
        const std::string node = "/dev/" + name;
        std::string number = firstLine(folder + name + "/dev");
        const bool hasNode = &bus.kind != &serialPorts || isSerialPort(name);
        if (number.empty() || !hasNode || exists(node))
            continue;
        std::replace(number.begin(), number.end(), ':', ' ');
        findings.push_back({"no_node",
                            node,
                            "no such node, but the kernel has the device",
                            {asRoot(std::string{"mknod -m 660 "}.append(node).append(" c ").append(number))}});
    }
    return findings;
}

Findings deniedNodes(const Bus& bus)
{
    Findings findings;
    for (const Node& node : bus.kind.nodes()) {
        const NodeAccess access = accessTo(node.path);
        if (access.verdict == NodeAccess::NoPermission || access.verdict == NodeAccess::Forbidden)
            findings.push_back(denial(node.path, access));
    }
    return findings;
}

/// A getty takes what a peer sends for a user's input; other programs are the user's own.
Findings usedNodes(const Bus& bus)
{
    Findings findings;
    for (const Node& node : bus.kind.nodes()) {
        std::string others;
        for (const Process& process : usersOf(node.path)) {
            if (isGetty(process))
                findings.push_back(
                    {"getty",
                     node.path,
                     process.text() + " lets users log in there",
                     {ending("serial-getty@" + node.path.substr(std::string{"/dev/"}.size()), process.id)}});
            else
                others += (others.empty() ? "" : ", ") + process.text();
        }
        if (!others.empty())
            findings.push_back({"in_use", node.path, "in use by " + others});
    }
    return findings;
}

}  // namespace doctor
