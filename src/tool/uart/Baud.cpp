// The verb baud: finds the rate of a device that sends.

#include "uart/Verbs.h"

#include "BaudRanking.h"
#include "base/Bytes.h"
#include "base/Signals.h"
#include "uart/SerialPort.h"
#include "uart/Values.h"

#include <algorithm>
#include <cmath>

namespace uart
{
namespace
{

constexpr size_t enoughBytes = 512;

struct Baud {
    PortSettings port;
    std::vector<uint32_t> rates;
    milliseconds time{};
};

std::vector<uint32_t> parseRates(const std::string& text)
{
    std::vector<uint32_t> rates;
    for (size_t start = 0; start <= text.size();) {
        const size_t end = std::min(text.find(',', start), text.size());
        rates.push_back(parseBaudRate(text.substr(start, end - start)));
        start = end + 1;
    }
    return rates;
}

void describe(Grammar& grammar, OutputOptions& output, Baud& request)
{
    describeTty(grammar, request.port.path);
    grammar.option("--rates", "LIST", "Rates to listen at, separated by commas", request.rates, parseRates,
                   "1200,2400,4800,9600,19200,38400,57600,115200,230400,250000,460800,500000,921600,1000000");
    grammar.option(
        "--time", "S", "Listen this many seconds at each rate, less if 512 bytes come", request.time,
        [](const std::string& text) { return parseSeconds("--time", text); }, "1");
    describeFrame(grammar, request.port);
    grammar.output(output, true);
}

/// A line for each rate: "[1 s]  9600 8N1".
std::string traffic(const Baud& request)
{
    std::string lines;
    for (const uint32_t rate : request.rates) {
        PortSettings settings = request.port;
        settings.baudRate = rate;
        lines += (lines.empty() ? "" : "\n") + ("[" + secondsText(request.time)) + "]  " + settings.traffic();
    }
    return lines;
}

BaudSample listen(SerialPort& port, uint32_t rate, milliseconds time)
{
    port.setBaudRate(rate);
    const auto before = port.counters();
    const auto deadline = steady_clock::now() + time;
    BaudSample sample{rate, {}, 0};
    while (sample.bytes.size() < enoughBytes) {
        const ByteArray bytes = port.receive(enoughBytes - sample.bytes.size(), {{}, deadline});
        if (bytes.empty())
            break;
        sample.bytes.insert(sample.bytes.end(), bytes.begin(), bytes.end());
    }
    const auto after = port.counters();
    if (before && after)
        sample.framingErrors = after->framing - before->framing;
    return sample;
}

std::string textOf(const BaudScore& score)
{
    return std::to_string(score.baudRate) + ": " + byteCount(score.bytes) + ", " + std::to_string(score.framingErrors) +
           " framing errors, " + std::to_string(std::lround(score.printable * 100)) + " % text";
}

void run(const Baud& request, Output& output)
{
    output.traffic(traffic(request));
    PortSettings settings = request.port;
    settings.baudRate = request.rates.front();
    SerialPort port{settings};
    port.expectErrors();
    if (!port.counters())
        printError(request.port.path + ": this driver counts no framing errors, so only text can be recognised");
    std::vector<BaudSample> samples;
    for (const uint32_t rate : request.rates) {
        output.progress("listening at " + std::to_string(rate));
        samples.push_back(listen(port, rate, request.time));
    }
    const BaudRanking ranking = rankBaudRates(samples);
    for (const BaudScore& score : ranking.scores)
        output.result({{"baud", score.baudRate},
                       {"bytes", score.bytes},
                       {"framing_errors", port.counters() ? Json{score.framingErrors} : Json{}},
                       {"printable", score.printable},
                       {"score", score.score}},
                      textOf(score));
    const bool silent = std::all_of(samples.begin(), samples.end(), [](const auto& one) { return one.bytes.empty(); });
    if (silent)
        throw Failure{TransferFailed, request.port.path + ": nothing received at any rate",
                      "a longer --time, or check whether TX and RX are swapped"};
    if (!ranking.decided)
        throw Failure{TransferFailed, request.port.path + ": undecided", "a longer --time, or other --rates"};
    output.result({{"baud", ranking.scores.front().baudRate}, {"decided", true}},
                  "decided: " + std::to_string(ranking.scores.front().baudRate));
}

}  // namespace

void addBaud(Verbs& verbs)
{
    verbs.push_back(verb<Baud>("uart", "baud", "listen, and find the baud rate of a device that sends",
                               "uart baud ttyUSB0 --rates 9600,115200"));
}

}  // namespace uart
