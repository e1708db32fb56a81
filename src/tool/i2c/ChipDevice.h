// The library's object for a chip, and what --force adds to it.
#pragma once

#include <serialComm/I2c.h>

#include <linux/i2c.h>

#include <string>
#include <vector>

namespace i2c
{

/// The library binds its descriptor to the address, which the kernel refuses with EBUSY if a driver uses the chip.
/// After openForced(), the same messages are sent through I2C_RDWR, where each contains the address.
class ChipDevice : public I2c
{
public:
    ChipDevice(const std::string& node, int chipAddress);
    ~ChipDevice() override;
    ChipDevice(const ChipDevice&) = delete;
    ChipDevice& operator=(const ChipDevice&) = delete;

    /// Instead of init().
    bool openForced();

    ByteArray read(size_t len) override;
    bool write(const ByteArray& data) override;
    ByteArray writeRead(const ByteArray& data, size_t len) override;

private:
    [[nodiscard]] bool forced() const { return fd >= 0; }
    [[nodiscard]] struct i2c_msg outgoing(const ByteArray& data) const;
    [[nodiscard]] struct i2c_msg incoming(ByteArray& buffer) const;
    [[nodiscard]] bool transfer(std::vector<struct i2c_msg> messages) const;

    std::string path;
    int address;
    int fd = -1;
};

}  // namespace i2c
