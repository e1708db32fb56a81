// Verbs that are one transfer with one chip, without registers: read, write, transfer.

#include "i2c/Verbs.h"

#include "i2c/Chip.h"
#include "i2c/ChipRequest.h"
#include "i2c/Traffic.h"

namespace i2c
{
namespace
{

struct Read : ChipRequest {
    size_t count = 0;
};

void describe(Grammar& grammar, OutputOptions& output, Read& request)
{
    describeChip(grammar, request);
    grammar.word("N", "Bytes to read, decimal", request.count, parseI2cCount);
    grammar.output(output, true, true);
}

std::string traffic(const Read& request)
{
    return readTraffic(request.address, request.count);
}

void run(const Read& request, Output& output)
{
    Chip chip{request, output};
    output.bytes(fieldsOf(request), chip.read(request.count));
}

struct Write : ChipRequest {
    std::vector<std::string> words;
    ByteArray bytes;
};

void describe(Grammar& grammar, OutputOptions& /*output*/, Write& request)
{
    describeChip(grammar, request);
    describeBytes(grammar, request.words);
}

void check(Write& request)
{
    check(static_cast<const ChipRequest&>(request));
    request.bytes = bytesToSend(request.words, maxI2cBytes);
    checkSize(request.bytes.size(), maxI2cBytes, i2cMessage);
}

std::string traffic(const Write& request)
{
    return writeTraffic(request.address, request.bytes);
}

void run(const Write& request, Output& output)
{
    Chip chip{request, output};
    chip.write(request.bytes);
}

/// Writes, and reads after a repeated start.
struct Transfer : ChipRequest {
    std::vector<std::string> words;
    ByteArray bytes;
    size_t count = 0;
};

void describe(Grammar& grammar, OutputOptions& output, Transfer& request)
{
    describeChip(grammar, request);
    grammar
        .words("BYTES", "Hex pairs; then +N, the number of bytes to read, decimal; - for raw standard input",
               request.words)
        .show("BYTES... +N");
    grammar.output(output, true, true);
}

void check(Transfer& request)
{
    check(static_cast<const ChipRequest&>(request));
    request.count = takePlusCount(request.words, maxI2cBytes, i2cMessage);
    if (request.count == 0)
        throw Failure{WrongCommandLine, "i2c transfer: +N, the number of bytes to read, must be the last word",
                      "serialcomm i2c transfer 4 0x50 00 +2"};
    request.bytes = bytesToSend(request.words, maxI2cBytes);
    checkSize(request.bytes.size(), maxI2cBytes, i2cMessage);
}

std::string traffic(const Transfer& request)
{
    return writeReadTraffic(request.address, request.bytes, request.count);
}

void run(const Transfer& request, Output& output)
{
    Chip chip{request, output};
    output.bytes(fieldsOf(request), chip.writeRead(request.bytes, request.count));
}

}  // namespace

void addTransfers(Verbs& verbs)
{
    verbs.push_back(verb<Read>("i2c", "read", "read N bytes", "i2c read 4 0x48 2"));
    verbs.push_back(verb<Write>("i2c", "write", "write bytes", "i2c write 4 0x50 00 de ad"));
    verbs.push_back(verb<Transfer>("i2c", "transfer", "write, repeated start, read N", "i2c transfer 4 0x50 00 +16"));
}

}  // namespace i2c
