/// @file
/// The byte buffer for transfers, and the common interface of the synchronous buses.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <vector>

/// The bytes of one transfer, in their order on the wire.
using ByteArray = std::vector<uint8_t>;

/// A device on a synchronous serial bus. Chip drivers use this interface, so that they work on I2C and SPI.
///
/// The constructor opens nothing; init() opens the device and the destructor closes it. The object owns its descriptor
/// and can be neither copied nor moved. Every call runs in the caller's thread and blocks in its system calls. The
/// class has no locks: the caller must serialise access to a shared object. Different objects are independent.
///
/// A device error never throws. It is logged as an ERROR line by the log4cplus logger "SerialComm". The result depends
/// on the bus: I2c reports the failure, Spi does not (see Spi). On a closed object, system calls fail with errno 9
/// (EBADF). The only exceptions are those of creating a ByteArray: std::bad_alloc, or std::length_error if the length
/// is more than a vector can hold.
class [[gnu::visibility("default")]] SyncSerialBase
{
public:
    SyncSerialBase() = default;
    SyncSerialBase(const SyncSerialBase&) = delete;
    SyncSerialBase& operator=(const SyncSerialBase&) = delete;
    virtual ~SyncSerialBase();

    /// Opens the device node and applies the link parameters. A second call closes the earlier descriptor first.
    ///
    /// @return true if the device is open; false otherwise, with an ERROR line.
    virtual bool init() = 0;

    /// Receives bytes in one transfer.
    ///
    /// @param len Bytes to receive.
    /// @return `len` bytes. After a failure, an empty ByteArray (I2c) or still `len` bytes (Spi).
    virtual ByteArray read(size_t len) = 0;

    /// Sends bytes in one transfer, directly from the caller's buffer.
    ///
    /// @param data Bytes to send.
    /// @return true if all bytes were sent. After a failure, false (I2c) or still true (Spi).
    virtual bool write(const ByteArray& data) = 0;

    /// Sends and receives in one transfer, without releasing the bus in between.
    ///
    /// @param data Bytes to send.
    /// @param len Bytes to receive.
    /// @return I2c: the `len` bytes received after `data` was sent. Spi: all bytes received from the first clock on;
    /// their number is the larger of `data.size()` and `len`. After a failure as for read(), with Spi's full number of
    /// bytes.
    virtual ByteArray writeRead(const ByteArray& data, size_t len) = 0;

    /// Sets the maximum bus clock.
    ///
    /// @param hz Clock in Hz.
    /// @return I2c: false, because it is not supported. Spi: true, even if the driver refuses the clock.
    virtual bool setMaxSpeed(int hz) = 0;
};
