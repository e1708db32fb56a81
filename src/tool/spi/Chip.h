// A chip opened by the library, with the requested mode and clock.
#pragma once

#include "device/OpenBus.h"
#include "spi/ChipRequest.h"

#include <serialComm/Spi.h>

#include <string>

namespace spi
{

/// The settings of a device, as the driver reports them.
struct Settings {
    uint8_t mode = 0;
    uint8_t bits = 0;
    uint32_t speedHz = 0;
};

/// Read through a descriptor that is open only for this.
Settings settingsOf(const std::string& path);

/// The most bytes that spidev accepts in one message.
size_t longestMessage();

class Chip : public OpenBus<Spi>
{
public:
    Chip(const ChipRequest& request, Output& shown);

    ByteArray read(size_t count);
    void write(const ByteArray& bytes);

    /// Returns the bytes received while these are sent.
    ByteArray exchange(const ByteArray& bytes);

    /// Returns the bytes received after these are sent.
    ByteArray writeRead(const ByteArray& bytes, size_t count);

    [[nodiscard]] const std::string& name() const { return path; }

private:
    Chip(const ChipRequest& request, uint8_t mode, Output& shown);

    [[nodiscard]] Failure setUpFailure(uint8_t mode, const LibraryError& error) const;
    [[nodiscard]] Failure failure(size_t longest, const LibraryError& error) const override;

    /// Adds the settings below the lines of the first transfer.
    std::string withSettings(const std::string& traffic);

    std::string settings;
};

}  // namespace spi
