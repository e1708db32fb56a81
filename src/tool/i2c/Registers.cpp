// Verbs for one register: get, set.

#include "i2c/Verbs.h"

#include "base/Bytes.h"
#include "base/Repeat.h"
#include "i2c/Chip.h"
#include "i2c/ChipRequest.h"
#include "i2c/Traffic.h"

#include <algorithm>
#include <optional>
#include <utility>

namespace i2c
{
namespace
{

using std::chrono::steady_clock;

std::string widthOf(const ByteArray& bytes)
{
    return std::to_string(bytes.size()) + (bytes.size() == 1 ? " byte" : " bytes");
}

std::string nameOf(const Chip& chip, const ByteArray& reg)
{
    return chip.name() + ": register " + hexName(reg);
}

/// Reads a register, once or repeatedly.
struct Get : ChipRequest {
    ByteArray reg;
    size_t count = 0;
    bool stop = false;
    Repeat repeat;
    std::optional<Bits> until;
    std::optional<milliseconds> deadline;
    milliseconds pause{10};  ///< between two reads of the bits
};

void describe(Grammar& grammar, OutputOptions& output, Get& request)
{
    describeChip(grammar, request);
    describeRegister(grammar, request.reg);
    grammar.optionalWord("N", "Bytes to read, decimal", request.count, parseI2cCount, "1");
    grammar.flag("--stop", "Register and data as two transactions, with a stop between them", request.stop);
    describeRepeat(grammar, request.repeat);
    grammar
        .option("--until-bits", "MASK=VALUE",
                "Read every 10 ms (or --every) until REG & MASK equals VALUE, such as 0x80=0x00", request.until,
                parseBits)
        .exclude("--count");
    grammar.option("--deadline", "S", "Give up --until-bits after S seconds", request.deadline,
                   [](const std::string& text) { return parseSeconds("--deadline", text); });
    grammar.output(output, true, true);
}

void check(Get& request)
{
    check(static_cast<const ChipRequest&>(request));
    if (request.until.has_value() != request.deadline.has_value())
        refuse("i2c get: --until-bits and --deadline must be used together");
    if (!request.until)
        return;
    if (request.until->mask.size() != request.count)
        refuse("i2c get: --until-bits is " + widthOf(request.until->mask) + " wide, N is " +
               std::to_string(request.count));
    if (request.repeat.every.count() > 0)
        request.pause = std::exchange(request.repeat.every, milliseconds{0});
}

std::string traffic(const Get& request)
{
    const std::string once =
        request.stop ? writeTraffic(request.address, request.reg) + "\n" + readTraffic(request.address, request.count)
                     : writeReadTraffic(request.address, request.reg, request.count);
    return repeatedTraffic(request.repeat, once);
}

ByteArray readOnce(Chip& chip, const Get& request)
{
    if (!request.stop)
        return chip.writeRead(request.reg, request.count);
    chip.write(request.reg);
    return chip.read(request.count);
}

/// Reads at least once, and once more at the deadline.
ByteArray readUntil(Chip& chip, const Get& request, Output& output)
{
    const auto end = steady_clock::now() + *request.deadline;
    for (;;) {
        const auto started = steady_clock::now();
        ByteArray bytes = readOnce(chip, request);
        if (matches(bytes, *request.until))
            return bytes;
        const std::string state =
            "is " + hexLine(bytes) + ", not " + hexName(request.until->mask) + "=" + hexName(request.until->value);
        if (started >= end)
            throw Failure{TransferFailed, nameOf(chip, request.reg) + " " + state + ", after " +
                                              std::to_string(request.deadline->count()) + " ms"};
        output.progress(hexName(request.reg) + " " + state);
        waitUntil(std::min(started + request.pause, end));
    }
}

void run(const Get& request, Output& output)
{
    Fields fields = fieldsOf(request);
    fields["register"] = hexName(request.reg);
    Chip chip{request, output};
    repeatedly(request.repeat, output, [&] {
        output.bytes(fields, request.until ? readUntil(chip, request, output) : readOnce(chip, request),
                     registerNumber(request.reg));
    });
}

/// Writes to a register.
struct Set : ChipRequest {
    ByteArray reg;
    std::vector<std::string> words;
    ByteArray bytes;
    ByteArray mask;  ///< empty: all bits
    bool verify = false;
};

void describe(Grammar& grammar, OutputOptions& /*output*/, Set& request)
{
    describeChip(grammar, request);
    describeRegister(grammar, request.reg);
    describeBytes(grammar, request.words);
    grammar.option("--mask", "HEX", "Change only these bits: read, modify, write; as wide as BYTES", request.mask,
                   parseMask);
    grammar.flag("--verify", "Read back and compare; with --mask, only these bits", request.verify);
}

ByteArray withRegister(const Set& request, const ByteArray& bytes)
{
    ByteArray all = request.reg;
    all.insert(all.end(), bytes.begin(), bytes.end());
    return all;
}

void check(Set& request)
{
    check(static_cast<const ChipRequest&>(request));
    request.bytes = bytesToSend(request.words, maxI2cBytes);
    checkSize(request.reg.size() + request.bytes.size(), maxI2cBytes, i2cMessage);
    if (request.mask.empty())
        return;
    if (request.mask.size() != request.bytes.size())
        refuse("i2c set: --mask is " + widthOf(request.mask) + " wide, BYTES are " +
               std::to_string(request.bytes.size()));
    if (!isWithinMask({request.mask, request.bytes}))
        refuse("i2c set: BYTES " + shortHex(request.bytes) + " have bits outside --mask " + shortHex(request.mask));
}

std::string traffic(const Set& request)
{
    const std::string reading = writeReadTraffic(request.address, request.reg, request.bytes.size());
    std::string lines =
        request.mask.empty()
            ? writeTraffic(request.address, withRegister(request, request.bytes))
            : reading + "\n" + maskedWriteTraffic(request.address, request.reg, request.mask, request.bytes);
    if (request.verify)
        lines += "\n" + reading;
    return lines;
}

void run(const Set& request, Output& output)
{
    Chip chip{request, output};
    const size_t count = request.bytes.size();
    const ByteArray mask = request.mask.empty() ? ByteArray(count, 0xff) : request.mask;
    ByteArray bytes = request.bytes;
    if (!request.mask.empty()) {
        const ByteArray old = chip.writeRead(request.reg, count);
        for (size_t i = 0; i < count; ++i)
            bytes[i] = static_cast<uint8_t>((old[i] & ~mask[i]) | bytes[i]);
    }
    chip.write(withRegister(request, bytes));
    if (!request.verify)
        return;
    const ByteArray back = chip.writeRead(request.reg, count);
    if (!matches(back, {mask, bytes}))
        throw Failure{TransferFailed,
                      nameOf(chip, request.reg) + ": wrote " + shortHex(bytes) + ", read " + shortHex(back)};
}

}  // namespace

void addRegisters(Verbs& verbs)
{
    verbs.push_back(
        verb<Get>("i2c", "get", "read N bytes from a register, with a repeated start", "i2c get 4 0x48 0x00 2"));
    verbs.push_back(verb<Set>("i2c", "set", "write to a register", "i2c set 4 0x48 0x02 4b 00"));
}

}  // namespace i2c
