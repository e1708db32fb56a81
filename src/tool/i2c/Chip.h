// An opened chip on an I2C bus.
#pragma once

#include "device/OpenBus.h"
#include "i2c/ChipDevice.h"
#include "i2c/ChipRequest.h"

#include <optional>
#include <string>

namespace i2c
{

class Chip : public OpenBus<ChipDevice>
{
public:
    Chip(const ChipRequest& request, Output& shown);

    bool write(const ByteArray& bytes);
    ByteArray read(size_t count);
    ByteArray writeRead(const ByteArray& bytes, size_t count);

    /// Nothing if it did not answer.
    std::optional<uint8_t> registerValue(const ByteArray& reg);

    /// As write(), but false if it did not answer.
    bool acknowledges(const ByteArray& bytes);

    [[nodiscard]] Failure noAnswer() const;

    /// "0x48 on /dev/i2c-4"
    [[nodiscard]] std::string name() const;

private:
    template <typename Call>
    bool answers(const std::string& traffic, Call call);
    [[nodiscard]] Failure failure(size_t longest, const LibraryError& error) const override;

    int address;
};

/// Why the library could not open a chip: because of its bus, or a kernel driver that uses it.
Failure chipOpenFailure(const std::string& path, int address, int error);

/// The functions of the adapter, I2C_FUNC_... of <linux/i2c.h>. Throws if it cannot send plain messages, which all
/// verbs need.
unsigned long busFunctions(const std::string& path);

/// Whether errno means that no chip acknowledged. The value depends on the adapter's driver.
bool meansNoAnswer(int error);

}  // namespace i2c
