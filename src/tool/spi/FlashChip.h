// A serial flash behind an opened device.
#pragma once

#include "base/Values.h"
#include "spi/Chip.h"
#include "spi/FlashCommands.h"

#include <string>

namespace spi
{

/// Waits until the chip is ready, which takes `patience` at most, and reads its SFDP.
class FlashChip
{
public:
    FlashChip(const ChipRequest& request, const FlashOptions& options, milliseconds longest, Output& shown);

    [[nodiscard]] const FlashLayout& layout() const { return organisation; }
    [[nodiscard]] bool hasSfdp() const { return sfdp; }

    ByteArray id();
    ByteArray read(Range range);
    void write(uint64_t address, const ByteArray& bytes);
    void erase(Range sectors);

private:
    /// What the messages' answers carry. `work` is for the progress: "reading".
    ByteArray perform(const FlashMessages& messages, const std::string& work);

    [[nodiscard]] Failure noAnswer(const std::string& symptom) const;
    uint8_t status();
    void throwUnlessWriteEnabled();
    void awaitReady();

    Chip chip;
    Output& output;
    milliseconds patience;
    FlashLayout organisation;
    bool sfdp = false;
};

}  // namespace spi
