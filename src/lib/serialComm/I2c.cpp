#include "serialComm/I2c.h"

#include "serialComm/Log.h"

#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <string.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

// The interface has no source file of its own: this definition makes the compiler emit its virtual table here.
SyncSerialBase::~SyncSerialBase() = default;

I2c::I2c(const std::string& device, int slaveAddress) : address(slaveAddress), path(device) {}

I2c::~I2c()
{
    if (fd >= 0) {
        ::close(fd);
        fd = -1;
    }
}

bool I2c::init()
{
    TRACE_ENTER("path: " << path << " address " << address);

    if (fd >= 0) {
        ::close(fd);
    }
    fd = ::open(path.c_str(), O_RDWR);
    if (fd < 0) {
        LOG(ERROR, "Failed to open i2c device: " << path);
        return false;
    }

    if (::ioctl(fd, I2C_SLAVE, static_cast<unsigned long>(static_cast<uint32_t>(address))) != 0) {
        ::close(fd);
        fd = -1;
        LOG(ERROR, "ioctl failed");
        return false;
    }

    TRACE_LEAVE("");
    return true;
}

ByteArray I2c::read(size_t len)
{
    TRACE_ENTER("len: " << len);

    ByteArray result(len);
    const ssize_t returned = ::read(fd, result.data(), len);
    if (static_cast<size_t>(returned) != len) {
        LOG(ERROR, "I2C read failed, requested: " << len << ", returned: " << returned);
        return {};
    }

    TRACE_LEAVE("");
    return result;
}

bool I2c::write(const ByteArray& data)
{
    TRACE_ENTER("");

    const ssize_t written = ::write(fd, data.data(), data.size());
    if (static_cast<size_t>(written) != data.size()) {
        LOG(ERROR, "I2C write failed, requested: " << data.size() << ", written: " << written);
        return false;
    }

    TRACE_LEAVE("");
    return true;
}

ByteArray I2c::writeRead(const ByteArray& data, size_t len)
{
    ByteArray result(len);

    int ret = -1;
    if (data.size() > UINT16_MAX || len > UINT16_MAX) {
        errno = EMSGSIZE;
    } else {
        struct i2c_msg messages[2]{};
        messages[0].addr = static_cast<uint16_t>(address);
        messages[0].len = static_cast<uint16_t>(data.size());
        messages[0].buf = const_cast<uint8_t*>(data.data());  // the kernel only reads a message without I2C_M_RD
        messages[1].addr = static_cast<uint16_t>(address);
        messages[1].flags = I2C_M_RD;
        messages[1].len = static_cast<uint16_t>(len);
        messages[1].buf = result.data();

        struct i2c_rdwr_ioctl_data request {
        };
        request.msgs = messages;
        request.nmsgs = 2;
        ret = ::ioctl(fd, I2C_RDWR, &request);
    }
    if (ret < 0) {
        const int errorNumber = errno;
        LOG(ERROR, "I2C ioctl I2C_RDWR failed, return: " << ret << " error: " << strerror(errorNumber));
        return {};
    }

    return result;
}

bool I2c::setMaxSpeed(int)
{
    LOG(ERROR, "I2C set max speed is not supported");
    return false;
}

ByteArray I2c::readRegister(uint8_t reg, size_t len)
{
    TRACE_ENTER("");

    const ssize_t written = ::write(fd, &reg, 1);
    if (written != 1) {
        LOG(ERROR, "I2C write register address failed, requested: 1, written: " << written);
        return {};
    }

    ByteArray result(len);
    const ssize_t returned = ::read(fd, result.data(), len);
    if (static_cast<size_t>(returned) != len) {
        LOG(ERROR, "I2C read from register failed, requested: " << len << ", returned: " << returned);
        return {};
    }

    TRACE_LEAVE("");
    return result;
}

bool I2c::writeRegister(uint8_t reg, const ByteArray& data)
{
    TRACE_ENTER("");

    ByteArray message(1 + data.size());
    message[0] = reg;
    std::copy(data.begin(), data.end(), message.begin() + 1);

    const ssize_t written = ::write(fd, message.data(), message.size());
    if (static_cast<size_t>(written) != message.size()) {
        LOG(ERROR, "I2C write to register failed, requested: " << data.size() << ", written: " << written);
        return false;
    }

    TRACE_LEAVE("");
    return true;
}
