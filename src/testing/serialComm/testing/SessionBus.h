#pragma once

#include "serialComm/testing/FailureHandler.h"
#include "serialComm/testing/TestBus.h"

#include <initializer_list>
#include <memory>
#include <string>
#include <utility>

namespace serialComm::testing
{

/// A bus that plays a session: each call must be the next transfer, and returns what the session has for it.
///
/// The lines are those of a session file, without the device: "S 48 W 00 Sr 48 R 19 80 P" on I2C, "MOSI 9f 00 MISO
/// -- ef" on SPI, with an error's name at their end where the transfer fails, and "repeat {", "unordered {" and "}".
///
/// @code
/// serialComm::testing::SessionBus bus{"S 48 W 00 Sr 48 R 19 80 P",
///                                     "S 48 W 00 Sr 48 R [2] NA ETIMEDOUT"};
/// const ByteArray temperature = bus.writeRead({0x00}, 2);  // 19 80
/// const ByteArray failed = bus.writeRead({0x00}, 2);       // empty, and an ERROR line in the log
/// @endcode
///
/// A call that is not the next line fails the test; it returns as after EIO on the bus. If lines are left over, the
/// test fails when the object is destroyed.
class SessionBus : public TestBus
{
public:
    /// Lines, or several in one text.
    ///
    /// @param lines Traffic lines.
    /// @param fail What makes a test fail.
    /// @throws std::invalid_argument for lines that are not in the notation, mix I2C and SPI, or two addresses.
    SessionBus(std::initializer_list<std::string> lines, FailureHandler fail = failTest)
        : SessionBus(joined(lines), std::move(fail))
    {
    }

    /// One text with one or more lines; otherwise the same.
    SessionBus(const std::string& lines, FailureHandler fail);

    /// The lines of a session file about one chip.
    ///
    /// @param file Path of the file.
    /// @param device Path of the bus's node, as in the session: "/dev/i2c-4".
    /// @param address 7-bit address on I2C; lines about other chips are skipped. Ignored on SPI.
    /// @param fail What makes a test fail.
    /// @return The bus.
    /// @throws std::invalid_argument when the file cannot be read, is no session, or has no transfer of this chip.
    static SessionBus fromFile(const std::string& file, const std::string& device, int address = 0,
                               FailureHandler fail = failTest);

    SessionBus(const SessionBus&) = delete;
    SessionBus& operator=(const SessionBus&) = delete;

    /// Fails the test if anything is left.
    ~SessionBus() override;

    /// Returns the result of the session's next "open" line; true if the session has no such line.
    bool init() override;

private:
    class Impl;

    explicit SessionBus(std::unique_ptr<Impl> parsed);

    static std::string joined(std::initializer_list<std::string> lines);

    Result transfer(const Transfer& transfer) override;
    int setSpeed(int hz) override;

    std::unique_ptr<Impl> impl;
};

}  // namespace serialComm::testing
