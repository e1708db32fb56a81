// The verb test: sends patterns and compares what comes back.

#include "uart/Verbs.h"

#include "TestPatterns.h"
#include "uart/Port.h"
#include "uart/Values.h"

#include <array>
#include <cstdio>

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
        "--timeout", "S", "Bytes that do not come for this many seconds are lost", request.timeout,
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

const char* nameOf(Difference::Kind kind)
{
    switch (kind) {
    case Difference::Kind::Nothing:
        return "nothing";
    case Difference::Kind::Lost:
        return "lost";
    case Difference::Kind::Added:
        return "added";
    case Difference::Kind::Late:
    case Difference::Kind::Early:
        return "shifted";
    default:
        return "changed";
    }
}

struct Totals {
    size_t bursts = 0;
    size_t failed = 0;
    size_t bytes = 0;
    std::chrono::duration<double> time{};
};

class Loopback
{
public:
    Loopback(const Test& test, Output& shown) : request(test), output(shown), port(openPort(test, traffic(test), shown))
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
        report();
    }

private:
    void exchange(const TestBurst& burst)
    {
        const auto start = steady_clock::now();
        port->queue(burst.bytes);
        ByteArray got;
        while (got.size() < burst.bytes.size() && receiveInto(got, request.timeout)) {
        }
        totals.time += steady_clock::now() - start;
        while (got.size() < 2 * maxBurst && receiveInto(got, timeForExtraBytes)) {
        }
        totals.bytes += burst.bytes.size();
        ++totals.bursts;
        judge(burst, difference(burst.bytes, got));
    }

    /// false after silence.
    bool receiveInto(ByteArray& got, milliseconds silence)
    {
        const ByteArray bytes = port->receive(SIZE_MAX, {silence});
        got.insert(got.end(), bytes.begin(), bytes.end());
        return !bytes.empty();
    }

    void judge(const TestBurst& burst, const std::optional<Difference>& found)
    {
        if (output.json() || found)
            output.result({{"burst", burst.name},
                           {"size", burst.bytes.size()},
                           {"ok", !found},
                           {"error", found ? Json{nameOf(found->kind)} : Json{}},
                           {"count", found ? Json{found->count} : Json{}},
                           {"position", found ? Json{found->position} : Json{}},
                           {"sent", found ? Json{found->sent} : Json{}},
                           {"got", found ? Json{found->got} : Json{}}},
                          found ? burst.name + ": " + ::describe(*found, burst.bytes.size()) : "");
        totals.failed += found ? 1 : 0;
        if (found && found->kind == Difference::Kind::Nothing && totals.bursts == 1)
            throw Failure{TransferFailed, request.path + ": nothing came back at " + request.text(),
                          "connect TX to RX, or at the other end: serialcomm uart echo PORT -b " +
                              std::to_string(request.baudRate)};
    }

    void report()
    {
        const double rate = static_cast<double>(totals.bytes) / totals.time.count();
        std::array<char, 64> rateText{};
        std::snprintf(rateText.data(), rateText.size(), "%.0f bytes/s", rate);
        output.result({{"bursts", totals.bursts},
                       {"failed", totals.failed},
                       {"bytes", totals.bytes},
                       {"bytes_per_second", static_cast<uint64_t>(rate)}},
                      request.path + ": " + std::to_string(totals.bursts) + " bursts, " + byteCount(totals.bytes) +
                          ", " + rateText.data() + ", " + std::to_string(totals.failed) + " failed");
        if (totals.failed > 0)
            throw Failure{TransferFailed, request.path + ": " + std::to_string(totals.failed) + " of " +
                                              std::to_string(totals.bursts) + " bursts came back different"};
    }

    const Test& request;
    Output& output;
    std::unique_ptr<Port> port;
    Totals totals;
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
