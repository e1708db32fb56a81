#include "TestPatterns.h"

#include <algorithm>
#include <array>
#include <random>

static ByteArray repeated(const ByteArray& pattern, size_t size)
{
    ByteArray bytes(size);
    for (size_t i = 0; i < size; ++i) {
        bytes[i] = pattern[i % pattern.size()];
    }
    return bytes;
}

std::vector<TestBurst> testBursts(size_t longest)
{
    ByteArray everyValue(256);
    for (size_t i = 0; i < everyValue.size(); ++i) {
        everyValue[i] = static_cast<uint8_t>(i);
    }
    const struct {
        const char* name;
        ByteArray pattern;
        size_t size;
    } patterns[] = {
        {"every value", everyValue, 256},
        {"00", {0x00}, 16},
        {"ff", {0xff}, 16},
        {"55 aa", {0x55, 0xaa}, 16},
        {"one bit set", {0x01, 0x02, 0x04, 0x08, 0x10, 0x20, 0x40, 0x80}, 16},
        {"one bit clear", {0xfe, 0xfd, 0xfb, 0xf7, 0xef, 0xdf, 0xbf, 0x7f}, 16},
    };
    const auto named = [](const std::string& name, size_t size) {
        return name + ", " + std::to_string(size) + (size == 1 ? " byte" : " bytes");
    };

    std::vector<TestBurst> bursts;
    for (const auto& row : patterns) {
        const size_t size = std::min(row.size, longest);
        bursts.push_back({named(row.name, size), repeated(row.pattern, size)});
    }
    std::minstd_rand numbers;  // the same ones everywhere, unlike those of a distribution
    for (const size_t size : {1U, 2U, 3U, 15U, 16U, 17U, 63U, 64U, 65U, 127U, 128U, 129U, 255U, 257U, 1000U, 4096U}) {
        if (size > longest) {
            break;
        }
        ByteArray bytes(size);
        std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<uint8_t>(numbers() >> 8); });
        bursts.push_back({named("unordered", size), bytes});
    }
    return bursts;
}

static bool isAll(uint8_t value, const ByteArray& bytes)
{
    return std::all_of(bytes.begin(), bytes.end(), [value](uint8_t byte) { return byte == value; });
}

/// Whether `later` has the bits of `earlier`, most significant first, one place on; its first bit may be anything.
static bool isOneBitLater(const ByteArray& earlier, const ByteArray& later)
{
    uint8_t carried = later[0] & 0x80;
    for (size_t i = 0; i < earlier.size(); ++i) {
        if (later[i] != (carried | earlier[i] >> 1)) {
            return false;
        }
        carried = static_cast<uint8_t>(earlier[i] << 7);
    }
    return true;
}

/// Whether the longer one, without the bytes that it has more at `position`, is the shorter one.
static bool hasGap(const ByteArray& longer, const ByteArray& shorter, size_t position)
{
    const auto at = static_cast<ByteArray::difference_type>(position);
    const auto more = static_cast<ByteArray::difference_type>(longer.size() - shorter.size());
    return more > 0 && std::equal(longer.begin() + at + more, longer.end(), shorter.begin() + at, shorter.end());
}

static Difference::Kind kindOf(const ByteArray& sent, const ByteArray& got, size_t position)
{
    using Kind = Difference::Kind;
    if (got.empty()) {
        return Kind::Nothing;
    }
    if (got.size() < sent.size()) {
        return hasGap(sent, got, position) ? Kind::Lost : Kind::Changed;
    }
    if (got.size() > sent.size()) {
        return hasGap(got, sent, position) ? Kind::Added : Kind::Changed;
    }
    if (isAll(0xff, got)) {
        return Kind::AllOnes;
    }
    if (isAll(0x00, got)) {
        return Kind::AllZeros;
    }
    const bool canTell = sent.size() >= 4 && !isAll(sent[0], sent);
    if (canTell && isOneBitLater(sent, got)) {
        return Kind::Late;
    }
    if (canTell && isOneBitLater(got, sent)) {
        return Kind::Early;
    }
    return Kind::Changed;
}

std::optional<Difference> difference(const ByteArray& sent, const ByteArray& got)
{
    if (sent == got) {
        return std::nullopt;
    }
    const size_t common = std::min(sent.size(), got.size());
    const size_t all = std::max(sent.size(), got.size());
    Difference result;
    result.position = static_cast<size_t>(
        std::mismatch(sent.begin(), sent.begin() + static_cast<ByteArray::difference_type>(common), got.begin()).first -
        sent.begin());
    result.kind = kindOf(sent, got, result.position);
    result.count = all - common;
    if (result.kind != Difference::Kind::Lost && result.kind != Difference::Kind::Added) {
        for (size_t i = result.position; i < common; ++i) {
            result.count += sent[i] != got[i] ? 1 : 0;
        }
    }
    if (result.position < sent.size()) {
        result.sent = sent[result.position];
    }
    if (result.position < got.size()) {
        result.got = got[result.position];
    }
    return result;
}

static std::string inHex(const std::optional<uint8_t>& byte)
{
    static const char* const digits = "0123456789abcdef";
    return byte ? std::string{digits[*byte >> 4], digits[*byte & 0xf]} : "nothing";
}

std::string describe(const Difference& difference, size_t size)
{
    const std::string bytes = std::to_string(difference.count) + (difference.count == 1 ? " byte" : " bytes");
    const std::string of = " of " + std::to_string(size);
    const std::string place = "byte " + std::to_string(difference.position);
    switch (difference.kind) {
    case Difference::Kind::Nothing:
        return "nothing came back" + of + (size == 1 ? " byte" : " bytes");
    case Difference::Kind::Lost:
        return place + ": " + bytes + of + " lost";
    case Difference::Kind::Added:
        return place + ": " + bytes + " more than the " + std::to_string(size) + " sent";
    default:
        return place + ": sent " + inHex(difference.sent) + ", got " + inHex(difference.got) + "; " + bytes + of +
               (difference.count == 1 ? " differs" : " differ");
    }
}

std::string spiCause(Difference::Kind kind)
{
    switch (kind) {
    case Difference::Kind::AllOnes:
        return "all ff: MISO floats";
    case Difference::Kind::AllZeros:
        return "all 00: MISO is held low, or floats with a pull-down";
    case Difference::Kind::Late:
    case Difference::Kind::Early:
        return "shifted by one bit: try another mode";
    default:
        return "";
    }
}
