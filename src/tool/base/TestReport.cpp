#include "base/TestReport.h"

#include "base/Failure.h"
#include "base/Values.h"

#include <algorithm>

namespace
{

const char* nameOf(Difference::Kind kind)
{
    switch (kind) {
    case Difference::Kind::Nothing:
        return "nothing";
    case Difference::Kind::Late:
    case Difference::Kind::Early:
        return "shifted";
    case Difference::Kind::Lost:
        return "lost";
    case Difference::Kind::Added:
        return "added";
    default:
        return "changed";
    }
}

}  // namespace

TestReport::TestReport(std::string deviceName, Output& shown) : device(std::move(deviceName)), output(shown) {}

void TestReport::add(const TestBurst& burst, const std::optional<Difference>& different, std::chrono::nanoseconds time)
{
    const size_t size = burst.bytes.size();
    ++count;
    failed += different ? 1 : 0;
    bytes += size;
    duration += time;
    if (different || output.json())
        output.result({{"device", device},
                       {"burst", burst.name},
                       {"size", size},
                       {"ok", !different},
                       {"error", different ? Json{nameOf(different->kind)} : Json{}},
                       {"count", different ? Json{different->count} : Json{}},
                       {"position", different ? Json{different->position} : Json{}},
                       {"sent", different ? Json{different->sent} : Json{}},
                       {"got", different ? Json{different->got} : Json{}}},
                      burst.name + ": " + (different ? describe(*different, size) : ""));
}

void TestReport::finish(const std::string& cause, const std::string& remedy) const
{
    const uint64_t rate = bytesPerSecond();
    output.result(
        {{"device", device}, {"bursts", count}, {"failed", failed}, {"bytes", bytes}, {"bytes_per_second", rate}},
        device + ": " + std::to_string(count) + " bursts, " + byteCount(bytes) + ", " + std::to_string(rate) +
            " bytes/s, " + std::to_string(failed) + " failed");
    if (failed > 0)
        throw Failure{TransferFailed,
                      device + ": " + std::to_string(failed) + " of " + std::to_string(count) +
                          " bursts came back different" + (cause.empty() ? "" : "; " + cause),
                      remedy};
}

uint64_t TestReport::bytesPerSecond() const
{
    return bytes * 1'000'000'000 / static_cast<uint64_t>(std::max<int64_t>(duration.count(), 1));
}
