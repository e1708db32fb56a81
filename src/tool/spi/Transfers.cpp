// Verbs that are one transfer with the chip, and info.

#include "spi/Verbs.h"

#include "base/Bytes.h"
#include "base/Repeat.h"
#include "spi/Chip.h"
#include "spi/ChipRequest.h"
#include "spi/Traffic.h"
#include "spi/Values.h"

namespace spi
{
namespace
{

constexpr auto spiTransfer = "an SPI transfer";

struct Info : NoTraffic {
    std::string device;
};

void describe(Grammar& grammar, OutputOptions& output, Info& request)
{
    describeDevice(grammar, request.device);
    grammar.output(output, true);
}

void run(const Info& request, Output& output)
{
    const Settings settings = settingsOf(request.device);
    const unsigned int bits = settings.bits == 0 ? 8 : settings.bits;
    output.result({{"device", request.device}, {"mode", settings.mode}, {"speed", settings.speedHz}, {"bits", bits}},
                  request.device + ": mode " + hexNumber(settings.mode) + ", " + std::to_string(settings.speedHz) +
                      " Hz, " + std::to_string(bits) + " bits a word");
}

struct Read : ChipRequest {
    size_t count = 0;
};

void describe(Grammar& grammar, OutputOptions& output, Read& request)
{
    describeDevice(grammar, request.device);
    grammar.word("N", "Bytes to read, decimal", request.count, parseSpiCount);
    describeSettings(grammar, request);
    grammar.output(output, true, true);
}

std::string traffic(const Read& request)
{
    return readTraffic(request.count) + "\n" + settingsLine(request);
}

void run(const Read& request, Output& output)
{
    Chip chip{request, output};
    output.bytes({{"device", request.device}}, chip.read(request.count));
}

struct Write : ChipRequest {
    std::vector<std::string> words;
    ByteArray bytes;
};

void describe(Grammar& grammar, OutputOptions& /*output*/, Write& request)
{
    describeDevice(grammar, request.device);
    grammar.words("BYTES", "Hex pairs: de ad, dead, de:ad; - for raw standard input", request.words);
    describeSettings(grammar, request);
}

void check(Write& request)
{
    request.bytes = bytesToSend(request.words, maxBytes);
    checkSize(request.bytes.size(), maxBytes, spiTransfer);
}

std::string traffic(const Write& request)
{
    return writeTraffic(request.bytes) + "\n" + settingsLine(request);
}

void run(const Write& request, Output& output)
{
    Chip chip{request, output};
    chip.write(request.bytes);
}

struct Transfer : ChipRequest {
    std::vector<std::string> words;
    ByteArray bytes;
    size_t count = 0;  ///< of +N; 0: everything that comes in
    Repeat repeat;
};

void describe(Grammar& grammar, OutputOptions& output, Transfer& request)
{
    describeDevice(grammar, request.device);
    grammar
        .words("BYTES", "Hex pairs; then +N, decimal, to clock N more bytes; - for raw standard input", request.words)
        .show("BYTES... [+N]");
    describeSettings(grammar, request);
    grammar.output(output, true, true);
    describeRepeat(grammar, request.repeat);
}

void check(Transfer& request)
{
    request.count = takePlusCount(request.words, maxBytes, spiTransfer);
    request.bytes = bytesToSend(request.words, maxBytes);
    checkSize(request.bytes.size() + request.count, maxBytes, spiTransfer);
}

std::string traffic(const Transfer& request)
{
    const std::string once =
        request.count > 0 ? writeReadTraffic(request.bytes, request.count) : exchangeTraffic(request.bytes);
    return repeatedTraffic(request.repeat, once) + "\n" + settingsLine(request);
}

void run(const Transfer& request, Output& output)
{
    Chip chip{request, output};
    repeatedly(request.repeat, output, [&] {
        output.bytes({{"device", request.device}},
                     request.count > 0 ? chip.writeRead(request.bytes, request.count) : chip.exchange(request.bytes));
    });
}

}  // namespace

void addTransfers(Verbs& verbs)
{
    verbs.push_back(verb<Info>("spi", "info", "show mode and speed as the driver reports them", "spi info 2.0"));
    verbs.push_back(verb<Read>("spi", "read", "read N bytes while sending zeros", "spi read 2.0 4"));
    verbs.push_back(verb<Write>("spi", "write", "write bytes", "spi write 2.0 06"));
    verbs.push_back(verb<Transfer>("spi", "transfer",
                                   "full duplex; with +N, print only the N bytes received after BYTES",
                                   "spi transfer 2.0 9f +3 --speed 10M"));
}

}  // namespace spi
