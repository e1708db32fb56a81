#include "i2c/ChipDevice.h"

#include "base/LibraryLog.h"

#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>

namespace i2c
{

ChipDevice::ChipDevice(const std::string& node, int chipAddress)
    : I2c(node, chipAddress), path(node), address(chipAddress)
{
}

ChipDevice::~ChipDevice()
{
    if (fd >= 0)
        close(fd);
}

bool ChipDevice::openForced()
{
    fd = open(path.c_str(), O_RDWR | O_CLOEXEC);
    return fd >= 0;
}

ByteArray ChipDevice::read(size_t len)
{
    if (!forced())
        return I2c::read(len);
    ByteArray bytes(len);
    return transfer({incoming(bytes)}) ? bytes : ByteArray{};
}

bool ChipDevice::write(const ByteArray& data)
{
    return forced() ? transfer({outgoing(data)}) : I2c::write(data);
}

ByteArray ChipDevice::writeRead(const ByteArray& data, size_t len)
{
    if (!forced())
        return I2c::writeRead(data, len);
    ByteArray bytes(len);
    return transfer({outgoing(data), incoming(bytes)}) ? bytes : ByteArray{};
}

struct i2c_msg ChipDevice::outgoing(const ByteArray& data) const
{
    struct i2c_msg message {
    };
    message.addr = static_cast<uint16_t>(address);
    message.len = static_cast<uint16_t>(data.size());
    message.buf = const_cast<uint8_t*>(data.data());  // the kernel only reads a message without I2C_M_RD
    return message;
}

struct i2c_msg ChipDevice::incoming(ByteArray& buffer) const
{
    struct i2c_msg message = outgoing(buffer);
    message.flags = I2C_M_RD;
    return message;
}

bool ChipDevice::transfer(std::vector<struct i2c_msg> messages) const
{
    struct i2c_rdwr_ioctl_data request {
    };
    request.msgs = messages.data();
    request.nmsgs = static_cast<uint32_t>(messages.size());
    if (ioctl(fd, I2C_RDWR, &request) >= 0)
        return true;
    ErrorScope::report("I2C_RDWR failed", errno);
    return false;
}

}  // namespace i2c
