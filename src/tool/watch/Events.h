// What the kernel records about I2C and SPI, decoded with libtraceevent into plain values.
#pragma once

#include "watch/Pages.h"

#include <stdint.h>

#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace watch
{

/// A step of a transaction: its messages (read: what is asked for), what came for those that read, and the result.
struct I2cEvent {
    enum class Kind { write, read, reply, result };

    Kind kind = Kind::result;
    int adapter = 0;
    unsigned int number = 0;  ///< of the message, from 0; of a result: how many messages there were
    uint16_t address = 0;
    uint16_t flags = 0;  ///< of <linux/i2c.h>
    size_t length = 0;   ///< of the message, even where `bytes` are fewer
    int result = 0;      ///< messages that were transferred, or a negative errno
    std::vector<uint8_t> bytes = {};
};

/// The same of an SMBus request, as the adapter was asked for it.
struct SmbusEvent {
    enum class Kind { write, read, reply, result };

    Kind kind = Kind::result;
    int adapter = 0;
    uint16_t address = 0;
    uint16_t flags = 0;  ///< of the client: 0x10 is a 10-bit address
    uint8_t command = 0;
    uint32_t protocol = 0;  ///< I2C_SMBUS_BYTE_DATA and similar
    int result = 0;
    bool isRead = false;
    std::vector<uint8_t> bytes = {};  ///< of a block: first its length
};

/// A step of an SPI message: submitted by a process, started by the controller, its transfers, and its end.
struct SpiEvent {
    enum class Kind { setup, chipSelect, submit, start, transferStart, transferStop, done };

    Kind kind = Kind::done;
    int bus = 0;
    int chip = 0;
    uint64_t message = 0;    ///< its address in the kernel
    size_t length = 0;       ///< of a transfer, or of the message
    size_t transferred = 0;  ///< of the message
    uint32_t mode = 0;       ///< of <linux/spi/spi.h>
    uint32_t speedHz = 0;
    int status = 0;                      ///< of the setup
    bool isActive = false;               ///< chip select
    std::vector<uint8_t> sent = {};      ///< the first bytes of a transfer; empty if nothing is sent
    std::vector<uint8_t> received = {};  ///< the same of what came
};

struct Event {
    uint64_t time = 0;  ///< ns
    int thread = 0;
    std::variant<I2cEvent, SmbusEvent, SpiEvent> what;
};

/// An event that the watch uses: "i2c", "i2c_write".
struct EventName {
    const char* system;
    const char* name;
    bool isRequired;  ///< without it, the kernel is of no use
};

/// Those of a bus, "i2c" or "spi".
const std::vector<EventName>& eventsOf(const std::string& bus);

class Decoder
{
public:
    Decoder();
    ~Decoder();
    Decoder(const Decoder&) = delete;
    Decoder& operator=(const Decoder&) = delete;

    /// Learns the layout of pages from the kernel's events/header_page. Without it, it is the layout of this machine.
    void learnHeader(const std::string& text);

    /// Learns an event from the kernel's file "format". False if it cannot be read.
    bool learn(const EventName& name, const std::string& format);

    [[nodiscard]] Page page(const uint8_t* data, size_t size) const;

    /// Nothing for a record of another event. Of one that ends early, the fields behind its end are 0 or empty.
    [[nodiscard]] std::optional<Event> event(const Record& record) const;

private:
    struct Layout;
    std::unique_ptr<Layout> layout;
};

}  // namespace watch
