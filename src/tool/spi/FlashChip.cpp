#include "spi/FlashChip.h"

#include "base/Bytes.h"
#include "base/Failure.h"
#include "base/Repeat.h"

#include <algorithm>
#include <utility>

using std::chrono::steady_clock;

namespace spi
{

FlashChip::FlashChip(const ChipRequest& request, const FlashOptions& options, milliseconds longestBusy, Output& shown)
    : chip(request, shown), output(shown), busyTimeout(longestBusy)
{
    awaitReady();
    const auto readTable = readSfdpTable(perform({readSfdpHeader()}, ""));
    sfdp = readTable.has_value();
    organisation = layoutOf(sfdp ? perform({*readTable}, "") : ByteArray{}, options);
}

ByteArray FlashChip::id()
{
    ByteArray bytes = perform({readId()}, "");
    const auto all = [&](uint8_t value) {
        return std::count(bytes.begin(), bytes.end(), value) == static_cast<std::ptrdiff_t>(bytes.size());
    };
    if (all(0x00) || all(0xff))
        throw noAnswer("its id is " + hexLine(bytes));
    return bytes;
}

ByteArray FlashChip::read(Range range)
{
    return perform(readMessages(organisation, range, longestMessage()), "reading");
}

void FlashChip::write(uint64_t address, const ByteArray& bytes)
{
    perform(writeMessages(organisation, address, bytes, longestMessage()), "writing");
}

void FlashChip::erase(Range sectors)
{
    perform(eraseMessages(organisation, sectors), "erasing");
}

ByteArray FlashChip::perform(const FlashMessages& messages, const std::string& work)
{
    ByteArray data;
    size_t shownPercent = 0;
    for (size_t i = 0; i < messages.size(); ++i) {
        const size_t percent = 100 * i / messages.size();
        if (percent != std::exchange(shownPercent, percent))
            output.progress(chip.name() + ": " + work + ", " + std::to_string(percent) + " %");
        const FlashMessage& message = messages[i];
        switch (message.answer) {
        case Answer::None:
            chip.write(message.bytes);
            break;
        case Answer::Data: {
            const ByteArray answer = chip.writeRead(message.bytes, message.count);
            data.insert(data.end(), answer.begin(), answer.end());
            break;
        }
        case Answer::WriteEnabled:
            throwUnlessWriteEnabled();
            break;
        case Answer::Ready:
            awaitReady();
            break;
        }
    }
    return data;
}

Failure FlashChip::noAnswer(const std::string& symptom) const
{
    return {TransferFailed, chip.name() + ": no flash answers, " + symptom,
            "check chip select, power, MISO and MOSI, --mode, and a lower --speed"};
}

uint8_t FlashChip::status()
{
    const FlashMessage message = readStatus(Answer::Data);
    return chip.writeRead(message.bytes, message.count).front();
}

void FlashChip::throwUnlessWriteEnabled()
{
    const uint8_t value = status();
    if ((value & statusBit::writeEnabled) == 0)
        throw Failure{TransferFailed,
                      chip.name() + ": the chip does not enable writing; its status is " + hexPair(value),
                      "serialcomm spi flash " + chip.name() + " id, which shows whether a flash answers"};
}

void FlashChip::awaitReady()
{
    constexpr std::chrono::microseconds pause{100};
    const auto deadline = steady_clock::now() + busyTimeout;
    for (uint8_t value = status(); (value & statusBit::busy) != 0; value = status()) {
        if (value == 0xff)
            throw noAnswer("its status is ff");
        if (steady_clock::now() >= deadline)
            throw Failure{TransferFailed,
                          chip.name() + ": still busy after " + std::to_string(busyTimeout.count()) +
                              " ms; its status is " + hexPair(value),
                          "a longer --deadline"};
        waitUntil(steady_clock::now() + pause);
    }
}

}  // namespace spi
