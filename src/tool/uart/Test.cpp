// The verb test: sends patterns and compares what comes back.

#include "uart/Verbs.h"

#include "base/TestReport.h"
#include "uart/Port.h"
#include "uart/Values.h"

namespace uart
{
namespace
{

constexpr size_t maxBurst = 65536;

/// Extra bytes come within this time. An FTDI adapter holds received bytes for up to 16 ms.
constexpr milliseconds timeForExtraBytes{30};

struct Test : PortSettings {
    size_t size = 0;
    size_t rounds = 0;
    milliseconds timeout{};
};

void describe(Grammar& grammar, OutputOptions& output, Test& request)
{
    describePort(grammar, request);
    grammar.option(
        "--size", "N", "Longest burst in bytes, decimal", request.size,
        [](const std::string& text) { return parseCount(text, maxBurst, "a burst"); }, "4096");
    grammar.option(
        "--rounds", "N", "Send all bursts this many times, decimal", request.rounds,
        [](const std::string& text) { return parseCount(text, 1'000'000, "a test"); }, "1");
    grammar.option(
        "--timeout", "S", "Count bytes as lost after this many seconds without data", request.timeout,
        [](const std::string& text) { return parseSeconds("--timeout", text); }, "1");
    grammar.output(output, true);
}

/// "every value, 256 bytes": a line for each burst.
std::string traffic(const Test& request)
{
    std::string lines;
    for (const TestBurst& burst : testBursts(request.size))
        lines += burst.name + '\n';
    return lines + request.traffic();
}

class Loopback
{
public:
    Loopback(const Test& test, Output& shown)
        : request(test), output(shown), port(openPort(test, traffic(test), shown)), report(test.path, shown)
    {
    }

    void run()
    {
        const std::vector<TestBurst> bursts = testBursts(request.size);
        for (size_t round = 0; round < request.rounds; ++round) {
            for (const TestBurst& burst : bursts) {
                output.progress(burst.name);
                exchange(burst);
            }
        }
        port->flush();
        report.finish();
    }

private:
    void exchange(const TestBurst& burst)
    {
        const auto start = steady_clock::now();
        port->queue(burst.bytes);
        ByteArray got;
        while (got.size() < burst.bytes.size() && receiveInto(got, request.timeout)) {
        }
        const auto time = steady_clock::now() - start;
        while (got.size() < 2 * maxBurst && receiveInto(got, timeForExtraBytes)) {
        }
        const std::optional<Difference> different = difference(burst.bytes, got);
        report.add(burst, different, time);
        if (different && different->kind == Difference::Kind::Nothing && report.bursts() == 1)
            throw Failure{TransferFailed, request.path + ": nothing came back at " + request.text(),
                          "connect TX to RX, or at the other end: serialcomm uart echo PORT -b " +
                              std::to_string(request.baudRate)};
    }

    /// false after silence.
    bool receiveInto(ByteArray& got, milliseconds silence)
    {
        const ByteArray bytes = port->receive(SIZE_MAX, {silence});
        got.insert(got.end(), bytes.begin(), bytes.end());
        return !bytes.empty();
    }

    const Test& request;
    Output& output;
    std::unique_ptr<Port> port;
    TestReport report;
};

void run(const Test& request, Output& output)
{
    Loopback{request, output}.run();
}

}  // namespace

void addTest(Verbs& verbs)
{
    verbs.push_back(verb<Test>("uart", "test", "send patterns and compare what comes back, over a jumper or uart echo",
                               "uart test ttyUSB0 -b 921600"));
}

}  // namespace uart
