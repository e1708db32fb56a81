#pragma once

#include <serialComm/SyncSerialBase.h>

#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>

#include <iomanip>
#include <sstream>
#include <string>

/// Passes every call on to another bus and logs the bytes at DEBUG to the logger "Payload". A chip driver can use it in
/// place of that bus.
class PayloadLog : public SyncSerialBase
{
public:
    explicit PayloadLog(SyncSerialBase& inner) : bus(inner) {}

    bool init() override { return bus.init(); }
    bool setMaxSpeed(int hz) override { return bus.setMaxSpeed(hz); }

    ByteArray read(size_t len) override
    {
        ByteArray received = bus.read(len);
        LOG4CPLUS_DEBUG(logger, "read" << hex(received));
        return received;
    }

    bool write(const ByteArray& data) override
    {
        LOG4CPLUS_DEBUG(logger, "write" << hex(data));
        return bus.write(data);
    }

    ByteArray writeRead(const ByteArray& data, size_t len) override
    {
        ByteArray received = bus.writeRead(data, len);
        LOG4CPLUS_DEBUG(logger, "writeRead" << hex(data) << " ->" << hex(received));
        return received;
    }

private:
    static std::string hex(const ByteArray& bytes)
    {
        std::ostringstream text;
        text << std::hex << std::setfill('0');
        for (const uint8_t byte : bytes)
            text << ' ' << std::setw(2) << int{byte};
        return text.str();
    }

    SyncSerialBase& bus;
    log4cplus::Logger logger = log4cplus::Logger::getInstance("Payload");
};
