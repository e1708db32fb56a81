#include "watch/Render.h"

#include "base/Bytes.h"

#include <session/Session.h>

#include <algorithm>
#include <array>
#include <cinttypes>
#include <cstdio>

namespace watch
{
namespace
{

constexpr size_t processWidth = 18;
constexpr size_t deviceWidth = 9;
constexpr size_t trafficWidth = 40;

template <typename... Values>
std::string formatted(const char* format, Values... values)
{
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), format, values...);
    return text.data();
}

/// The text with two blanks behind it, at least.
std::string column(std::string text, size_t width)
{
    text.resize(std::max(text.size(), width) + 2, ' ');
    return text;
}

Json messagesOf(const session::I2cTransfer& transfer)
{
    std::vector<Fields> messages;
    for (const session::I2cMessage& message : transfer.messages) {
        messages.push_back({{"address", hexNumber(message.address)},
                            {"read", message.read},
                            {"length", session::length(message.data)},
                            {"bytes", recorded(message.data)}});
    }
    return messages;
}

Json segmentsOf(const Transfer& transfer)
{
    std::vector<Fields> segments;
    for (size_t i = 0; i < transfer.lengths.size(); ++i) {
        const session::SpiSegment& segment = transfer.spi()->segments[i];
        segments.push_back({{"length", transfer.lengths[i]},
                            {"sent", recorded(segment.out)},
                            {"received", recorded(segment.in)},
                            {"chip_select_change", segment.chipSelectChange}});
    }
    return segments;
}

}  // namespace

std::string shortName(const Transfer& transfer)
{
    return session::deviceName(transfer.device);
}

std::string trafficOf(const Transfer& transfer)
{
    const auto* i2c = transfer.i2c();
    if (i2c != nullptr && i2c->messages.empty())
        return i2c->error == 0 ? "S ... P" : "S ...  " + session::errorName(i2c->error);
    const auto* spi = transfer.spi();
    if (spi != nullptr && spi->segments.empty())
        return "MOSI ... MISO ...";
    return i2c != nullptr ? session::toText(*i2c, session::Length::cut) : session::toText(*spi, session::Length::cut);
}

std::string durationText(uint64_t nanoseconds)
{
    const double seconds = static_cast<double>(nanoseconds) / 1e9;
    if (nanoseconds < 999'500)
        return formatted("%.0f us", seconds * 1e6);
    return nanoseconds < 999'950'000 ? formatted("%.1f ms", seconds * 1e3) : formatted("%.2f s", seconds);
}

std::string secondsText(uint64_t nanoseconds)
{
    const uint64_t microseconds = nanoseconds / 1000;
    return formatted("%" PRIu64 ".%06" PRIu64, microseconds / 1'000'000, microseconds % 1'000'000);
}

std::string textOf(const Transfer& transfer, const std::string& time)
{
    const std::string process = printable(transfer.process) + '[' + std::to_string(transfer.thread) + ']';
    return column(time, 0) + column(process, processWidth) + column(shortName(transfer), deviceWidth) +
           column(trafficOf(transfer), trafficWidth) + durationText(transfer.duration) +
           (transfer.note.empty() ? "" : "  (" + transfer.note + ")");
}

Fields fieldsOf(const Transfer& transfer, double time)
{
    Fields fields = {
        {"time", time}, {"process", transfer.process}, {"pid", transfer.thread}, {"device", transfer.device}};
    if (transfer.i2c() != nullptr) {
        fields["messages"] = messagesOf(*transfer.i2c());
    } else {
        fields["segments"] = segmentsOf(transfer);
        fields["mode"] = transfer.spi()->mode;
        fields["speed"] = transfer.spi()->speedHz;
    }
    fields["error"] = textOrNull(transfer.errorName());
    fields["duration"] = static_cast<double>(transfer.duration) / 1e9;
    fields["note"] = textOrNull(transfer.note);
    return fields;
}

}  // namespace watch
