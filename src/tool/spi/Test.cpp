// The verb test: what comes back with MOSI connected to MISO.

#include "spi/Verbs.h"

#include "base/TestReport.h"
#include "spi/Chip.h"
#include "spi/ChipRequest.h"
#include "spi/Traffic.h"

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

void run(const Test& request, Output& output)
{
    Chip chip{request, output};
    TestReport report{request.device, output};
    std::string cause;
    for (const TestBurst& burst : testBursts(longestMessage())) {
        output.progress(burst.name);
        const auto started = steady_clock::now();
        const ByteArray received = chip.exchange(burst.bytes);
        const auto time = steady_clock::now() - started;
        const std::optional<Difference> different = difference(burst.bytes, received);
        report.add(burst, different, time);
        if (different && cause.empty())
            cause = spiCause(different->kind);
    }
    report.finish(cause, "a jumper between MOSI and MISO, a lower --speed, another --mode");
}

}  // namespace

void addTest(Verbs& verbs)
{
    verbs.push_back(
        verb<Test>("spi", "test", "send patterns and compare what comes back, over a jumper", "spi test 2.0"));
}

}  // namespace spi
