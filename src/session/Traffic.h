// What goes over the wire, as text: the notation of session files, of --dry-run and of -v. Pure functions.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <optional>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

namespace session
{

/// A byte; nothing where it may be any.
using Byte = std::optional<uint8_t>;

/// The bytes of one direction, and how many more the program asked for that were not transferred (in a plan: not yet).
///
///     19 80        bytes        "*IDN?\n"    the same as text: \n \r \t \" \\ and \x1b
///     00 x 9       nine of them -- x 9       any nine bytes; where they are received, the program does not keep them
///     19 80 [2]    two came, four were asked for
struct Data {
    std::vector<Byte> bytes;
    size_t missing = 0;
};

Data known(const std::vector<uint8_t>& bytes);
Data planned(size_t count);

/// Bytes that may be anything as 0.
std::vector<uint8_t> bytesOf(const Data& data);

/// Bytes and what is missing.
size_t length(const Data& data);

/// One message of an I2C transaction: "S 48 W 00", or after another one "Sr 48 R 19 80". An address of three digits has
/// ten bits.
struct I2cMessage {
    uint16_t address = 0;
    bool tenBit = false;
    bool read = false;
    uint16_t flags = 0;  ///< The other bits of the kernel's i2c_msg: "S 48 R+recv-len 02 19 80 P".
    Data data;
};

/// A transaction and its result: "S 48 W 00 Sr 48 R 19 80 P", "S 51 W 00 NA ETIMEDOUT". NA, no acknowledgement, stands
/// before ENXIO, EREMOTEIO and ETIMEDOUT.
struct I2cTransfer {
    std::vector<I2cMessage> messages;
    int error = 0;
};

/// What is clocked out and in at the same time, with what differs from the device's settings; 0 where nothing does.
struct SpiSegment {
    Data out;
    Data in;
    uint32_t speedHz = 0;           ///< Where it differs from the transfer's: ", 250000 Hz".
    uint32_t bitsPerWord = 0;       ///< ", 16 bits"
    uint32_t outLines = 0;          ///< ", mosi-lines 4"
    uint32_t inLines = 0;           ///< ", miso-lines 4"
    bool chipSelectChange = false;  ///< After the segment: ", cs-change"
};

/// One message and its result: "MOSI 9f 00 00 MISO -- x 1 ef 40  mode 0x00, 500000 Hz". Segments are separated by ";".
/// Where the mode is "as set" or no speed is given, it may be any.
struct SpiTransfer {
    std::vector<SpiSegment> segments;
    std::optional<uint32_t> mode;
    std::optional<uint32_t> speedHz;
    int error = 0;
};

/// Bytes of a serial port: "> "*IDN?\n"" were sent by the program, "< "ACME\r\n"" received.
struct SerialTransfer {
    bool received = false;
    Data data;
    int error = 0;
};

using Transfer = std::variant<I2cTransfer, SpiTransfer, SerialTransfer>;

bool operator==(const Data& a, const Data& b);
bool operator==(const I2cMessage& a, const I2cMessage& b);
bool operator==(const I2cTransfer& a, const I2cTransfer& b);
bool operator==(const SpiSegment& a, const SpiSegment& b);
bool operator==(const SpiTransfer& a, const SpiTransfer& b);
bool operator==(const SerialTransfer& a, const SerialTransfer& b);

/// How bytes are shown: all of them, or of each direction the first 16 and their number: "2b ... (128 bytes)". What is
/// cut cannot be parsed.
enum class Length { whole, cut };

std::string toText(const Data& data, Length length = Length::whole);
std::string toText(const I2cTransfer& transfer, Length length = Length::whole);
std::string toText(const SpiTransfer& transfer, Length length = Length::whole);
std::string toText(const SerialTransfer& transfer, Length length = Length::whole);
std::string toText(const Transfer& transfer, Length length = Length::whole);

/// "ETIMEDOUT"; a number without a name as "E524".
std::string errorName(int number);

/// "00 x 9", "-- x 9".
std::string repeated(Byte byte, size_t count);

/// "500000 Hz"
std::string frequency(uint32_t hz);

/// "mode 0x03, 500000 Hz", "mode as set, 500000 Hz"; nothing where neither is known.
std::string modeAndSpeed(std::optional<uint32_t> mode, std::optional<uint32_t> speedHz);

/// Text that is not in the notation: what() says what is wrong and what would be right.
class SyntaxError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// Reads one traffic line. Its first word tells the bus: S is I2C, MOSI is SPI, > and < are a serial port.
///
/// @throws SyntaxError
Transfer parseTransfer(const std::string& line);

}  // namespace session
