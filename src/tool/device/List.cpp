// The verb list.

#include "device/List.h"

#include "base/Bytes.h"
#include "device/Node.h"

#include <algorithm>
#include <array>

namespace
{

struct ListRequest : NoTraffic {
    std::string bus;  ///< empty: all of them
};

const std::array<const NodeKind*, 3> kinds = {&i2cBuses, &spiDevices, &serialPorts};

void describe(Grammar& grammar, OutputOptions& output, ListRequest& request)
{
    grammar.optionalWord("BUS", "Devices of one bus only", request.bus, parseWord).choose({"i2c", "spi", "uart"});
    grammar.output(output, true);
}

/// "FT232R USB UART (ftdi_sio), 0403:6001, serial A50285BI"
std::string descriptionOf(const Node& node)
{
    std::string text = node.description.empty() ? node.driver : node.description;
    if (!node.description.empty() && !node.usbId.empty())
        text += " (" + node.driver + ")";
    if (!node.usbId.empty())
        text += ", " + node.usbId;
    if (!node.serial.empty())
        text += ", serial " + node.serial;
    return printable(text);
}

void show(const NodeKind& kind, Output& output)
{
    const std::vector<Node> nodes = kind.nodes();
    size_t pathWidth = 14;
    size_t textWidth = 20;
    for (const Node& node : nodes) {
        pathWidth = std::max(pathWidth, node.path.size());
        textWidth = std::max(textWidth, descriptionOf(node).size());
    }
    for (const Node& node : nodes) {
        const std::string open = mayOpen(node.path);
        const bool may = open == "yes";
        std::string line = node.path;
        line.resize(pathWidth + 2, ' ');
        line += descriptionOf(node);
        line.resize(pathWidth + textWidth + 4, ' ');
        line += "open: " + open;
        if (!node.byId.empty())
            line += "  " + printable(node.byId);
        Fields fields{{"bus", kind.bus},
                      {"device", node.path},
                      {"description", textOrNull(node.description)},
                      {"driver", textOrNull(node.driver)},
                      {"open", may},
                      {"reason", textOrNull(may ? "" : open.substr(4))}};
        if (&kind == &serialPorts) {
            fields["by_id"] = textOrNull(node.byId);
            fields["usb_id"] = textOrNull(node.usbId);
            fields["serial"] = textOrNull(node.serial);
        }
        output.result(fields, line);
    }
    if (nodes.empty())
        printError(std::string{"no "} + kind.bus + " device found");
}

void run(const ListRequest& request, Output& output)
{
    for (const NodeKind* kind : kinds) {
        if (request.bus.empty() || request.bus == kind->bus)
            show(*kind, output);
    }
}

}  // namespace

void addListVerb(Verbs& verbs)
{
    verbs.push_back(
        verb<ListRequest>("", "list", "list devices, their drivers and whether you can open them", "list i2c"));
}
