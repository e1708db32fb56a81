// The verb info: what driver and kernel report about a port.

#include "uart/Verbs.h"

#include "base/Bytes.h"
#include "device/Node.h"
#include "device/System.h"
#include "uart/OpenLine.h"
#include "uart/Values.h"

#include <algorithm>

namespace uart
{
namespace
{

struct Info : NoTraffic {
    std::string path;
};

void describe(Grammar& grammar, OutputOptions& output, Info& request)
{
    describeTty(grammar, request.path);
    grammar.output(output, true);
}

/// Everything that can be asked; empty where the driver does not support the request.
struct State {
    explicit State(const Line& line)
        : settings(line.settings()), modemLines(line.modemLines()), counters(line.counters()), unread(line.unread()),
          unsent(line.unsent()), hardware(line.hardware()), rs485(line.rs485())
    {
    }

    std::optional<Line::Settings> settings;
    std::optional<Line::ModemLines> modemLines;
    std::optional<Line::Counters> counters;
    std::optional<size_t> unread;
    std::optional<size_t> unsent;
    std::optional<Line::Hardware> hardware;
    std::optional<Line::Rs485> rs485;
};

template <typename Record, typename Value>
Json field(const std::optional<Record>& record, Value Record::*member)
{
    return record ? Json{(*record).*member} : Json{};
}

Json valueOrNull(const std::optional<size_t>& value)
{
    return value ? Json{*value} : Json{};
}

Node nodeOf(const std::string& path)
{
    const std::vector<Node> nodes = serialPorts.nodes();
    const std::string real = realPath(path);
    const auto found = std::find_if(nodes.begin(), nodes.end(), [&](const Node& node) { return node.path == real; });
    return found == nodes.end() ? Node{path, {}} : *found;
}

/// Of FTDI adapters, in ms: how long received bytes wait for more.
std::string latencyTimer(const std::string& path)
{
    const std::string real = realPath(path);
    return firstLine("/sys/class/tty/" + real.substr(real.rfind('/') + 1) + "/device/latency_timer");
}

Fields fieldsOf(const std::string& path, const Node& node, const State& state)
{
    const auto& settings = *state.settings;
    const std::string timer = latencyTimer(path);
    return {{"device", path},
            {"description", textOrNull(node.description)},
            {"driver", textOrNull(node.driver)},
            {"user", textOrNull(userOf(path))},
            {"baud", settings.baudRate},
            {"data_bits", settings.dataBits},
            {"parity", nameOf(settings.parity)},
            {"stop_bits", settings.stopBits},
            {"rts_cts", settings.rtsCts},
            {"xon_xoff", settings.xonXoff},
            {"hang_up", settings.hangUpOnClose},
            {"dtr", field(state.modemLines, &Line::ModemLines::dtr)},
            {"rts", field(state.modemLines, &Line::ModemLines::rts)},
            {"cts", field(state.modemLines, &Line::ModemLines::cts)},
            {"dsr", field(state.modemLines, &Line::ModemLines::dsr)},
            {"dcd", field(state.modemLines, &Line::ModemLines::dcd)},
            {"ri", field(state.modemLines, &Line::ModemLines::ri)},
            {"received", field(state.counters, &Line::Counters::received)},
            {"sent", field(state.counters, &Line::Counters::sent)},
            {"framing_errors", field(state.counters, &Line::Counters::framing)},
            {"parity_errors", field(state.counters, &Line::Counters::parity)},
            {"overruns", field(state.counters, &Line::Counters::overrun)},
            {"buffer_overruns", field(state.counters, &Line::Counters::bufferOverrun)},
            {"breaks", field(state.counters, &Line::Counters::breaks)},
            {"unread", valueOrNull(state.unread)},
            {"unsent", valueOrNull(state.unsent)},
            {"fifo", field(state.hardware, &Line::Hardware::fifoBytes)},
            {"low_latency", field(state.hardware, &Line::Hardware::lowLatency)},
            {"latency_timer", timer.empty() ? Json{} : Json{numberOf(timer, 10).value_or(0)}},
            {"rs485", field(state.rs485, &Line::Rs485::enabled)},
            {"rts_on_send", field(state.rs485, &Line::Rs485::rtsOnSend)},
            {"receive_during_send", field(state.rs485, &Line::Rs485::receiveDuringSend)},
            {"delay_before", field(state.rs485, &Line::Rs485::delayBeforeSendMs)},
            {"delay_after", field(state.rs485, &Line::Rs485::delayAfterSendMs)}};
}

std::string linesText(const Line::ModemLines& lines)
{
    const auto level = [](const char* name, bool on) { return std::string{name} + (on ? " on" : " off"); };
    return level("DTR", lines.dtr) + level(", RTS", lines.rts) + level(", CTS", lines.cts) + level(", DSR", lines.dsr) +
           level(", DCD", lines.dcd) + level(", RI", lines.ri);
}

std::string errorsText(const Line::Counters& counters)
{
    return std::to_string(counters.framing) + " framing, " + std::to_string(counters.parity) + " parity, " +
           std::to_string(counters.overrun) + " FIFO overruns, " + std::to_string(counters.bufferOverrun) +
           " buffer overruns, " + std::to_string(counters.breaks) + " breaks";
}

std::string countText(uint32_t total, const std::optional<size_t>& waiting, const char* what)
{
    return byteCount(total) + (waiting ? ", " + std::to_string(*waiting) + what : "");
}

/// A name and a value in each line, which begins with a line break except for the first.
class Table
{
public:
    void add(const std::string& name, const std::string& value)
    {
        std::string line = name + ':';
        line.resize(16, ' ');
        text += (text.empty() ? "" : "\n") + line + printable(value);
    }

    /// What the driver does not support is named so.
    template <typename Record, typename Render>
    void add(const std::string& name, const std::optional<Record>& record, Render render)
    {
        add(name, record ? render(*record) : "not supported by this driver");
    }

    std::string text;
};

std::string textOf(const std::string& path, const Node& node, const State& state)
{
    const std::string timer = latencyTimer(path);
    const std::string user = userOf(path);
    Table table;
    table.add("device", path);
    if (!node.description.empty())
        table.add("description", node.description);
    table.add("driver", node.driver.empty() ? "unknown" : node.driver);
    table.add("in use by", user.empty() ? "no other program" : user);
    table.add("settings", settingsText(*state.settings));
    table.add("modem lines", state.modemLines, linesText);
    table.add("received", state.counters,
              [&](const auto& counters) { return countText(counters.received, state.unread, " unread"); });
    table.add("sent", state.counters,
              [&](const auto& counters) { return countText(counters.sent, state.unsent, " unsent"); });
    table.add("errors", state.counters, errorsText);
    table.add("FIFO", state.hardware, [](const auto& hardware) { return byteCount(hardware.fifoBytes); });
    table.add("low latency", state.hardware,
              [](const auto& hardware) { return std::string{hardware.lowLatency ? "on" : "off"}; });
    if (!timer.empty())
        table.add("latency timer", timer + " ms");
    table.add("RS-485", state.rs485, rs485Text);
    return table.text;
}

void run(const Info& request, Output& output)
{
    Line line{request.path};
    openLine(line);
    const ErrorScope errors{ErrorScope::Hidden};
    const State state{line};
    if (!state.settings)
        throw lineFailure(TransferFailed, line, "settings", errors);
    const Node node = nodeOf(request.path);
    output.result(fieldsOf(request.path, node, state), textOf(request.path, node, state));
}

}  // namespace

void addInfo(Verbs& verbs)
{
    verbs.push_back(
        verb<Info>("uart", "info", "show driver, settings, modem lines, error counters and user", "uart info ttyUSB0"));
}

}  // namespace uart
