#include "I2cCommands.h"

#include "Failure.h"
#include "Format.h"
#include "I2cChip.h"
#include "Output.h"
#include "Values.h"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace
{

constexpr auto message = "an I2C message";

Bytes outgoing(const std::vector<std::string>& words)
{
    Bytes bytes = words == std::vector<std::string>{"-"} ? readStandardInput(maxI2cBytes) : parseBytes(words);
    if (bytes.empty())
        throw Failure{WrongCommandLine, "no bytes to write"};
    checkSize(bytes.size(), maxI2cBytes, message);
    return bytes;
}

/// "0x48", however it was written.
std::string addressName(const I2cArguments& arguments)
{
    return hexNumber(static_cast<unsigned int>(parseAddress(arguments.address)));
}

/// "0x10" or "0x0010", as wide as it goes out.
std::string registerName(const I2cArguments& arguments)
{
    std::string name = "0x";
    for (const uint8_t byte : parseRegister(arguments.reg))
        name += hexNumber(byte).substr(2);
    return name;
}

void show(const Bytes& bytes, const Common& common, const I2cArguments& arguments, const std::string& path)
{
    if (common.json) {
        nlohmann::ordered_json object{{"device", path}, {"address", addressName(arguments)}};
        if (!arguments.reg.empty())
            object["register"] = registerName(arguments);
        object["bytes"] = bytes;
        printJson(object);
    } else if (arguments.raw) {
        printBytes(bytes);
    } else {
        print(hexLines(bytes));
    }
}

}  // namespace

void i2cGet(const Common& common, const I2cArguments& arguments)
{
    const std::string path = i2cPath(arguments.bus);
    const int address = parseAddress(arguments.address);
    const Bytes reg = parseRegister(arguments.reg);
    const size_t count = parseCount(arguments.count, maxI2cBytes, message);
    if (showTraffic(common, arguments.stop ? i2cWriteTraffic(address, reg) + " " + i2cReadTraffic(address, count)
                                           : i2cWriteReadTraffic(address, reg, count)))
        return;

    Chip chip{path, address};
    show(chip(count,
              [&](I2c& i2c) {
                  if (!arguments.stop)
                      return i2c.writeRead(reg, count);
                  if (reg.size() == 1)
                      return i2c.readRegister(reg[0], count);
                  return i2c.write(reg) ? i2c.read(count) : Bytes{};
              }),
         common, arguments, path);
}

void i2cSet(const Common& common, const I2cArguments& arguments)
{
    const std::string path = i2cPath(arguments.bus);
    const int address = parseAddress(arguments.address);
    const Bytes reg = parseRegister(arguments.reg);
    const Bytes bytes = outgoing(arguments.bytes);
    Bytes whole = reg;
    whole.insert(whole.end(), bytes.begin(), bytes.end());
    checkSize(whole.size(), maxI2cBytes, message);
    if (showTraffic(common, i2cWriteTraffic(address, whole)))
        return;

    Chip chip{path, address};
    chip(whole.size(), [&](I2c& i2c) { return reg.size() == 1 ? i2c.writeRegister(reg[0], bytes) : i2c.write(whole); });
}

void i2cRead(const Common& common, const I2cArguments& arguments)
{
    const std::string path = i2cPath(arguments.bus);
    const int address = parseAddress(arguments.address);
    const size_t count = parseCount(arguments.count, maxI2cBytes, message);
    if (showTraffic(common, i2cReadTraffic(address, count)))
        return;

    Chip chip{path, address};
    show(chip(count, [&](I2c& i2c) { return i2c.read(count); }), common, arguments, path);
}

void i2cWrite(const Common& common, const I2cArguments& arguments)
{
    const std::string path = i2cPath(arguments.bus);
    const int address = parseAddress(arguments.address);
    const Bytes bytes = outgoing(arguments.bytes);
    if (showTraffic(common, i2cWriteTraffic(address, bytes)))
        return;

    Chip chip{path, address};
    chip(bytes.size(), [&](I2c& i2c) { return i2c.write(bytes); });
}

void i2cTransfer(const Common& common, const I2cArguments& arguments)
{
    std::vector<std::string> words = arguments.bytes;
    const std::string path = i2cPath(arguments.bus);
    const int address = parseAddress(arguments.address);
    const size_t count = takePlusCount(words, maxI2cBytes, message);
    if (count == 0)
        throw Failure{WrongCommandLine, "i2c transfer: +N, the number of bytes to read, stands last",
                      "serialcomm i2c transfer " + arguments.bus + " " + arguments.address + " 00 +2"};
    const Bytes bytes = outgoing(words);
    if (showTraffic(common, i2cWriteReadTraffic(address, bytes, count)))
        return;

    Chip chip{path, address};
    show(chip(std::max(bytes.size(), count), [&](I2c& i2c) { return i2c.writeRead(bytes, count); }), common, arguments,
         path);
}

namespace
{

Row dumpedRow(Chip& chip, unsigned int firstRegister, Progress& progress)
{
    Row row;
    for (size_t i = 0; i < row.size(); ++i) {
        const auto reg = static_cast<uint8_t>(firstRegister + i);
        progress.show("register " + hexNumber(reg) + " of 0xff");
        row[i] = chip.registerValue(reg);
    }
    return row;
}

nlohmann::ordered_json valuesOf(const Row& row)
{
    nlohmann::ordered_json values;
    for (const auto& value : row)
        values.push_back(value ? nlohmann::ordered_json(*value) : nullptr);
    return values;
}

}  // namespace

void i2cDump(const Common& common, const I2cArguments& arguments)
{
    const std::string path = i2cPath(arguments.bus);
    const int address = parseAddress(arguments.address);
    std::string plan;
    for (unsigned int reg = 0; reg < 256; ++reg)
        plan += (reg == 0 ? "" : "\n") + i2cWriteReadTraffic(address, {static_cast<uint8_t>(reg)}, 1);
    if (showTraffic(common, plan))
        return;

    Chip chip{path, address};
    const bool asTable = !common.json && !arguments.raw;
    if (asTable)
        printLine(dumpHeader());
    Bytes values;
    Progress progress{common};
    for (unsigned int firstRegister = 0; firstRegister < 256; firstRegister += 16) {
        const Row row = dumpedRow(chip, firstRegister, progress);
        progress.wipe();
        for (const auto& value : row) {
            if (value)
                values.push_back(*value);
        }
        if (asTable)
            printLine(dumpRow(firstRegister, row));
        if (common.json)
            printJson({{"device", path},
                       {"address", addressName(arguments)},
                       {"register", hexNumber(firstRegister)},
                       {"bytes", valuesOf(row)}});
    }
    if (values.empty())
        throw chip.noAnswer();
    if (arguments.raw && values.size() < 256)
        throw Failure{TransferFailed, std::to_string(256 - values.size()) + " registers of " + arguments.address +
                                          " on " + path + " did not answer: no bytes to stand for them"};
    if (arguments.raw)
        printBytes(values);
}
