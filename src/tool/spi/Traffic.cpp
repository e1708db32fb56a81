#include "spi/Traffic.h"

#include "base/Bytes.h"

#include <session/Traffic.h>

namespace spi
{
namespace
{

/// `sent`, then `zeros` zero bytes; the first `dropped` received bytes are dropped, the other `kept` are kept.
std::string traffic(const ByteArray& sent, size_t zeros, size_t dropped, size_t kept)
{
    std::string mosi = "MOSI";
    std::string miso = "MISO";
    if (!sent.empty())
        mosi += ' ' + session::toText(session::known(sent), session::Length::cut);
    if (zeros > 0)
        mosi += ' ' + session::repeated(0, zeros);
    const session::Data received{std::vector<session::Byte>(dropped), kept};
    if (dropped + kept > 0)
        miso += ' ' + session::toText(received, session::Length::cut);
    return mosi + "\n" + miso;
}

std::string settings(const std::string& mode, int speedHz)
{
    return "mode " + mode + ", " + session::frequency(static_cast<uint32_t>(speedHz));
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
