// All registers of a chip, one by one: the verb dump.

#include "i2c/Verbs.h"

#include "base/Bytes.h"
#include "i2c/Chip.h"
#include "i2c/ChipRequest.h"
#include "i2c/Traffic.h"

#include <algorithm>

namespace i2c
{
namespace
{

constexpr size_t registersPerLine = 16;

struct Dump : ChipRequest {
    ByteArray firstWord;
    ByteArray lastWord;
    bool wide = false;
    size_t first = 0;
    size_t last = 0;
};

/// Registers from `first` on, at most to the end of the line. An empty value: no answer.
struct Row {
    size_t first;
    std::vector<std::optional<uint8_t>> values;
};

void describe(Grammar& grammar, OutputOptions& output, Dump& request)
{
    describeChip(grammar, request);
    grammar.optionalWord("FIRST", "First register, 0x10 or 0x0010", request.firstWord, parseRegister, "0x00");
    grammar.optionalWord("LAST", "Last register; default: 0xff, or 0xffff with two-byte registers", request.lastWord,
                         parseRegister);
    grammar.flag("--wide", "Two-byte registers, as if FIRST or LAST had four digits", request.wide);
    grammar.output(output, true, true);
}

void check(Dump& request)
{
    check(static_cast<const ChipRequest&>(request));
    request.wide = request.wide || request.firstWord.size() > 1 || request.lastWord.size() > 1;
    request.first = registerNumber(request.firstWord);
    request.last = registerNumber(request.lastWord);
    if (request.lastWord.empty())
        request.last = request.wide ? 0xffff : 0xff;
    if (request.first > request.last)
        refuse("i2c dump: FIRST " + hexName(request.firstWord) + " is above LAST " + hexName(request.lastWord));
}

ByteArray registerAt(const Dump& request, size_t number)
{
    const auto low = static_cast<uint8_t>(number);
    return request.wide ? ByteArray{static_cast<uint8_t>(number >> 8), low} : ByteArray{low};
}

std::string traffic(const Dump& request)
{
    std::string lines;
    for (size_t number = request.first; number <= request.last; ++number)
        lines += (lines.empty() ? "" : "\n") + writeReadTraffic(request.address, registerAt(request, number), 1);
    return lines;
}

Row readRow(Chip& chip, const Dump& request, size_t first, Output& output)
{
    Row row{first, {}};
    const size_t last = std::min(first | (registersPerLine - 1), request.last);
    for (size_t number = first; number <= last; ++number) {
        output.progress("register " + hexName(registerAt(request, number)) + " of " +
                        hexName(registerAt(request, request.last)));
        row.values.push_back(chip.registerValue(registerAt(request, number)));
    }
    return row;
}

std::string header(const Dump& request)
{
    return (request.wide ? "       " : "     ") +
           std::string{"0  1  2  3  4  5  6  7  8  9  a  b  c  d  e  f    0123456789abcdef"};
}

std::string textOf(const Row& row, const Dump& request)
{
    const size_t before = row.first % registersPerLine;
    std::string line = hexName(registerAt(request, row.first - before)).substr(2) + ":";
    const size_t width = line.size() + 3 * registersPerLine;
    line.append(3 * before, ' ');
    std::string text(before, ' ');
    for (const auto& value : row.values) {
        line += ' ' + (value ? hexPair(*value) : "XX");
        text += !value ? 'X' : *value >= ' ' && *value <= '~' ? static_cast<char>(*value) : '.';
    }
    line.resize(width, ' ');
    return line + "    " + text;
}

Fields fieldsOf(const Row& row, const Dump& request)
{
    Fields fields = fieldsOf(request);
    fields["register"] = hexName(registerAt(request, row.first));
    std::vector<Json> bytes;
    for (const auto& value : row.values)
        bytes.push_back(value ? Json{*value} : Json{});
    fields["bytes"] = bytes;
    return fields;
}

void run(const Dump& request, Output& output)
{
    Chip chip{request, output};
    const bool asBytes = output.raw() || output.hexDump();
    if (!asBytes && !output.json())
        printLine(header(request));
    ByteArray answered;
    for (size_t first = request.first; first <= request.last; first = (first | (registersPerLine - 1)) + 1) {
        const Row row = readRow(chip, request, first, output);
        for (const auto& value : row.values) {
            if (value)
                answered.push_back(*value);
        }
        if (!asBytes)
            output.result(fieldsOf(row, request), textOf(row, request));
    }
    if (answered.empty())
        throw chip.noAnswer();
    const size_t asked = request.last - request.first + 1;
    if (asBytes && answered.size() < asked)
        throw Failure{TransferFailed, chip.name() + ": " + std::to_string(asked - answered.size()) + " of " +
                                          std::to_string(asked) + " registers did not answer; without --raw and " +
                                          "--hexdump they show as XX"};
    if (asBytes)
        output.bytes({}, answered, request.first);
}

}  // namespace

void addDump(Verbs& verbs)
{
    verbs.push_back(
        verb<Dump>("i2c", "dump", "read registers 00 to ff, or FIRST to LAST, one by one", "i2c dump 4 0x50"));
}

}  // namespace i2c
