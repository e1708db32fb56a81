#include "UartCommands.h"

#include "Failure.h"
#include "Format.h"
#include "Output.h"
#include "UartPort.h"
#include "Values.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>

namespace
{

/// "-" and --hex go out as they are, text with the line end after it.
Bytes outgoing(const UartArguments& arguments)
{
    Bytes bytes;
    if (arguments.text == std::vector<std::string>{"-"})
        bytes = readStandardInput(maxBytes);
    else if (arguments.hex)
        bytes = parseBytes(arguments.text);
    else {
        bytes = parseText(arguments.text);
        const Bytes lineEnd = parseLineEnd(arguments.lineEnd);
        bytes.insert(bytes.end(), lineEnd.begin(), lineEnd.end());
    }
    if (bytes.empty())
        throw Failure{WrongCommandLine, "no bytes to send"};
    return bytes;
}

std::string traffic(const Bytes& bytes, const Line& line)
{
    return (bytes.empty() ? "" : shortHex(bytes) + "  ") + line.settings();
}

ByteArray receive(Port& port, const Common& common, const UartArguments& arguments, size_t most,
                  std::optional<milliseconds> wait)
{
    const bool inBursts = common.json || arguments.hex;
    return inBursts ? port.receiveBurst(most, wait) : port.receive(most, wait);
}

void show(const ByteArray& bytes, const Common& common, const UartArguments& arguments)
{
    if (common.json)
        printJson({{"bytes", bytes}, {"text", std::string(bytes.begin(), bytes.end())}});
    else if (arguments.hex)
        printLine(hexLine(bytes));
    else
        printBytes(bytes);
}

/// "1 s", "0.5 s"
std::string seconds(milliseconds time)
{
    return std::to_string(time.count() / 1000) + (time.count() % 1000 == 0 ? "" : ".5") + " s";
}

std::optional<milliseconds> timeoutOf(const UartArguments& arguments)
{
    if (arguments.timeout.empty())
        return {};
    return parseTimeout(arguments.timeout);
}

}  // namespace

Line lineOf(const UartArguments& arguments)
{
    checkParity(arguments.parity);
    return {uartPath(arguments.port), parseBaudRate(arguments.baudRate), arguments.parity,
            parseStopBits(arguments.stopBits)};
}

void announceSlave(const Common& common, const Port& port)
{
    if (port.slave().empty())
        return;
    if (common.json)
        printJson({{"slave", port.slave()}});
    else
        printLine(port.slave());
}

void uartRead(const Common& common, const UartArguments& arguments)
{
    const Line line = lineOf(arguments);
    const auto wait = timeoutOf(arguments);
    const bool counted = !arguments.count.empty();
    const size_t count = counted ? parseCount(arguments.count, maxBytes, "one read") : SIZE_MAX;
    if (showTraffic(common, (counted ? "[" + arguments.count + "]  " : "") + line.settings()))
        return;

    Port port{line};
    announceSlave(common, port);
    size_t received = 0;
    while (received < count) {
        const ByteArray bytes = receive(port, common, arguments, count - received, wait);
        if (bytes.empty())
            break;
        show(bytes, common, arguments);
        received += bytes.size();
    }
    if (received == 0)
        throw Failure{TransferFailed, line.path + ": nothing came within " + seconds(*wait) + " at " + line.settings(),
                      "another --baud; TX and RX crossed?"};
    if (counted && received < count)
        throw Failure{TransferFailed, line.path + ": " + std::to_string(received) + " of " + arguments.count +
                                          " bytes, then silence for " + seconds(*wait)};
}

void uartWrite(const Common& common, const UartArguments& arguments)
{
    const Line line = lineOf(arguments);
    const Bytes bytes = outgoing(arguments);
    if (showTraffic(common, traffic(bytes, line)))
        return;

    Port port{line};
    announceSlave(common, port);
    port.waitForPeer();
    port.send(bytes);
    port.waitUntilRead();
}

void uartAsk(const Common& common, const UartArguments& arguments)
{
    const Line line = lineOf(arguments);
    const Bytes question = outgoing(arguments);
    const milliseconds wait = timeoutOf(arguments).value_or(milliseconds{1000});
    const Bytes until = arguments.hex ? parseBytes({arguments.until}) : parseText({arguments.until});
    if (showTraffic(common, traffic(question, line)))
        return;

    Port port{line};
    announceSlave(common, port);
    port.waitForPeer();
    port.send(question);

    Bytes answer;  // its end, as far as it matters
    bool answered = false;
    for (;;) {
        const ByteArray bytes = receive(port, common, arguments, SIZE_MAX, wait);
        if (bytes.empty())
            break;
        answered = true;
        show(bytes, common, arguments);
        answer.insert(answer.end(), bytes.begin(), bytes.end());
        if (!until.empty() && std::search(answer.begin(), answer.end(), until.begin(), until.end()) != answer.end())
            return;
        if (answer.size() > until.size())
            answer.erase(answer.begin(), answer.end() - static_cast<std::ptrdiff_t>(until.size()));
    }
    if (!answered)
        throw Failure{TransferFailed, line.path + ": no answer within " + seconds(wait) + " at " + line.settings(),
                      "another --baud or --eol; TX and RX crossed?"};
    if (!until.empty())
        throw Failure{TransferFailed, line.path + ": an answer, but no \"" + arguments.until + "\" before " +
                                          seconds(wait) + " of silence"};
}

void uartEcho(const Common& common, const UartArguments& arguments)
{
    const Line line = lineOf(arguments);
    if (showTraffic(common, line.settings()))
        return;

    Port port{line};
    announceSlave(common, port);
    for (;;) {
        const ByteArray bytes = receive(port, common, arguments, SIZE_MAX, {});
        port.send(bytes);
        show(bytes, common, arguments);
    }
}
