// The verb doctor: why a device cannot be used, and the command that changes that.

#include "doctor/Doctor.h"

#include "base/Bytes.h"
#include "base/Failure.h"
#include "device/System.h"
#include "doctor/Checks.h"

#include <grp.h>
#include <unistd.h>

#include <algorithm>
#include <array>

namespace doctor
{
namespace
{

struct Request : NoTraffic {
    std::string bus;  ///< empty: all of them
};

std::vector<std::string> withPrefix(const std::string& prefix, std::vector<std::string> names)
{
    for (std::string& name : names)
        name.insert(0, prefix);
    return names;
}

std::vector<std::string> i2cControllers()
{
    return withPrefix("i2c-", namesBelow("/sys/bus/i2c/devices", "i2c-"));
}

std::vector<std::string> spiControllers()
{
    return namesBelow("/sys/class/spi_master", "");
}

std::vector<std::string> serialControllers()
{
    std::vector<std::string> names = namesBelow("/sys/class/tty", "");
    names.erase(std::remove_if(names.begin(), names.end(), [](const auto& name) { return !isSerialPort(name); }),
                names.end());
    return names;
}

using Check = Findings (*)(const Bus&);

struct Examination {
    Bus bus;
    std::vector<Check> checks;
};

std::array<Examination, 3> examinations()
{
    return {{
        {{i2cBuses, "i2c", "i2c-dev", i2cControllers},
         {disabledControllers, controllersWithoutDriver, i2cDevNotLoaded, missingNodes, deniedNodes, usedNodes,
          i2cChipsInUse}},
        {{spiDevices, "spi", "spidev", spiControllers},
         {disabledControllers, controllersWithoutDriver, spiBusesWithoutDevice, spiDevicesWithoutSpidev, missingNodes,
          deniedNodes, usedNodes}},
        {{serialPorts, "serial", "tty", serialControllers},
         {disabledControllers, controllersWithoutDriver, missingNodes, deniedNodes, usedNodes, modemManager,
          latencyTimers}},
    }};
}

void describe(Grammar& grammar, OutputOptions& output, Request& request)
{
    grammar.optionalWord("BUS", "Check one bus only", request.bus, parseWord).choose({"i2c", "spi", "uart"});
    grammar.output(output, true);
}

/// The groups that count for this process, which are those of the login.
std::vector<std::string> sessionGroups()
{
    std::vector<gid_t> ids(static_cast<size_t>(std::max(getgroups(0, nullptr), 0)));
    ids.resize(static_cast<size_t>(std::max(getgroups(static_cast<int>(ids.size()), ids.data()), 0)));
    if (std::find(ids.begin(), ids.end(), getegid()) == ids.end())
        ids.insert(ids.begin(), getegid());
    std::vector<std::string> names;
    for (const gid_t id : ids) {
        const struct group* group = getgrgid(id);
        names.push_back(group == nullptr ? std::to_string(id) : group->gr_name);
    }
    return names;
}

void showSession(Output& output)
{
    const std::vector<std::string> groups = sessionGroups();
    std::string names;
    for (const std::string& group : groups)
        names += (names.empty() ? "" : ", ") + group;
    output.result({{"user", userName()}, {"groups", groups}},
                  printable("user " + userName() + ", groups of this session: " + names));
}

std::string counted(size_t count, const std::string& what)
{
    return std::to_string(count) + ' ' + what + (count == 1 ? "" : "s");
}

bool isFault(const Finding& finding)
{
    return !finding.repair.empty();
}

void show(const char* bus, const Finding& finding, Output& output)
{
    std::string text = printable(finding.object + ": " + finding.cause);
    for (const std::string& command : finding.repair)
        text += "\n  " + printable(command);
    output.result({{"bus", bus},
                   {"finding", finding.name},
                   {"object", finding.object},
                   {"fault", isFault(finding)},
                   {"cause", finding.cause},
                   {"repair", finding.repair}},
                  text);
}

/// Whether all is well there. Nothing there is well unless it was asked for.
bool examine(const Examination& examination, bool asked, Output& output)
{
    const Bus& bus = examination.bus;
    Findings findings;
    for (const Check check : examination.checks) {
        for (const Finding& finding : check(bus))
            findings.push_back(finding);
    }
    const size_t controllers = bus.controllers().size();
    const size_t nodes = bus.kind.nodes().size();
    const auto faults = static_cast<size_t>(std::count_if(findings.begin(), findings.end(), isFault));
    output.result({{"bus", bus.kind.bus}, {"controllers", controllers}, {"nodes", nodes}, {"faults", faults}},
                  std::string{bus.kind.bus} + ": " + counted(controllers, "controller") + ", " +
                      counted(nodes, "node") + ", " + counted(faults, "fault"));
    for (const Finding& finding : findings)
        show(bus.kind.bus, finding, output);
    const bool missing = asked && controllers == 0 && findings.empty();
    if (missing)
        printError(std::string{"no "} + bus.kind.bus + " controller here");
    return faults == 0 && !missing;
}

void run(const Request& request, Output& output)
{
    showSession(output);
    bool well = true;
    for (const Examination& examination : examinations()) {
        if (request.bus.empty() || request.bus == examination.bus.kind.bus)
            well = examine(examination, !request.bus.empty(), output) && well;
    }
    if (!well)
        throw ExitStatus{TransferFailed};
}

}  // namespace
}  // namespace doctor

void addDoctorVerb(Verbs& verbs)
{
    verbs.push_back(
        verb<doctor::Request>("", "doctor", "report why devices cannot be used, and how to repair it", "doctor i2c"));
}
