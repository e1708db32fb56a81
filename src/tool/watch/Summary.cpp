#include "watch/Summary.h"

#include "base/Bytes.h"
#include "watch/Render.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace watch
{
namespace
{

std::string busOf(const Transfer& transfer)
{
    return (transfer.i2c() != nullptr ? "i2c-" : "spi") + std::to_string(transfer.place.number);
}

/// The address of the first message, or the chip's device.
std::string chipOf(const Transfer& transfer)
{
    if (transfer.i2c() == nullptr)
        return shortName(transfer);
    const auto& messages = transfer.i2c()->messages;
    return messages.empty() ? "unknown" : hexNumber(messages.front().address);
}

/// The clock cycles of the transfer: an I2C message has a start and nine bits for the address and for each byte.
size_t cyclesOf(const Transfer& transfer)
{
    if (transfer.i2c() == nullptr)
        return 8 * transfer.size();
    size_t cycles = 1;  // the stop
    for (const session::I2cMessage& message : transfer.i2c()->messages)
        cycles += 1 + 9 * (1 + message.data.bytes.size());
    return cycles;
}

std::string percentage(double part, double whole)
{
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "%.1f %%", whole > 0 ? 100 * part / whole : 0.0);
    return text.data();
}

std::string count(size_t number, const std::string& unit)
{
    return std::to_string(number) + ' ' + unit + (number == 1 ? "" : "s");
}

}  // namespace

void Summary::Counts::add(const Transfer& transfer)
{
    ++transfers;
    bytes += transfer.size();
    busy += transfer.duration;
    longest = std::max(longest, transfer.duration);
    if (const std::string error = transfer.errorName(); !error.empty())
        ++errors[error];
}

std::string Summary::Counts::text() const
{
    std::string line = count(transfers, "transfer") + ", " + count(bytes, "byte") + ", ";
    size_t all = 0;
    std::string names;
    for (const auto& [name, number] : errors) {
        all += number;
        names += (names.empty() ? " (" : ", ") + name + ' ' + std::to_string(number);
    }
    line += count(all, "error") + names + (names.empty() ? "" : ")");
    return line + ", longest " + durationText(longest) + ", busy " + durationText(busy);
}

void Summary::Counts::fill(Fields& fields) const
{
    Fields byName;
    for (const auto& [name, number] : errors)
        byName[name] = number;
    fields["transfers"] = transfers;
    fields["bytes"] = bytes;
    fields["errors"] = byName;
    fields["longest"] = static_cast<double>(longest) / 1e9;
    fields["busy"] = static_cast<double>(busy) / 1e9;
}

void Summary::add(const Transfer& transfer, std::optional<uint32_t> clockHz)
{
    Bus& bus = buses[busOf(transfer)];
    bus.counts.add(transfer);
    bus.chips[chipOf(transfer)].add(transfer);
    if (clockHz.value_or(0) == 0)
        bus.isWireKnown = false;
    else
        bus.onWire += static_cast<double>(cyclesOf(transfer)) / *clockHz;
}

std::string Summary::text(uint64_t watched) const
{
    const double seconds = static_cast<double>(watched) / 1e9;
    std::string lines;
    for (const auto& [name, bus] : buses) {
        lines += name + ": " + bus.counts.text() + ", " +
                 percentage(static_cast<double>(bus.counts.busy) / 1e9, seconds) + " of " + durationText(watched);
        if (bus.isWireKnown)
            lines += "; " + percentage(bus.onWire, seconds) + " at its clock";
        lines += '\n';
        for (const auto& [chip, counts] : bus.chips)
            lines += "  " + chip + ": " + counts.text() + '\n';
    }
    return lines.empty() ? "no transfers\n" : lines;
}

std::vector<Fields> Summary::fields(uint64_t watched) const
{
    const double seconds = static_cast<double>(watched) / 1e9;
    std::vector<Fields> all;
    for (const auto& [name, bus] : buses) {
        Fields whole = {{"bus", name}};
        bus.counts.fill(whole);
        whole["watched"] = seconds;
        whole["on_wire"] = bus.isWireKnown ? Json{bus.onWire} : Json{};
        all.push_back(whole);
        for (const auto& [chip, counts] : bus.chips) {
            Fields one = {{"bus", name}, {"chip", chip}};
            counts.fill(one);
            all.push_back(one);
        }
    }
    return all;
}

}  // namespace watch
