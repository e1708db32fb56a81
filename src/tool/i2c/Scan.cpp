// Which addresses of a bus answer: the verb scan.

#include "i2c/Verbs.h"

#include "base/Bytes.h"
#include "base/LibraryLog.h"
#include "base/Signals.h"
#include "device/Node.h"
#include "i2c/Chip.h"
#include "i2c/Traffic.h"
#include "i2c/Values.h"

#include <linux/i2c.h>

#include <algorithm>
#include <cerrno>

namespace i2c
{
namespace
{

constexpr int addressesPerLine = 16;

struct Scan {
    std::string bus;
    bool anyAddress = false;

    [[nodiscard]] int first() const { return anyAddress ? 0x00 : 0x08; }
    [[nodiscard]] int last() const { return anyAddress ? 0x7f : 0x77; }
};

enum class Answer { None, Yes, InUse };

void describe(Grammar& grammar, OutputOptions& output, Scan& request)
{
    grammar.word("BUS", "4, i2c-4 or a path", request.bus, parseBus).complete(Candidates::I2cBuses);
    grammar.flag("--any-address", "Scan the reserved addresses as well, 0x00 to 0x07 and 0x78 to 0x7f",
                 request.anyAddress);
    grammar.output(output, true);
}

/// An empty write may start a write cycle of an EEPROM, and locks up some chips at 0x30 to 0x37; these addresses are
/// read. A read may change the state of other chips, so those get an empty write, if the adapter supports it.
bool isProbedByRead(int address, bool hasEmptyWrite)
{
    return !hasEmptyWrite || (address >= 0x30 && address <= 0x37) || (address >= 0x50 && address <= 0x5f);
}

std::string traffic(int address, bool byRead)
{
    return byRead ? readTraffic(address, 1) : writeTraffic(address, {});
}

/// For an adapter that supports empty writes, as nearly all do.
std::string traffic(const Scan& request)
{
    std::string lines;
    for (int address = request.first(); address <= request.last(); ++address)
        lines += (lines.empty() ? "" : "\n") + traffic(address, isProbedByRead(address, true));
    return lines;
}

Answer probe(const std::string& bus, int address, bool byRead, Output& output)
{
    throwIfSignalled();
    const ErrorScope errors{ErrorScope::Hidden};
    I2c chip{bus, address};
    if (!chip.init()) {
        throwIfSignalled();
        if (errors.first()->error != EBUSY)
            throw chipOpenFailure(bus, address, errors.first()->error);
        return Answer::InUse;
    }
    output.traffic(traffic(address, byRead));
    const bool answered = byRead ? !chip.read(1).empty() : chip.write({});
    throwIfSignalled();
    if (!answered && !meansNoAnswer(errors.first()->error))
        throw Failure{TransferFailed,
                      hexNumber(static_cast<unsigned int>(address)) + " on " + bus + ": " + errors.first()->text()};
    return answered ? Answer::Yes : Answer::None;
}

Fields fieldsOf(const std::string& bus, int address, Answer answer)
{
    const std::string driver = answer == Answer::InUse ? i2cDriver(bus, address) : "";
    return {{"device", bus},
            {"address", hexNumber(static_cast<unsigned int>(address))},
            {"in_use", answer == Answer::InUse},
            {"driver", textOrNull(driver)}};
}

std::string cellOf(int address, Answer answer)
{
    switch (answer) {
    case Answer::Yes:
        return ' ' + hexPair(static_cast<unsigned int>(address));
    case Answer::InUse:
        return " UU";
    case Answer::None:
        break;
    }
    return " --";
}

void run(const Scan& request, Output& output)
{
    const bool hasEmptyWrite = (busFunctions(request.bus) & I2C_FUNC_SMBUS_QUICK) != 0;
    if (!output.json())
        printLine("     0  1  2  3  4  5  6  7  8  9  a  b  c  d  e  f");
    int present = 0;
    std::string line;
    for (int address = request.first(); address <= request.last(); ++address) {
        const int column = address % addressesPerLine;
        if (line.empty())
            line = hexPair(static_cast<unsigned int>(address - column)) + ":" +
                   std::string(static_cast<size_t>(3 * column), ' ');
        output.progress("scanning " + hexNumber(static_cast<unsigned int>(address)));
        const Answer answer = probe(request.bus, address, isProbedByRead(address, hasEmptyWrite), output);
        present += answer == Answer::None ? 0 : 1;
        line += cellOf(address, answer);
        if (output.json() && answer != Answer::None)
            output.result(fieldsOf(request.bus, address, answer), {});
        if (column == addressesPerLine - 1 || address == request.last()) {
            if (!output.json())
                output.result({}, line);
            line.clear();
        }
    }
    if (present == 0)
        throw Failure{TransferFailed, "nothing answered on " + request.bus,
                      "check power, wiring and pull-ups of the chips"};
    if (present == request.last() - request.first() + 1)
        printError("every address seems to answer: the data line is probably held low, or the adapter does not report "
                   "a missing answer");
}

}  // namespace

void addScan(Verbs& verbs)
{
    verbs.push_back(verb<Scan>("i2c", "scan", "show which addresses answer", "i2c scan 4"));
}

}  // namespace i2c
