#include "spi/Traffic.h"

#include "base/Bytes.h"

namespace spi
{
namespace
{

/// `sent`, then `zeros` zero bytes; the first `dropped` bytes that come in are not kept, the other `kept` are.
std::string traffic(const ByteArray& sent, size_t zeros, size_t dropped, size_t kept)
{
    std::string mosi = "MOSI";
    std::string miso = "MISO";
    if (!sent.empty())
        mosi += " " + shortHex(sent);
    if (zeros > 0)
        mosi += " 00 x " + std::to_string(zeros);
    if (dropped > 0)
        miso += " -- x " + std::to_string(dropped);
    if (kept > 0)
        miso += " [" + std::to_string(kept) + "]";
    return mosi + "\n" + miso;
}

std::string settings(const std::string& mode, int speedHz)
{
    return "mode " + mode + ", " + std::to_string(speedHz) + " Hz";
}

}  // namespace

std::string readTraffic(size_t count)
{
    return traffic({}, count, 0, count);
}

std::string writeTraffic(const ByteArray& bytes)
{
    return traffic(bytes, 0, bytes.size(), 0);
}

std::string exchangeTraffic(const ByteArray& bytes)
{
    return traffic(bytes, 0, 0, bytes.size());
}

std::string writeReadTraffic(const ByteArray& bytes, size_t count)
{
    return traffic(bytes, count, bytes.size(), count);
}

std::string settingsLine(const ChipRequest& request)
{
    return settings(request.mode ? hexNumber(*request.mode) : "as set", request.speedHz);
}

std::string settingsLine(const ChipRequest& request, uint8_t mode)
{
    return settings(hexNumber(mode) + (request.mode ? "" : " as set"), request.speedHz);
}

}  // namespace spi
