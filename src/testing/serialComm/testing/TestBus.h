#pragma once

#include <serialComm/SyncSerialBase.h>

#include <optional>

namespace serialComm::testing
{

/// What SessionBus and RegisterChip have in common: they return what I2c and Spi return, after failures as well, and
/// write the same ERROR lines to the log4cplus logger "SerialComm".
class TestBus : public SyncSerialBase
{
public:
    /// The bus that is imitated.
    enum class Kind { i2c, spi };

    ByteArray read(size_t len) override;
    bool write(const ByteArray& data) override;
    ByteArray writeRead(const ByteArray& data, size_t len) override;
    bool setMaxSpeed(int hz) override;

protected:
    /// On I2C bytes to send, a number of bytes to receive, or both. On SPI always bytes to send, and as many to receive
    /// unless nothing is.
    struct Transfer {
        std::optional<ByteArray> sent;  ///< Bytes to send.
        std::optional<size_t> wanted;   ///< How many to receive.
    };
    /// The outcome of a transfer.
    struct Result {
        int error = 0;       ///< An errno, 0 for success.
        ByteArray received;  ///< As many bytes as were wanted, or fewer.
        size_t written = 0;  ///< On I2C, where nothing is to be received.
    };

    /// A bus of this kind.
    explicit TestBus(Kind bus) : kind(bus) {}

    /// Performs a transfer.
    virtual Result transfer(const Transfer& transfer) = 0;

    /// Sets the clock of SPI.
    ///
    /// @return An errno, 0 for success.
    virtual int setSpeed(int hz) = 0;

    /// The kind given to the constructor.
    [[nodiscard]] Kind busKind() const { return kind; }

private:
    ByteArray spiTransfer(const ByteArray& data, bool receives, const char* failure);

    Kind kind;
};

}  // namespace serialComm::testing
