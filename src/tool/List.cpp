#include "List.h"

#include "Failure.h"
#include "Hints.h"
#include "I2cCommands.h"
#include "Output.h"
#include "SpiCommands.h"
#include "UartPort.h"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace
{

void show(const Common& common, const std::string& bus, const std::vector<Node>& nodes)
{
    size_t pathWidth = 14;
    size_t whatWidth = 20;
    for (const Node& node : nodes) {
        pathWidth = std::max(pathWidth, node.path.size());
        whatWidth = std::max(whatWidth, node.what.size());
    }
    for (const Node& node : nodes) {
        const std::string open = mayOpen(node.path);
        if (common.json) {
            printJson({{"bus", bus}, {"device", node.path}, {"what", node.what}, {"open", open}});
            continue;
        }
        std::string line = node.path;
        line.resize(pathWidth + 2, ' ');
        line += node.what;
        line.resize(pathWidth + whatWidth + 4, ' ');
        printLine(line.append("open: ").append(open));
    }
    if (nodes.empty())
        say("no " + bus + " device here");
}

}  // namespace

void list(const Common& common, const std::string& bus)
{
    if (!bus.empty() && bus != "i2c" && bus != "spi" && bus != "uart")
        throw Failure{WrongCommandLine, "list " + bus + ": i2c, spi or uart"};
    if (bus.empty() || bus == "i2c")
        show(common, "i2c", i2cBuses());
    if (bus.empty() || bus == "spi")
        show(common, "spi", spidevNodes());
    if (bus.empty() || bus == "uart")
        show(common, "uart", serialPorts());
}
