#include "serialComm/LineReader.h"

#include "serialComm/Log.h"

#include <algorithm>
#include <climits>

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

static constexpr size_t readSize = 4096;  // the size of the kernel's input buffer
static constexpr size_t longestWithoutEnd = 1 << 20;

LineReader::LineReader(Uart& uart, const Line& line) : port(uart), companion(line) {}

std::optional<ByteArray> LineReader::until(uint8_t delimiter, milliseconds most, bool* error)
{
    const auto throughDelimiter = [delimiter](const ByteArray& bytes) -> size_t {
        const auto found = std::find(bytes.begin(), bytes.end(), delimiter);
        return found == bytes.end() ? 0 : static_cast<size_t>(found - bytes.begin()) + 1;
    };
    std::optional<ByteArray> result = frame(throughDelimiter, most, error);
    if (result) {
        result->pop_back();
    }
    return result;
}

std::optional<ByteArray> LineReader::exactly(size_t length, milliseconds most, bool* error)
{
    if (length == 0) {
        if (error != nullptr) {
            *error = false;
        }
        return ByteArray{};
    }
    return frame([length](const ByteArray&) { return length; }, most, error);
}

std::optional<ByteArray> LineReader::frame(const FrameLength& length, milliseconds most, bool* error)
{
    bool ignored = false;
    bool& failed = error != nullptr ? *error : ignored;
    failed = false;
    const auto deadline = Clock::now() + std::min(most, milliseconds{INT_MAX});
    for (bool inTime = true;;) {
        const size_t size = received.empty() ? 0 : length(received);
        if (size > 0 && size <= received.size()) {
            return take(size);
        }
        if (size == 0 && received.size() >= longestWithoutEnd) {
            LOG(ERROR, "Line reader on " << companion.device() << ": no end of a frame in " << received.size()
                                         << " bytes, dropped");
            received.clear();
            failed = true;
            return std::nullopt;
        }
        if (!inTime) {
            return std::nullopt;
        }
        inTime = Clock::now() < deadline;
        failed = !receive(deadline);
        if (failed) {
            return std::nullopt;
        }
    }
}

/// Waits for bytes until the deadline. Returns false after a failure.
bool LineReader::receive(Clock::time_point deadline)
{
    const auto ready = companion.waitReadable(std::chrono::ceil<milliseconds>(deadline - Clock::now()));
    if (!ready || (!ready->bytes && !ready->hungUp)) {
        return ready.has_value();
    }
    bool failed = false;
    const ByteArray bytes = port.read(readSize, &failed);
    if (!failed && bytes.empty() && ready->hungUp) {
        LOG(ERROR, "Line reader on " << companion.device() << ": the port is gone");
        return false;
    }
    received.insert(received.end(), bytes.begin(), bytes.end());
    return !failed;
}

ByteArray LineReader::take(size_t size)
{
    const auto end = received.begin() + static_cast<ByteArray::difference_type>(size);
    ByteArray frame{received.begin(), end};
    received.erase(received.begin(), end);
    return frame;
}

ByteArray LineReader::takeRest()
{
    return take(received.size());
}
