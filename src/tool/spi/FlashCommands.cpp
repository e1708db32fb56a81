#include "spi/FlashCommands.h"

#include "base/Bytes.h"
#include "base/Failure.h"

#include <algorithm>
#include <utility>

namespace spi
{
namespace
{

constexpr uint8_t pageProgram = 0x02;
constexpr uint8_t readData = 0x03;
constexpr uint8_t readStatusRegister = 0x05;
constexpr uint8_t writeEnable = 0x06;
constexpr uint8_t readSfdp = 0x5a;
constexpr uint8_t readIdentification = 0x9f;

constexpr uint64_t reachOf3Bytes = 1 << 24;

/// The command that takes an address of 4 bytes without changing the chip's address mode: a system may be unable to
/// boot from a chip that stays in 4-byte mode.
uint8_t with4Bytes(uint8_t command)
{
    switch (command) {
    case readData:
        return 0x13;
    case pageProgram:
        return 0x12;
    case 0x20:
        return 0x21;
    case 0x52:
        return 0x5c;
    case 0xd8:
        return 0xdc;
    default:
        throw Failure{TransferFailed,
                      "no command with 4-byte addresses is known for the chip's erase command " + hexNumber(command)};
    }
}

ByteArray addressed(const FlashLayout& layout, uint8_t command, uint64_t address)
{
    ByteArray bytes = {layout.addressBytes == 4 ? with4Bytes(command) : command};
    for (int shift = 8 * (layout.addressBytes - 1); shift >= 0; shift -= 8)
        bytes.push_back(static_cast<uint8_t>(address >> shift));
    return bytes;
}

/// Splits a range at multiples of `boundary`, and after `longest` bytes.
std::vector<Range> pieces(Range range, uint64_t boundary, uint64_t longest)
{
    std::vector<Range> all;
    while (range.count > 0) {
        const uint64_t count = std::min({range.count, longest, boundary - range.address % boundary});
        all.push_back({range.address, count});
        range.address += count;
        range.count -= count;
    }
    return all;
}

/// How many data bytes fit into one message, after command and address.
size_t dataOf(size_t longest, const FlashLayout& layout)
{
    const size_t front = 1 + static_cast<size_t>(layout.addressBytes);
    return longest > front ? longest - front : 1;
}

/// Adds a command that changes the chip: write enable before it, and waiting until the chip is ready after it.
void addChange(FlashMessages& messages, ByteArray command)
{
    messages.push_back({{writeEnable}});
    messages.push_back(readStatus(Answer::WriteEnabled));
    messages.push_back({std::move(command)});
    messages.push_back(readStatus(Answer::Ready));
}

/// A double word of an SFDP table, counted from 1 as in JESD216; 0 if the table is shorter.
uint32_t doubleWord(const ByteArray& table, size_t number)
{
    uint32_t value = 0;
    for (size_t i = 4 * number; i > 4 * number - 4; --i)
        value = value << 8 | (i <= table.size() ? table[i - 1] : 0U);
    return value;
}

uint64_t sizeOf(uint32_t density)
{
    constexpr uint32_t isExponent = 1U << 31;
    if ((density & isExponent) == 0)
        return (uint64_t{density} + 1) / 8;
    const uint32_t exponent = density & ~isExponent;
    return exponent >= 3 && exponent < 64 ? uint64_t{1} << (exponent - 3) : 0;
}

/// Takes the smallest of the four erase types in the table: each has a size exponent and a command.
void takeSector(const ByteArray& table, FlashLayout& layout)
{
    uint8_t smallest = 0;
    for (const size_t number : {8U, 9U}) {
        for (const int shift : {0, 16}) {
            const auto exponent = static_cast<uint8_t>(doubleWord(table, number) >> shift);
            if (exponent == 0 || exponent > 31 || (smallest != 0 && exponent >= smallest))
                continue;
            smallest = exponent;
            layout.sector = uint64_t{1} << exponent;
            layout.eraseCommand = static_cast<uint8_t>(doubleWord(table, number) >> (shift + 8));
        }
    }
}

}  // namespace

uint64_t FlashLayout::end() const
{
    const uint64_t reach = uint64_t{1} << (8 * addressBytes);
    return size == 0 ? reach : std::min(size, reach);
}

Range sectorsOf(const FlashLayout& layout, Range range)
{
    const uint64_t first = range.address - range.address % layout.sector;
    const uint64_t end = range.address + range.count;
    const uint64_t last = (end + layout.sector - 1) / layout.sector * layout.sector;
    return {first, last - first};
}

FlashMessage readId()
{
    return {{readIdentification}, 3, Answer::Data};
}

FlashMessage readStatus(Answer answer)
{
    return {{readStatusRegister}, 1, answer};
}

FlashMessage readSfdpHeader()
{
    return {{readSfdp, 0, 0, 0, 0}, 16, Answer::Data};
}

std::optional<FlashMessage> readSfdpTable(const ByteArray& header)
{
    const ByteArray signature = {'S', 'F', 'D', 'P'};
    if (!std::equal(signature.begin(), signature.end(), header.begin()))
        return {};
    constexpr size_t most = 16;
    const size_t doubleWords = std::min<size_t>(header[11], most);
    return FlashMessage{{readSfdp, header[14], header[13], header[12], 0}, 4 * doubleWords, Answer::Data};
}

FlashLayout layoutOf(const ByteArray& table, const FlashOptions& options)
{
    FlashLayout layout;
    bool only4Bytes = false;
    if (!table.empty()) {
        layout.size = sizeOf(doubleWord(table, 2));
        takeSector(table, layout);
        const uint32_t pageExponent = doubleWord(table, 11) >> 4 & 0xf;
        if (pageExponent > 0)
            layout.page = size_t{1} << pageExponent;
        only4Bytes = (doubleWord(table, 1) >> 17 & 0x3) == 2;
    }
    layout.size = options.size.value_or(layout.size);
    layout.page = options.page.value_or(layout.page);
    layout.addressBytes = options.addressBytes.value_or(only4Bytes || layout.size > reachOf3Bytes ? 4 : 3);
    return layout;
}

FlashMessages readMessages(const FlashLayout& layout, Range range, size_t longest)
{
    FlashMessages messages;
    for (const Range& piece : pieces(range, UINT64_MAX, dataOf(longest, layout)))
        messages.push_back({addressed(layout, readData, piece.address), piece.count, Answer::Data});
    return messages;
}

FlashMessages writeMessages(const FlashLayout& layout, uint64_t address, const ByteArray& bytes, size_t longest)
{
    FlashMessages messages;
    for (const Range& piece : pieces({address, bytes.size()}, layout.page, dataOf(longest, layout))) {
        ByteArray command = addressed(layout, pageProgram, piece.address);
        const auto first = bytes.begin() + static_cast<std::ptrdiff_t>(piece.address - address);
        command.insert(command.end(), first, first + static_cast<std::ptrdiff_t>(piece.count));
        addChange(messages, std::move(command));
    }
    return messages;
}

FlashMessages eraseMessages(const FlashLayout& layout, Range sectors)
{
    FlashMessages messages;
    for (const Range& sector : pieces(sectors, layout.sector, layout.sector))
        addChange(messages, addressed(layout, layout.eraseCommand, sector.address));
    return messages;
}

}  // namespace spi
