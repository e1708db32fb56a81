// What the preloaded library and the process that records or replays say to each other, over a stream socket.
//
// The library sends a Request, with data behind it. To those that it waits for, the other side sends a Reply, with data
// behind it as well, and one descriptor where the reply says so. Both run on the same machine: records go as they are.
#pragma once

#include <stdint.h>

namespace replay
{

/// The environment variable with the name of the socket, which is an abstract one.
constexpr auto socketVariable = "SERIALCOMM_SESSION";

enum class Mode : uint32_t { record, replay };

enum class BusKind : uint32_t { i2c, spi, serial };

enum class RequestKind : uint32_t {
    hello,      ///< Reply: the mode as result; in replay each device's path, with its existence and kind before it.
    open,       ///< OpenState and path. Reply: handle, result; in replay the descriptor.
    inherited,  ///< DescriptorId of a descriptor that came through exec. Reply: handle and BusKind, or result -1.
    read,       ///< When recording, what was read.
    write,      ///< What is to be written.
    set,        ///< A setting, in `setting` and `value`.
    get,        ///< Likewise; the value when recording, and otherwise in the reply's result.
    line,       ///< LineState that the program asks for.
    getLine,    ///< In replay. Reply: LineState, if it is known.
    i2c,        ///< I2cPart[count], bytes of the parts that are sent, when recording those that were received.
    smbus,      ///< SmbusCall; when recording with what was received. Reply: its data.
    spi,        ///< SpiPart[count], bytes sent, when recording bytes received.
    sent,       ///< In replay: `value` bytes were written to a serial port. No reply.
};

/// In the order of session::Setting::Name.
enum class SettingKind : uint32_t {
    address,
    forceAddress,
    tenBit,
    pec,
    timeout,
    retries,
    functions,
    mode,
    lsbFirst,
    bits,
    speed,
    line,
};

struct Request {
    uint32_t size;  ///< With what follows.
    RequestKind kind;
    uint32_t handle;
    SettingKind setting;
    uint32_t value;  ///< Of a setting; bytes asked for by read; how many parts there are.
    int32_t error;   ///< When recording: an errno, or 0.
    int64_t result;  ///< When recording: what the call returned.
    int64_t time;    ///< CLOCK_MONOTONIC in nanoseconds.
};

struct Reply {
    uint32_t size;  ///< With what follows.
    int32_t error;  ///< For the program; 0 for success.
    int64_t result;
    uint32_t handle;  ///< 0: the call is none of ours.
    BusKind bus;
    uint32_t hasDescriptor;
    uint32_t unused;
};

struct LineState {
    uint32_t baudRate;
    uint8_t dataBits;
    uint8_t parity;  ///< 'N', 'E' or 'O'.
    uint8_t stopBits;
    uint8_t rtsCts;
    uint8_t xonXoff;
    uint8_t unused[3];
};

struct OpenState {
    BusKind bus;
    uint32_t hasMode;  ///< SPI, when recording; the clock as well.
    uint32_t mode;
    uint32_t speedHz;
    uint32_t hasLine;  ///< A serial port, when recording.
    LineState line;
    int32_t flags;  ///< Of open().
    uint64_t device;
    uint64_t inode;
};

struct DescriptorId {
    uint64_t device;
    uint64_t inode;
};

struct I2cPart {
    uint16_t address;
    uint16_t flags;
    uint32_t length;
};

struct SmbusCall {
    uint8_t isRead;
    uint8_t command;
    uint16_t unused;
    uint32_t size;     ///< I2C_SMBUS_BYTE and so on.
    uint8_t data[36];  ///< union i2c_smbus_data
};

struct SpiPart {
    uint32_t length;
    uint32_t speedHz;
    uint8_t bitsPerWord;
    uint8_t chipSelectChange;
    uint8_t outLines;
    uint8_t inLines;
    uint8_t hasOut;
    uint8_t hasIn;
    uint8_t unused[2];
};

}  // namespace replay
