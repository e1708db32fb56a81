// The verb flash: a serial NOR flash read, written, erased and verified.

#include "spi/Verbs.h"

#include "base/Bytes.h"
#include "base/Files.h"
#include "spi/ChipRequest.h"
#include "spi/FlashChip.h"
#include "spi/FlashCommands.h"
#include "spi/Traffic.h"
#include "spi/Values.h"

#include <algorithm>

namespace spi
{
namespace
{

constexpr size_t maxImage = size_t{1} * 256 * 1024 * 1024;

struct Flash : ChipRequest {
    std::string action;
    std::optional<uint64_t> address;
    std::string operand;
    uint64_t count = 0;  ///< of read, 0: up to the end; of erase
    ByteArray bytes;     ///< of write and verify
    std::string outputFile;
    bool erase = false;
    FlashOptions options;
    milliseconds busyTimeout{0};
    const OutputOptions* output = nullptr;

    [[nodiscard]] bool is(const std::string& name) const { return action == name; }
    [[nodiscard]] bool sendsImage() const { return is("write") || is("verify"); }
};

void describe(Grammar& grammar, OutputOptions& output, Flash& request)
{
    request.output = &output;
    describeDevice(grammar, request.device);
    grammar.word("ACTION", "What to do", request.action, parseWord).choose({"id", "read", "write", "erase", "verify"});
    grammar.optionalWord("ADDR", "First byte, such as 0x1000; default for read: 0", request.address, parseFlashAddress);
    grammar
        .optionalWord("N|FILE",
                      "read, erase: number of bytes (64k, 1M); write, verify: a file; default, and -: standard input",
                      request.operand, parseWord)
        .complete(Candidates::Files);
    grammar
        .option("-o", "FILE", "read: write the bytes into a file; - for standard output", request.outputFile, parseWord)
        .complete(Candidates::Files)
        .exclude("--json")
        .exclude("--hexdump");
    grammar.flag("--erase", "write: erase first; other bytes of the first and last sector are kept", request.erase);
    grammar.option("--size", "BYTES", "Size of the chip (1M); default: as in its SFDP", request.options.size,
                   [](const std::string& text) { return parseFlashSize("--size", text); });
    grammar
        .option("--address-bytes", "N", "Bytes per address (default: by SFDP and size)", request.options.addressBytes,
                [](const std::string& text) { return text == "4" ? 4 : 3; })
        .choose({"3", "4"});
    grammar.option("--page", "BYTES", "Bytes per page; default: as in the SFDP, or 256", request.options.page,
                   [](const std::string& text) { return parseFlashSize("--page", text); });
    grammar.option(
        "--deadline", "S", "Give up if one command keeps the chip busy for S seconds", request.busyTimeout,
        [](const std::string& text) { return parseSeconds("--deadline", text); }, "5");
    describeSettings(grammar, request);
    grammar.output(output, true, true);
}

void refuseUnlessFor(const Flash& request, const char* action, bool given, const std::string& option)
{
    if (given && !request.is(action))
        refuse("spi flash " + request.action + ": " + option + " is only for " + action);
}

void check(Flash& request)
{
    const std::string name = "spi flash " + request.action;
    refuseUnlessFor(request, "read", !request.outputFile.empty(), "-o");
    refuseUnlessFor(request, "read", request.output->raw, "--raw");
    refuseUnlessFor(request, "read", request.output->hexDump, "--hexdump");
    refuseUnlessFor(request, "write", request.erase, "--erase");
    if (request.is("id") && request.address)
        refuse(name + ": takes no ADDR");
    if (!request.is("id") && !request.is("read") && !request.address)
        refuse(name + ": ADDR is required");
    if (request.is("erase") && request.operand.empty())
        refuse(name + ": N is required");
    if (request.sendsImage()) {
        request.bytes = readFile(request.operand.empty() ? "-" : request.operand, maxImage);
        if (request.bytes.empty())
            refuse("no bytes to " + request.action);
    } else if (!request.operand.empty()) {
        request.count = parseFlashSize("count", request.operand);
    }
}

/// The range of a request. Throws if the chip does not have it.
Range rangeOf(const Flash& request, const FlashLayout& layout)
{
    Range range{request.address.value_or(0), request.sendsImage() ? request.bytes.size() : request.count};
    if (range.count == 0 && layout.size == 0)
        throw Failure{WrongCommandLine, "spi flash read: the size of the chip is not known", "--size, or ADDR and N"};
    if (range.count == 0 && range.address < layout.end())
        range.count = layout.end() - range.address;
    if (range.address >= layout.end() || range.count > layout.end() - range.address)
        refuse(std::to_string(range.count) + " bytes from " + hexNumber(range.address, 6) +
               " on: the chip ends before " + hexNumber(layout.end(), 6) +
               (layout.size > layout.end() ? " with 3-byte addresses" : ""));
    const Range sectors = sectorsOf(layout, range);
    if (request.is("erase") && (sectors.address != range.address || sectors.count != range.count))
        throw Failure{WrongCommandLine,
                      "spi flash erase: a sector has " + std::to_string(layout.sector) +
                          " bytes; address and count must be multiples of it",
                      "serialcomm spi flash " + request.device + " erase " + hexNumber(sectors.address, 6) + " " +
                          std::to_string(sectors.count)};
    return range;
}

/// The bytes of the first and the last sector that --erase keeps.
struct Surroundings {
    Range before;
    Range behind;
};

Surroundings surroundingsOf(Range sectors, Range range)
{
    const uint64_t end = range.address + range.count;
    return {{sectors.address, range.address - sectors.address}, {end, sectors.address + sectors.count - end}};
}

void add(FlashMessages& messages, const FlashMessages& more)
{
    messages.insert(messages.end(), more.begin(), more.end());
}

/// Assumes a chip without SFDP that is never busy. Bytes that --erase keeps are shown as zeros.
FlashMessages plannedMessages(const Flash& request)
{
    FlashMessages messages = {readStatus(Answer::Ready), readSfdpHeader()};
    if (request.is("id")) {
        messages.push_back(readId());
        return messages;
    }
    const size_t longest = longestMessage();
    const FlashLayout layout = layoutOf({}, request.options);
    Range range = rangeOf(request, layout);
    ByteArray bytes = request.bytes;
    if (request.erase) {
        const Range sectors = sectorsOf(layout, range);
        const Surroundings kept = surroundingsOf(sectors, range);
        add(messages, readMessages(layout, kept.before, longest));
        add(messages, readMessages(layout, kept.behind, longest));
        bytes.insert(bytes.begin(), kept.before.count, 0);
        bytes.resize(sectors.count);
        range = sectors;
    }
    if (request.is("erase") || request.erase)
        add(messages, eraseMessages(layout, range));
    if (request.is("write"))
        add(messages, writeMessages(layout, range.address, bytes, longest));
    add(messages, readMessages(layout, range, longest));
    return messages;
}

std::string traffic(const Flash& request)
{
    std::string lines;
    for (const FlashMessage& message : plannedMessages(request)) {
        lines += message.answer == Answer::None ? writeTraffic(message.bytes)
                                                : writeReadTraffic(message.bytes, message.count);
        lines += '\n';
    }
    return lines + settingsLine(request);
}

void showId(const Flash& request, FlashChip& flash, Output& output)
{
    const ByteArray id = flash.id();
    const FlashLayout& layout = flash.layout();
    Json size = nullptr;
    if (layout.size > 0)
        size = layout.size;
    output.result({{"device", request.device},
                   {"id", id},
                   {"sfdp", flash.hasSfdp()},
                   {"size", size},
                   {"sector", layout.sector},
                   {"page", layout.page},
                   {"address_bytes", layout.addressBytes}},
                  hexLine(id) + ": " + (flash.hasSfdp() ? "" : "no SFDP, ") +
                      (layout.size > 0 ? std::to_string(layout.size) + " bytes, " : "") + "sectors of " +
                      std::to_string(layout.sector) + " bytes, pages of " + std::to_string(layout.page) + ", " +
                      std::to_string(layout.addressBytes) + " address bytes");
}

void show(const Flash& request, const Range& range, const ByteArray& bytes, Output& output)
{
    output.bytes({{"device", request.device}, {"address", range.address}}, bytes, range.address);
}

/// Reads back and compares.
void verify(const Flash& request, FlashChip& flash, uint64_t address, const ByteArray& expected)
{
    const ByteArray actual = flash.read({address, expected.size()});
    size_t differences = 0;
    size_t first = 0;
    bool needsErase = false;
    for (size_t i = expected.size(); i-- > 0;) {
        if (actual[i] == expected[i])
            continue;
        ++differences;
        first = i;
        needsErase = needsErase || (actual[i] & expected[i]) != expected[i];
    }
    if (differences == 0)
        return;
    const std::string message = request.device + ": verification failed: " + std::to_string(differences) + " of " +
                                std::to_string(expected.size()) + " bytes differ, the first at " +
                                hexNumber(address + first, 6) + ": " + hexPair(actual[first]) + " instead of " +
                                hexPair(expected[first]);
    std::string hint;
    if (request.is("write") && needsErase && !request.erase)
        hint = "--erase: without it, no 0 bit can become 1";
    else if (!request.is("verify"))
        hint = "check whether these sectors are write-protected";
    throw Failure{TransferFailed, message, hint};
}

void write(const Flash& request, FlashChip& flash, const Range& range)
{
    if (!request.erase) {
        flash.write(range.address, request.bytes);
        verify(request, flash, range.address, request.bytes);
        return;
    }
    const Range sectors = sectorsOf(flash.layout(), range);
    const Surroundings kept = surroundingsOf(sectors, range);
    ByteArray bytes = flash.read(kept.before);
    const ByteArray behind = flash.read(kept.behind);
    bytes.insert(bytes.end(), request.bytes.begin(), request.bytes.end());
    bytes.insert(bytes.end(), behind.begin(), behind.end());
    flash.erase(sectors);
    flash.write(sectors.address, bytes);
    verify(request, flash, sectors.address, bytes);
}

void showDone(const Flash& request, const Range& range, const std::string& done, Output& output)
{
    output.result({{"device", request.device}, {"address", range.address}, {"count", range.count}},
                  request.device + ": " + std::to_string(range.count) + " bytes " + done + " from " +
                      hexNumber(range.address, 6) + " on");
}

void run(const Flash& request, Output& output)
{
    std::optional<OutputFile> file;
    if (!request.outputFile.empty())
        file.emplace(request.outputFile);
    FlashChip flash{request, request.options, request.busyTimeout, output};
    if (request.is("id")) {
        showId(request, flash, output);
        return;
    }
    const Range range = rangeOf(request, flash.layout());
    if (request.is("read")) {
        const ByteArray bytes = flash.read(range);
        if (file)
            file->replace(bytes);
        else
            show(request, range, bytes, output);
    } else if (request.is("write")) {
        write(request, flash, range);
        showDone(request, range, "written and verified", output);
    } else if (request.is("erase")) {
        flash.erase(range);
        verify(request, flash, range.address, ByteArray(range.count, 0xff));
        showDone(request, range, "erased and verified", output);
    } else {
        verify(request, flash, range.address, request.bytes);
        showDone(request, range, "verified", output);
    }
}

}  // namespace

void addFlash(Verbs& verbs)
{
    verbs.push_back(verb<Flash>("spi", "flash", "identify, read, write, erase or verify a serial flash",
                                "spi flash 2.0 read 0x1000 256 --speed 10M"));
}

}  // namespace spi
