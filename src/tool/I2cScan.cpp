// A bus as a whole: which addresses answer.

#include "I2cCommands.h"

#include "Failure.h"
#include "Format.h"
#include "I2cChip.h"
#include "LibraryLog.h"
#include "Output.h"
#include "Signals.h"
#include "Values.h"

#include <nlohmann/json.hpp>

#include <linux/i2c.h>

#include <cerrno>

namespace
{

constexpr int firstAddress = 0x08;
constexpr int lastAddress = 0x77;

/// EEPROMs take an empty write for the start of one, and some chips at 0x30 to 0x37 lock up; elsewhere a read may
/// change a chip's state. Where the bus driver can't do an empty write, reading is all there is.
bool askedByRead(int address, bool canWriteNothing)
{
    return !canWriteNothing || (address >= 0x30 && address <= 0x37) || (address >= 0x50 && address <= 0x5f);
}

Answer ask(const std::string& path, int address, bool byRead)
{
    const QuietLibrary quiet;
    I2c chip{path, address};
    if (!chip.init()) {
        const int error = errno;
        if (error != EBUSY)
            throw i2cInitFailure(path, address, error);
        return Answer::InUse;
    }
    return (byRead ? !chip.read(1).empty() : chip.write({})) ? Answer::Yes : Answer::None;
}

std::string traffic(int address, bool byRead)
{
    return byRead ? i2cReadTraffic(address, 1) : i2cWriteTraffic(address, {});
}

std::string plan()
{
    std::string lines;
    for (int address = firstAddress; address <= lastAddress; ++address)
        lines += (lines.empty() ? "" : "\n") + traffic(address, askedByRead(address, true));
    return lines;
}

void show(int address, Answer answer, const std::string& path)
{
    nlohmann::ordered_json object{{"device", path}, {"address", hexNumber(static_cast<unsigned int>(address))}};
    if (answer == Answer::InUse)
        object["driver"] = i2cDriver(path, address);
    if (answer == Answer::Yes || answer == Answer::InUse)
        printJson(object);
}

}  // namespace

void i2cScan(const Common& common, const I2cArguments& arguments)
{
    const std::string path = i2cPath(arguments.bus);
    if (common.dryRun) {
        showTraffic(common, plan());
        return;
    }

    const bool canWriteNothing = (i2cFunctions(path) & I2C_FUNC_SMBUS_QUICK) != 0;
    if (!common.json)
        printLine(scanHeader());
    int present = 0;
    Progress progress{common};
    for (int row = 0; row <= lastAddress; row += 16) {
        std::array<Answer, 16> answers{};
        for (int address = std::max(row, firstAddress); address <= std::min(row + 15, lastAddress); ++address) {
            throwIfSignalled();
            const bool byRead = askedByRead(address, canWriteNothing);
            showTraffic(common, traffic(address, byRead));
            progress.show("asking " + hexNumber(static_cast<unsigned int>(address)));
            const Answer answer = ask(path, address, byRead);
            answers[static_cast<size_t>(address - row)] = answer;
            present += answer == Answer::None ? 0 : 1;
            if (common.json) {
                progress.wipe();
                show(address, answer, path);
            }
        }
        progress.wipe();
        if (!common.json)
            printLine(scanRow(static_cast<unsigned int>(row), answers));
    }
    if (present == 0)
        throw Failure{TransferFailed, "nothing answered on " + path, "power, wiring and pull-ups of the chips"};
    if (present == lastAddress - firstAddress + 1)
        say("every address seems to answer: the data line is probably held low, or the adapter does not report it");
}
