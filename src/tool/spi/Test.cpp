// The verb test: what comes back with MOSI connected to MISO.

#include "spi/Verbs.h"

#include "base/Bytes.h"
#include "spi/Chip.h"
#include "spi/ChipRequest.h"
#include "spi/Traffic.h"

#include <TestPatterns.h>
#include <algorithm>
#include <chrono>
#include <optional>

namespace spi
{
namespace
{

using std::chrono::steady_clock;

struct Test : ChipRequest {
};

void describe(Grammar& grammar, OutputOptions& output, Test& request)
{
    describeDevice(grammar, request.device);
    describeSettings(grammar, request);
    grammar.output(output, true);
}

std::string traffic(const Test& request)
{
    std::string lines;
    for (const TestBurst& burst : testBursts(longestMessage()))
        lines += exchangeTraffic(burst.bytes) + "\n";
    return lines + settingsLine(request);
}

Json errorOf(const std::optional<Difference>& different)
{
    if (!different)
        return {};
    return Fields{{"position", different->position},
                  {"sent", different->sent},
                  {"got", different->got},
                  {"count", different->count}};
}

/// A burst that came back unchanged is a line in JSON only.
void show(const Test& request, const TestBurst& burst, const std::optional<Difference>& different, Output& output)
{
    const size_t size = burst.bytes.size();
    if (different || output.json())
        output.result(
            {{"device", request.device}, {"burst", burst.name}, {"size", size}, {"error", errorOf(different)}},
            burst.name + ": " + (different ? describe(*different, size) : ""));
}

/// What several bursts of a test have shown.
struct Report {
    size_t bursts = 0;
    size_t wrong = 0;
    size_t bytes = 0;
    std::string cause;
    steady_clock::duration time{0};

    /// Bytes in each direction.
    [[nodiscard]] uint64_t bytesPerSecond() const
    {
        const auto microseconds = std::chrono::duration_cast<std::chrono::microseconds>(time).count();
        return bytes * 1'000'000 / static_cast<uint64_t>(std::max<int64_t>(microseconds, 1));
    }
};

std::string textOf(const Report& report)
{
    return std::to_string(report.bursts) + " bursts, " + std::to_string(report.bytes) + " bytes at " +
           std::to_string(report.bytesPerSecond()) + " bytes/s";
}

void run(const Test& request, Output& output)
{
    Chip chip{request, output};
    Report report;
    for (const TestBurst& burst : testBursts(longestMessage())) {
        output.progress(burst.name);
        const auto started = steady_clock::now();
        const ByteArray received = chip.exchange(burst.bytes);
        report.time += steady_clock::now() - started;
        report.bytes += burst.bytes.size();
        ++report.bursts;
        const std::optional<Difference> different = difference(burst.bytes, received);
        show(request, burst, different, output);
        if (!different)
            continue;
        ++report.wrong;
        if (report.cause.empty())
            report.cause = spiCause(different->kind);
    }
    output.result({{"device", request.device},
                   {"bursts", report.bursts},
                   {"errors", report.wrong},
                   {"bytes", report.bytes},
                   {"rate", report.bytesPerSecond()}},
                  request.device + ": " + textOf(report));
    if (report.wrong > 0)
        throw Failure{TransferFailed,
                      request.device + ": " + std::to_string(report.wrong) + " of " + std::to_string(report.bursts) +
                          " bursts came back changed" + (report.cause.empty() ? "" : "; " + report.cause),
                      "a jumper between MOSI and MISO, a lower --speed, another --mode"};
}

}  // namespace

void addTest(Verbs& verbs)
{
    verbs.push_back(
        verb<Test>("spi", "test", "send patterns and compare what comes back, over a jumper", "spi test 2.0"));
}

}  // namespace spi
