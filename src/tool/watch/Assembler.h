// Pairs the kernel's events into transfers. Pure: events in, transfers out.
#pragma once

#include "watch/Events.h"
#include "watch/Transfer.h"

#include <map>
#include <utility>
#include <vector>

namespace watch
{

class Assembler
{
public:
    /// Events of all processors, in the order of their times.
    void add(const Event& event);

    /// Ends what is in progress as incomplete: events were lost, or the watch ends.
    void endAll();

    /// The transfers that have ended since the call before, without names.
    std::vector<Transfer> take() { return std::exchange(ended, {}); }

private:
    struct Message {
        unsigned int number = 0;  ///< in the transaction
        size_t asked = 0;         ///< bytes to be read, 0 once they came
    };
    struct I2c {
        Transfer transfer;
        std::vector<Message> messages = {};  ///< as many as the transfer has

        [[nodiscard]] bool isBehind(unsigned int number) const;
    };
    struct Smbus {
        Event request;
        std::vector<uint8_t> sent;
        std::vector<uint8_t> received;
        bool isReplaced = false;  ///< by the I2C messages that the kernel made of it
    };
    struct Spi {
        Transfer transfer;
        uint64_t message = 0;
        bool isStarted = false;
    };
    struct Chip {
        std::optional<uint32_t> mode;
        std::optional<uint32_t> speedHz;
        bool isSelected = false;
    };

    void add(const Event& event, const I2cEvent& step);
    void add(const Event& event, const SmbusEvent& step);
    void add(const Event& event, const SpiEvent& step);

    void endIncomplete(Transfer transfer);

    static void addMessage(I2c& open, const I2cEvent& step);
    static void addReply(I2c& open, const I2cEvent& step);
    void end(I2c open, uint64_t time, int result, size_t messages);

    void end(const Smbus& open, const Event& event, const SmbusEvent& result);

    void start(const Event& event, const SpiEvent& step);
    static void addTransfer(Spi& open, const SpiEvent& step);
    static void endTransfer(Spi& open, const SpiEvent& step);
    void end(Spi open, const Event& event, const SpiEvent& done);
    void changeChipSelect(const SpiEvent& step);

    std::map<int, I2c> i2c;                              ///< by adapter: it makes one transaction at a time
    std::map<int, Smbus> smbus;                          ///< by adapter
    std::map<int, Spi> spi;                              ///< by bus: what its controller has started
    std::map<std::pair<int, uint64_t>, int> submitters;  ///< threads, by bus and message
    std::map<Place, Chip> chips;
    std::vector<Transfer> ended;
};

}  // namespace watch
