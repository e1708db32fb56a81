#include "watch/Pages.h"

#include <string.h>

#include <algorithm>

namespace watch
{
namespace
{

// A record begins with a word of 5 bits of type and 27 bits of time since the record before.
constexpr unsigned int deltaBits = 27;
constexpr uint32_t lengthFollows = 0;  ///< 1 to 28: the length in words
constexpr uint32_t padding = 29;
constexpr uint32_t timeExtend = 30;
constexpr uint32_t timeStamp = 31;
constexpr uint64_t timeStampMask = (uint64_t{1} << 59) - 1;  ///< what a time stamp holds of a time

// Flags in the size of a page's data.
constexpr uint64_t lostFlag = uint64_t{1} << 31;
constexpr uint64_t lostStored = uint64_t{1} << 30;  ///< their number follows the data
constexpr uint64_t sizeMask = (uint64_t{1} << deltaBits) - 1;

template <typename Number>
Number numberAt(const uint8_t* data)
{
    Number number;
    memcpy(&number, data, sizeof number);
    return number;
}

uint64_t commitAt(const uint8_t* data, size_t commitSize)
{
    return commitSize == sizeof(uint32_t) ? numberAt<uint32_t>(data) : numberAt<uint64_t>(data);
}

class Reader
{
public:
    Reader(const uint8_t* first, size_t count, uint64_t start) : next(first), left(count), time(start) {}

    /// Adds the next record, if it is one of an event. False at the end and at a fault.
    bool read(Page& page)
    {
        if (left < sizeof(uint32_t))
            return end(page, left != 0);
        const auto head = take<uint32_t>();
        const uint32_t type = head & 0x1f;
        const uint64_t delta = head >> 5;
        if (type == padding && delta == 0)
            return end(page, false);
        if (type > 0 && type < padding)
            return add(page, delta, size_t{type} * sizeof(uint32_t));
        if (left < sizeof(uint32_t))
            return end(page, true);

        const auto word = take<uint32_t>();
        const uint64_t longTime = (uint64_t{word} << deltaBits) + delta;
        switch (type) {
        case timeExtend:
            time += longTime;
            return true;
        case timeStamp:
            time = (time & ~timeStampMask) | longTime;
            return true;
        default:
            break;
        }
        if (word < sizeof word || word - sizeof word > left)
            return end(page, true);
        const size_t size = word - sizeof word;
        return type == lengthFollows ? add(page, delta, size) : skip(delta, size);
    }

private:
    template <typename Number>
    Number take()
    {
        const auto number = numberAt<Number>(next);
        advance(sizeof number);
        return number;
    }

    void advance(size_t count)
    {
        next += count;
        left -= count;
    }

    bool skip(uint64_t delta, size_t size)
    {
        time += delta;
        const size_t aligned = (size + 3) & ~size_t{3};
        advance(std::min(aligned, left));
        return true;
    }

    bool add(Page& page, uint64_t delta, size_t size)
    {
        if (size > left)
            return end(page, true);
        page.records.push_back({time + delta, next, size});
        return skip(delta, size);
    }

    static bool end(Page& page, bool damaged)
    {
        page.damaged = damaged;
        return false;
    }

    const uint8_t* next;
    size_t left;
    uint64_t time;
};

}  // namespace

Page readPage(const uint8_t* data, size_t size, size_t commitSize)
{
    Page page;
    const size_t headerSize = sizeof(uint64_t) + commitSize;
    if (size < headerSize) {
        page.damaged = true;
        return page;
    }
    const auto start = numberAt<uint64_t>(data);
    const uint64_t commit = commitAt(data + sizeof start, commitSize);
    const uint8_t* records = data + headerSize;
    const size_t present = size - headerSize;
    const size_t used = commit & sizeMask;

    page.lostBefore = (commit & lostFlag) != 0;
    if (page.lostBefore && (commit & lostStored) != 0 && used + commitSize <= present)
        page.lost = commitAt(records + used, commitSize);

    Reader reader{records, std::min(used, present), start};
    while (reader.read(page)) {
    }
    page.damaged = page.damaged || used > present;
    return page;
}

}  // namespace watch
