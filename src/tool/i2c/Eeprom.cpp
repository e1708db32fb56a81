// Serial EEPROMs of the 24c series: the verb eeprom.

#include "i2c/Verbs.h"

#include "base/Bytes.h"
#include "base/Files.h"
#include "base/Repeat.h"
#include "i2c/Chip.h"
#include "i2c/ChipRequest.h"
#include "i2c/Traffic.h"

#include <algorithm>
#include <memory>

namespace i2c
{
namespace
{

using std::chrono::steady_clock;

constexpr size_t maxSize = size_t{256} * 1024;
constexpr size_t readStep = 256;  // bytes in one message; a message never crosses to the next chip address
constexpr size_t maxBlocks = 8;

enum class Action { Read, Write, Verify };

struct Eeprom : ChipRequest {
    Action action = Action::Read;
    size_t offset = 0;
    std::string countOrFile;
    std::string outputFile;
    size_t size = 0;
    size_t width = 0;  ///< of a word address, in bytes
    size_t page = 0;
    milliseconds deadline{0};
    const OutputOptions* forms = nullptr;

    size_t count = 0;
    ByteArray bytes;  ///< to write, or to compare with

    [[nodiscard]] size_t blockSize() const { return size_t{1} << 8 * width; }
    [[nodiscard]] size_t blocks() const { return (size + blockSize() - 1) / blockSize(); }
};

/// What one message reads or writes. Offset bits that do not fit into the word address are part of the chip address.
struct Piece {
    size_t block;
    int address;
    ByteArray word;
    size_t offset;
    size_t size;
};

Action parseAction(const std::string& text)
{
    return text == "read" ? Action::Read : text == "write" ? Action::Write : Action::Verify;
}

size_t parseOffset(const std::string& text)
{
    const std::string digits = text == "0" ? text : hexDigitsOf("offset", text, maxSize - 1);
    return *numberOf(digits, 16);
}

size_t parsePowerOfTwo(const std::string& name, const std::string& text, size_t most)
{
    const uint64_t value = numberOf(text, 10).value_or(0);
    if (value == 0 || value > most || (value & (value - 1)) != 0)
        refuse(name + " \"" + text + "\": must be a power of two, in decimal, at most " + std::to_string(most));
    return value;
}

void describe(Grammar& grammar, OutputOptions& output, Eeprom& request)
{
    describeChip(grammar, request);
    grammar.word("ACTION", "What to do", request.action, parseAction).choose({"read", "write", "verify"});
    grammar.optionalWord("OFFSET", "First byte, in hex, such as 0x10", request.offset, parseOffset, "0");
    grammar
        .optionalWord(
            "N|FILE",
            "read: number of bytes, decimal (default: up to the end); write, verify: a file, - for standard input",
            request.countOrFile, parseWord)
        .complete(Candidates::Files);
    grammar
        .option("-o", "FILE", "read: write the bytes into a file; - for standard output", request.outputFile, parseWord)
        .complete(Candidates::Files)
        .exclude("--json")
        .exclude("--hexdump");
    grammar.option(
        "--size", "N", "Size of the EEPROM in bytes: 256 for a 24c02, 4096 for a 24c32", request.size,
        [](const std::string& text) { return parsePowerOfTwo("--size", text, maxSize); }, "256");
    grammar
        .option("--width", "N", "Bytes per word address (default: 1 up to --size 2048, else 2)", request.width,
                [](const std::string& text) { return text == "1" ? size_t{1} : size_t{2}; })
        .choose({"1", "2"});
    grammar.option("--page", "N", "Bytes per page; default: 8 to 128, by --size", request.page,
                   [](const std::string& text) { return parsePowerOfTwo("--page", text, readStep); });
    grammar.option(
        "--deadline", "S", "Give up if a page is not written after S seconds", request.deadline,
        [](const std::string& text) { return parseSeconds("--deadline", text); }, "0.1");
    grammar.output(output, true, true);
    request.forms = &output;
}

/// The smallest page that data sheets give for this size. A page smaller than the chip's only costs time; a larger one
/// writes to the wrong places.
size_t usualPage(size_t size)
{
    if (size <= 256)
        return std::min<size_t>(size, 8);
    if (size <= 2048)
        return 16;
    if (size <= 8192)
        return 32;
    return size <= 32768 ? 64 : 128;
}

void checkGeometry(const Eeprom& request)
{
    const size_t blocks = request.blocks();
    if (blocks > maxBlocks)
        refuse("i2c eeprom: --size " + std::to_string(request.size) + " needs --width 2");
    const int first = request.address - request.address % static_cast<int>(blocks);
    if (request.address != first)
        refuse("i2c eeprom: --size " + std::to_string(request.size) + " uses " + std::to_string(blocks) +
               " addresses; ADDR must be the first of them, " + hexNumber(static_cast<unsigned int>(first)));
    if (request.page > request.size)
        refuse("i2c eeprom: --page " + std::to_string(request.page) + " is more than --size " +
               std::to_string(request.size));
}

void takeFile(Eeprom& request)
{
    const std::string verb = request.action == Action::Write ? "write" : "verify";
    if (request.countOrFile.empty())
        refuse("i2c eeprom " + verb + ": OFFSET and FILE are required");
    if (request.forms->json || request.forms->raw || request.forms->hexDump || !request.outputFile.empty())
        refuse("i2c eeprom " + verb + ": -o, --json, --raw and --hexdump are only for read");
    request.bytes = readFile(request.countOrFile, maxSize);
    if (request.bytes.empty())
        refuse("no bytes to " + verb);
    request.count = request.bytes.size();
}

void check(Eeprom& request)
{
    check(static_cast<const ChipRequest&>(request));
    if (request.width == 0)
        request.width = request.size > 2048 ? 2 : 1;
    if (request.page == 0)
        request.page = usualPage(request.size);
    checkGeometry(request);
    if (request.action != Action::Read)
        takeFile(request);
    else if (request.countOrFile.empty())
        request.count = std::max(request.size, request.offset + 1) - request.offset;
    else
        request.count = parseCount(request.countOrFile, maxSize, "an EEPROM");
    if (request.offset + request.count > request.size)
        refuse("i2c eeprom: offset " + hexNumber(request.offset) + ", count " + std::to_string(request.count) +
               ": beyond the EEPROM's " + std::to_string(request.size) + " bytes; set its size with --size");
}

/// Messages of up to `step` bytes that do not cross a multiple of `step`.
std::vector<Piece> piecesOf(const Eeprom& request, size_t step)
{
    std::vector<Piece> pieces;
    const size_t end = request.offset + request.count;
    for (size_t offset = request.offset; offset < end; offset += pieces.back().size) {
        const size_t block = offset / request.blockSize();
        const auto low = static_cast<uint8_t>(offset);
        const ByteArray word = request.width == 1 ? ByteArray{low} : ByteArray{static_cast<uint8_t>(offset >> 8), low};
        pieces.push_back({block, request.address + static_cast<int>(block), word, offset,
                          std::min(step - offset % step, end - offset)});
    }
    return pieces;
}

ByteArray messageOf(const Eeprom& request, const Piece& piece)
{
    ByteArray message = piece.word;
    const auto first = request.bytes.begin() + static_cast<std::ptrdiff_t>(piece.offset - request.offset);
    message.insert(message.end(), first, first + static_cast<std::ptrdiff_t>(piece.size));
    return message;
}

/// Assumes that each page is written at the first poll.
std::string traffic(const Eeprom& request)
{
    std::string lines;
    if (request.action == Action::Write) {
        for (const Piece& piece : piecesOf(request, request.page))
            lines += writeTraffic(piece.address, messageOf(request, piece)) + "\n" +
                     writeTraffic(piece.address, piece.word) + "\n";
    }
    for (const Piece& piece : piecesOf(request, readStep))
        lines += writeReadTraffic(piece.address, piece.word, piece.size) + "\n";
    lines.pop_back();
    return lines;
}

/// The chip at each address that the EEPROM uses, opened at the first use.
class Chips
{
public:
    Chips(const ChipRequest& first, size_t count, Output& shown) : request(first), output(shown), chips(count) {}

    Chip& at(const Piece& piece)
    {
        auto& chip = chips[piece.block];
        if (!chip) {
            ChipRequest block = request;
            block.address = piece.address;
            chip = std::make_unique<Chip>(block, output);
        }
        return *chip;
    }

private:
    const ChipRequest& request;
    Output& output;
    std::vector<std::unique_ptr<Chip>> chips;
};

ByteArray read(const Eeprom& request, Chips& chips, Output& output)
{
    ByteArray all;
    for (const Piece& piece : piecesOf(request, readStep)) {
        const ByteArray bytes = chips.at(piece).writeRead(piece.word, piece.size);
        all.insert(all.end(), bytes.begin(), bytes.end());
        output.progress("read " + std::to_string(all.size()) + " of " + std::to_string(request.count) + " bytes");
    }
    return all;
}

/// While it writes a page, a chip does not acknowledge. A poll sends the word address alone, which writes nothing.
void awaitWritten(Chip& chip, const Piece& piece, milliseconds deadline)
{
    const auto end = steady_clock::now() + deadline;
    for (;;) {
        const auto started = steady_clock::now();
        if (chip.acknowledges(piece.word))
            return;
        if (started >= end)
            throw Failure{TransferFailed, chip.name() + ": still busy " + std::to_string(deadline.count()) +
                                              " ms after a page was sent to " + hexNumber(piece.offset, 4)};
        waitUntil(std::min(started + milliseconds{1}, end));
    }
}

void write(const Eeprom& request, Chips& chips, Output& output)
{
    size_t written = 0;
    const auto state = [&] { return std::to_string(written) + " of " + std::to_string(request.count) + " bytes"; };
    try {
        for (const Piece& piece : piecesOf(request, request.page)) {
            chips.at(piece).write(messageOf(request, piece));
            awaitWritten(chips.at(piece), piece, request.deadline);
            written += piece.size;
            output.progress("wrote " + state());
        }
    } catch (Failure& failure) {
        failure.message += "; wrote " + state();
        throw;
    } catch (const Interrupted&) {
        output.progress({});
        printError("interrupted: wrote " + state());
        throw;
    }
}

void compare(const Eeprom& request, const ByteArray& bytes)
{
    size_t different = 0;
    size_t first = 0;
    for (size_t i = request.count; i-- > 0;) {
        if (bytes[i] != request.bytes[i]) {
            ++different;
            first = i;
        }
    }
    if (different > 0)
        throw Failure{TransferFailed, hexNumber(static_cast<unsigned int>(request.address)) + " on " + request.bus +
                                          ": " + std::to_string(different) + " of " + std::to_string(request.count) +
                                          " bytes differ, first at " + hexNumber(request.offset + first, 4) +
                                          ": expected " + hexPair(request.bytes[first]) + ", read " +
                                          hexPair(bytes[first])};
}

void show(const Eeprom& request, const ByteArray& bytes, Output& output)
{
    Fields fields = fieldsOf(request);
    fields["offset"] = request.offset;
    output.bytes(fields, bytes, request.offset);
}

void run(const Eeprom& request, Output& output)
{
    std::optional<OutputFile> file;
    if (!request.outputFile.empty())
        file.emplace(request.outputFile);
    Chips chips{request, request.blocks(), output};
    if (request.action == Action::Write)
        write(request, chips, output);
    const ByteArray bytes = read(request, chips, output);
    if (request.action != Action::Read)
        compare(request, bytes);
    else if (file)
        file->replace(bytes);
    else
        show(request, bytes, output);
}

}  // namespace

void addEeprom(Verbs& verbs)
{
    verbs.push_back(verb<Eeprom>("i2c", "eeprom", "read, write or verify an EEPROM of the 24c series",
                                 "i2c eeprom 4 0x50 read 0x10 16"));
}

}  // namespace i2c
