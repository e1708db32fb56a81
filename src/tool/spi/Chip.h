// A chip opened by the library, at the mode and clock that were asked for.
#pragma once

#include "device/OpenBus.h"
#include "spi/ChipRequest.h"

#include <serialComm/Spi.h>

#include <string>

namespace spi
{

/// What the driver has set for a device.
struct Settings {
    uint8_t mode = 0;
    uint8_t bits = 0;
    uint32_t speedHz = 0;
};

/// Read through a descriptor that is open only for this.
Settings settingsOf(const std::string& path);

/// What spidev takes in one message.
size_t longestMessage();

class Chip : public OpenBus<Spi>
{
public:
    Chip(const ChipRequest& request, Output& shown);

    ByteArray read(size_t count);
    void write(const ByteArray& bytes);

    /// What comes in while the bytes go out.
    ByteArray exchange(const ByteArray& bytes);

    /// What comes in behind the bytes.
    ByteArray writeRead(const ByteArray& bytes, size_t count);

    [[nodiscard]] const std::string& name() const { return path; }

private:
    Chip(const ChipRequest& request, uint8_t mode, Output& shown);

    [[nodiscard]] Failure setUpFailure(uint8_t mode, const LibraryError& error) const;
    [[nodiscard]] Failure failure(size_t longest, const LibraryError& error) const override;

    /// With the settings below the first transfer's lines.
    std::string withSettings(const std::string& traffic);

    std::string settings;
};

}  // namespace spi
