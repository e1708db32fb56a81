// Session files: what a program did to devices and what it got back, as text. docs/sessions.md describes the format.
#pragma once

#include "Traffic.h"

#include <stddef.h>
#include <stdint.h>

#include <chrono>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace session
{

enum class Bus { i2c, spi, serial };

/// Line settings of a serial port: "9600 8N1", "115200 8E1 rtscts xonxoff".
struct LineSettings {
    uint32_t baudRate = 0;
    uint8_t dataBits = 8;
    char parity = 'N';  ///< N, E or O.
    uint8_t stopBits = 1;
    bool rtsCts = false;
    bool xonXoff = false;
};

/// The device was opened; with the state it was in, as far as that is known.
struct Open {
    Bus bus = Bus::i2c;
    std::optional<uint32_t> mode;      ///< SPI.
    std::optional<uint32_t> speedHz;   ///< SPI.
    std::optional<LineSettings> line;  ///< Serial port.
    int error = 0;
};

/// A setting of the device, changed; or, after "get", what the program was told.
struct Setting {
    enum class Name {
        address,       ///< I2C_SLAVE: "address 48"
        forceAddress,  ///< I2C_SLAVE_FORCE: "force-address 48"
        tenBit,        ///< "tenbit 1"
        pec,           ///< "pec 1"
        timeout,       ///< In units of 10 ms, as the kernel has it: "timeout 100"
        retries,       ///< "retries 3"
        functions,     ///< I2C_FUNCS: "get functions 0x0eff0009"
        mode,          ///< "mode 0x03"
        lsbFirst,      ///< "lsb-first 1"
        bits,          ///< "bits 8"
        speed,         ///< "speed 500000 Hz"
        line,          ///< "line 9600 8N1"
    };
    Name name = Name::address;
    bool isAnswer = false;  ///< After "get".
    uint32_t value = 0;
    LineSettings line;
    int error = 0;
};

/// One line of a session.
struct Event {
    size_t fileLine = 0;                             ///< Counted from 1; not part of what the event says.
    std::optional<std::chrono::microseconds> after;  ///< Since the event before.
    std::string device;                              ///< Its path, such as "/dev/i2c-4".
    std::variant<Open, Setting, I2cTransfer, SpiTransfer, SerialTransfer> what;
};

/// An event or a block of them.
struct Item {
    enum class Kind {
        event,
        repeat,     ///< Once or more often: "repeat {".
        unordered,  ///< In any order; holds events alone: "unordered {".
    };
    Kind kind = Kind::event;
    Event event;
    std::vector<Item> items;
};

struct Session {
    std::vector<Item> items;
};

bool operator==(const LineSettings& a, const LineSettings& b);
bool operator==(const Open& a, const Open& b);
bool operator==(const Setting& a, const Setting& b);
bool operator==(const Event& a, const Event& b);
bool operator==(const Item& a, const Item& b);
bool operator==(const Session& a, const Session& b);

/// A session file that does not follow the format.
class FormatError : public SyntaxError
{
public:
    FormatError(size_t line, const std::string& problem) : SyntaxError(problem), fileLine(line) {}

    size_t fileLine;
};

/// @throws FormatError
Session parse(const std::string& text);

/// Reads lines of one device that are not in a file: without version, times and the device's name, which is empty.
///
/// @throws FormatError
Session parseLines(const std::string& text);

/// The whole file; parse() makes the same session of it.
std::string toText(const Session& session);

/// One line, without its end: "i2c-4  S 48 W 00 Sr 48 R 19 80 P".
std::string toText(const Event& event);

/// The first line of a file, with its end.
std::string versionLine();

/// The line without time and device: "S 48 W 00 Sr 48 R 19 80 P".
std::string action(const Event& event);

/// The line without its time.
std::string withoutTime(const Event& event);

/// What the device is called in a session: "/dev/i2c-4" is i2c-4.
std::string deviceName(const std::string& path);

/// "9600 8N1"
std::string toText(const LineSettings& line);

Bus busOf(const Event& event);
int errorOf(const Event& event);

}  // namespace session
