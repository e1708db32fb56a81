// The messages of a serial NOR flash, with the commands that all makers share. Pure functions.
#pragma once

#include <serialComm/SyncSerialBase.h>

#include <stddef.h>
#include <stdint.h>

#include <optional>
#include <vector>

namespace spi
{

/// How a chip is organised. The defaults hold unless its SFDP or the user says otherwise.
struct FlashLayout {
    uint64_t size = 0;  ///< 0: not known
    size_t page = 256;  ///< one program command stays inside a page
    uint64_t sector = 4096;
    uint8_t eraseCommand = 0x20;  ///< of a sector, with an address of 3 bytes
    int addressBytes = 3;

    /// The first address that does not exist or cannot be reached.
    [[nodiscard]] uint64_t end() const;
};

/// What the user says about a chip; overrides its SFDP.
struct FlashOptions {
    std::optional<uint64_t> size;
    std::optional<size_t> page;
    std::optional<int> addressBytes;
};

/// What the answer to a message is for.
enum class Answer { None, Data, WriteEnabled, Ready };

struct FlashMessage {
    ByteArray bytes;
    size_t count = 0;  ///< bytes of the answer
    Answer answer = Answer::None;
};

using FlashMessages = std::vector<FlashMessage>;

/// A number of bytes from an address on.
struct Range {
    uint64_t address = 0;
    uint64_t count = 0;
};

/// The sectors that a range touches.
Range sectorsOf(const FlashLayout& layout, Range range);

namespace statusBit
{
constexpr uint8_t busy = 0x01;
constexpr uint8_t writeEnabled = 0x02;
}  // namespace statusBit

FlashMessage readId();
FlashMessage readStatus(Answer answer);

/// Serial flash discoverable parameters (JESD216): a header, which says where the basic table is.
FlashMessage readSfdpHeader();
/// Nothing if the header is not that of an SFDP.
std::optional<FlashMessage> readSfdpTable(const ByteArray& header);

/// `table` is empty for a chip without SFDP. Addresses have 4 bytes if 3 are not enough.
FlashLayout layoutOf(const ByteArray& table, const FlashOptions& options);

// `longest` is the most bytes that spidev accepts in one message.
FlashMessages readMessages(const FlashLayout& layout, Range range, size_t longest);
FlashMessages writeMessages(const FlashLayout& layout, uint64_t address, const ByteArray& bytes, size_t longest);
FlashMessages eraseMessages(const FlashLayout& layout, Range sectors);

}  // namespace spi
