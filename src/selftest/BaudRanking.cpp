#include "BaudRanking.h"

#include <algorithm>
#include <iterator>
#include <set>
#include <utility>

constexpr size_t fewestBytes = 16;
constexpr size_t fewestValues = 8;
constexpr double goodShare = 0.95;
constexpr double badShare = 0.9;
constexpr double clearLead = 0.05;

static bool isTextByte(uint8_t byte)
{
    return (byte >= 0x20 && byte < 0x7f) || byte == '\r' || byte == '\n' || byte == '\t';
}

/// Share of the bytes that had their stop bit.
static double framed(const BaudScore& score)
{
    return score.bytes == 0 ? 0 : 1 - std::min(1.0, score.framingErrors / static_cast<double>(score.bytes));
}

static BaudScore scoreOf(const BaudSample& sample)
{
    BaudScore score;
    score.baudRate = sample.baudRate;
    score.bytes = sample.bytes.size();
    score.framingErrors = sample.framingErrors;
    if (score.bytes > 0) {
        const auto text = std::count_if(sample.bytes.begin(), sample.bytes.end(), isTextByte);
        score.printable = static_cast<double>(text) / static_cast<double>(score.bytes);
        score.score = (framed(score) + score.printable) / 2;
    }
    return score;
}

static bool hasGoodFrames(const BaudScore& score)
{
    return framed(score) >= goodShare;
}

/// The same byte over and over, such as ff, has good frames at several rates.
static bool isVaried(const ByteArray& bytes)
{
    return std::set<uint8_t>(bytes.begin(), bytes.end()).size() >= fewestValues;
}

/// Text is not text at any other rate.
static BaudRanking rankText(std::vector<BaudScore> scores)
{
    const bool isAhead = scores.size() == 1 || scores[0].score - scores[1].score >= clearLead;
    return {std::move(scores), isAhead};
}

/// Binary data often has good frames at half its rate, but not at a higher one: of the rates with good frames the
/// highest is the right one, if a higher one was tried.
static BaudRanking rankBinary(std::vector<BaudScore> scores, const std::vector<BaudSample>& samples)
{
    std::stable_sort(scores.begin(), scores.end(), [](const BaudScore& one, const BaudScore& other) {
        const bool good = hasGoodFrames(one);
        return good != hasGoodFrames(other) ? good : good && one.baudRate > other.baudRate;
    });
    const BaudScore& best = scores[0];
    const bool isBounded = std::any_of(scores.begin(), scores.end(), [&best](const BaudScore& other) {
        return other.baudRate > best.baudRate && other.bytes > 0 && framed(other) < badShare;
    });
    const bool varied = std::any_of(samples.begin(), samples.end(), [&best](const BaudSample& sample) {
        return sample.baudRate == best.baudRate && isVaried(sample.bytes);
    });
    const bool decided = best.bytes >= fewestBytes && hasGoodFrames(best) && isBounded && varied;
    return {std::move(scores), decided};
}

BaudRanking rankBaudRates(const std::vector<BaudSample>& samples)
{
    if (samples.empty()) {
        return {};
    }
    std::vector<BaudScore> scores;
    std::transform(samples.begin(), samples.end(), std::back_inserter(scores), scoreOf);
    std::stable_sort(scores.begin(), scores.end(),
                     [](const BaudScore& one, const BaudScore& other) { return one.score > other.score; });
    const BaudScore& best = scores[0];
    const bool isText = best.bytes >= fewestBytes && hasGoodFrames(best) && best.printable >= goodShare;
    return isText ? rankText(std::move(scores)) : rankBinary(std::move(scores), samples);
}
