// A serial flash on an opened SPI device.
#pragma once

#include "base/Values.h"
#include "spi/Chip.h"
#include "spi/FlashCommands.h"

#include <string>

namespace spi
{

/// Waits until the chip is ready, at most `longestBusy`, and reads its SFDP.
class FlashChip
{
public:
    FlashChip(const ChipRequest& request, const FlashOptions& options, milliseconds longestBusy, Output& shown);

    [[nodiscard]] const FlashLayout& layout() const { return organisation; }
    [[nodiscard]] bool hasSfdp() const { return sfdp; }

    ByteArray id();
    ByteArray read(Range range);
    void write(uint64_t address, const ByteArray& bytes);
    void erase(Range sectors);

private:
    /// Sends the messages and returns the data of their answers. `work` is shown as progress: "reading".
    ByteArray perform(const FlashMessages& messages, const std::string& work);

    [[nodiscard]] Failure noAnswer(const std::string& symptom) const;
    uint8_t status();
    void throwUnlessWriteEnabled();
    void awaitReady();

    Chip chip;
    Output& output;
    milliseconds busyTimeout;
    FlashLayout organisation;
    bool sfdp = false;
};

}  // namespace spi
