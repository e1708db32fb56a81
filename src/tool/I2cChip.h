// One chip on a bus, opened by the library. Each call ends in bytes or in a Failure with its cause.
#pragma once

#include "Failure.h"
#include "LibraryLog.h"
#include "Signals.h"

#include <serialComm/I2c.h>

#include <optional>
#include <string>

class Chip
{
public:
    Chip(const std::string& bus, int chipAddress);

    /// Does `call` on the library's object. `longestMessage` is for the error line.
    template <typename Call>
    auto operator()(size_t longestMessage, Call call)
    {
        throwIfSignalled();
        auto result = call(chip);
        if (const auto error = takeLibraryError())
            throw failure(longestMessage, *error);
        return result;
    }

    /// Nothing when it did not answer.
    std::optional<uint8_t> registerValue(uint8_t reg);

    Failure noAnswer() const;

private:
    Failure failure(size_t longestMessage, const LibraryError& error) const;

    std::string path;
    int address;
    I2c chip;
};

/// Why the library could not open a chip: its bus, or the kernel driver that has it.
Failure i2cInitFailure(const std::string& path, int address, int error);

/// The kernel driver that has the chip at an address; empty when there is none.
std::string i2cDriver(const std::string& path, int address);

/// What the bus can do, I2C_FUNC_... of <linux/i2c.h>, asked on a descriptor of our own. Throws where it does no plain
/// messages, which all commands need.
unsigned long i2cFunctions(const std::string& path);
