#include "spi/ChipRequest.h"

#include "spi/Values.h"

namespace spi
{

void describeDevice(Grammar& grammar, std::string& device)
{
    grammar.word("DEV", "2.0, spidev2.0 or a path", device, parseDevice).complete(Candidates::SpiDevices);
}

void describeSettings(Grammar& grammar, ChipRequest& request)
{
    grammar.option("--mode", "M", "0 to 3, or the mode byte in hex (0x0b); default: the mode that the device has",
                   request.mode, parseMode);
    grammar.option("--speed", "HZ", "Clock; k and M stand for 1000 and 1000000", request.speedHz, parseSpeed, "500k");
}

}  // namespace spi
