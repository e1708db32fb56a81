#include "serialComm/testing/TestBus.h"

#include <string.h>

#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>

#include <algorithm>

namespace serialComm::testing
{

static log4cplus::Logger logger()
{
    return log4cplus::Logger::getInstance("SerialComm");
}

ByteArray TestBus::read(size_t len)
{
    if (kind == Kind::spi)
        return spiTransfer(ByteArray(len), true, "SPI can't read spi message. errno: ");

    const Result result = transfer({std::nullopt, len});
    if (result.error != 0 || result.received.size() != len) {
        LOG4CPLUS_ERROR(logger(), "I2C read failed, requested: "
                                      << len << ", returned: "
                                      << (result.error != 0 ? "-1" : std::to_string(result.received.size())));
        return {};
    }
    return result.received;
}

bool TestBus::write(const ByteArray& data)
{
    if (kind == Kind::spi) {
        spiTransfer(data, false, "SPI can't send message. errno: ");
        return true;
    }

    const Result result = transfer({data, std::nullopt});
    if (result.error != 0 || result.written != data.size()) {
        LOG4CPLUS_ERROR(logger(), "I2C write failed, requested: "
                                      << data.size()
                                      << ", written: " << (result.error != 0 ? "-1" : std::to_string(result.written)));
        return false;
    }
    return true;
}

ByteArray TestBus::writeRead(const ByteArray& data, size_t len)
{
    if (kind == Kind::spi) {
        ByteArray padded = data;
        padded.resize(std::max(data.size(), len));
        return spiTransfer(padded, true, nullptr);
    }

    const Result result = transfer({data, len});
    if (result.error != 0) {
        LOG4CPLUS_ERROR(logger(), "I2C ioctl I2C_RDWR failed, return: -1 error: " << strerror(result.error));
        return {};
    }
    ByteArray received = result.received;
    received.resize(len);  // the kernel reports a transaction with fewer messages as done
    return received;
}

ByteArray TestBus::spiTransfer(const ByteArray& data, bool receives, const char* failure)
{
    const Result result = transfer({data, receives ? std::optional<size_t>{data.size()} : std::nullopt});
    if (result.error != 0 && failure != nullptr)
        LOG4CPLUS_ERROR(logger(), failure << result.error);
    else if (result.error != 0)
        LOG4CPLUS_ERROR(logger(), "SPI can't send/read message. ret:-1");
    ByteArray received = result.received;
    received.resize(receives ? data.size() : 0);
    return received;
}

bool TestBus::setMaxSpeed(int hz)
{
    if (kind == Kind::i2c) {
        LOG4CPLUS_ERROR(logger(), "I2C set max speed is not supported");
        return false;
    }
    if (setSpeed(hz) != 0)
        LOG4CPLUS_ERROR(logger(), "SPI can't set write max speed hz");
    return true;
}

}  // namespace serialComm::testing
