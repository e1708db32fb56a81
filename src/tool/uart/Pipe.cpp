// The verb pipe: standard input to the port, the port to standard output, byte for byte.

#include "uart/Verbs.h"

#include "base/Bytes.h"
#include "uart/Port.h"
#include "uart/Values.h"

#include <unistd.h>

#include <algorithm>

namespace uart
{
namespace
{

constexpr size_t mostQueued = 65536;

struct Pipe : Line {
    milliseconds timeout{};
    std::optional<size_t> count;
};

void describe(Grammar& grammar, OutputOptions& /*output*/, Pipe& request)
{
    describeLine(grammar, request);
    grammar.option(
        "--timeout", "S", "Stop when standard input has ended and no data came for this many seconds", request.timeout,
        [](const std::string& text) { return parseSeconds("--timeout", text); }, "1");
    grammar.option("--count", "N", "Stop after N bytes from the port, decimal; status 1 if fewer came", request.count,
                   [](const std::string& text) { return parseCount(text, SIZE_MAX, "one pipe"); });
}

std::string traffic(const Pipe& request)
{
    return request.settings();
}

void run(const Pipe& request, Output& output)
{
    output.traffic(request.settings());
    const auto port = openPort(request);
    if (!port->slave().empty())
        printError("the other side is " + port->slave());
    const size_t most = request.count.value_or(SIZE_MAX);
    bool inputEnded = false;
    size_t sent = 0;
    size_t received = 0;
    while (received < most) {
        const Limits limits{inputEnded ? std::optional{request.timeout} : std::nullopt};
        const Port::Ready ready = port->wait(limits, inputEnded ? -1 : STDIN_FILENO, mostQueued);
        if (ready == Port::Ready::Silence)
            break;
        if (ready == Port::Ready::Bytes) {
            const ByteArray bytes = port->take(std::min<size_t>(most - received, 4096));
            received += bytes.size();
            printBytes(bytes);
        } else {
            const ByteArray bytes = readInput();
            inputEnded = bytes.empty();
            sent += bytes.size();
            port->queue(bytes);
        }
        output.progress(std::to_string(sent - std::min(sent, port->pending())) + " bytes sent, " +
                        std::to_string(received) + " received");
    }
    port->flush();
    if (request.count && received < most)
        throw Failure{TransferFailed, request.path + ": received " + std::to_string(received) + " of " +
                                          byteCount(most) + " before the timeout of " + secondsText(request.timeout)};
}

}  // namespace

void addPipe(Verbs& verbs)
{
    verbs.push_back(verb<Pipe>("uart", "pipe", "copy standard input to the port, and the port to standard output",
                               "uart pipe ttyUSB0 --timeout 3"));
}

}  // namespace uart
