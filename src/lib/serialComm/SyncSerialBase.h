/// @file
/// The bytes of a transfer, and what the synchronous buses have in common.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <vector>

/// The bytes of one transfer, first byte on the wire first.
using ByteArray = std::vector<uint8_t>;

/// A device on a synchronous serial bus, whichever bus it is: what a chip's driver is written against.
///
/// An object is constructed closed, opened by init() and closed by its destructor; it owns its descriptor and can be
/// neither copied nor moved. Every call blocks in its system calls and runs in the caller's thread. There are no locks:
/// threads that share one object order their calls themselves; different objects are independent.
///
/// A device error never throws. It writes an ERROR line to the log4cplus logger "SerialComm", and what the call then
/// returns differs by bus: I2c says so, Spi does not (see there). A call on a closed object fails like any other, with
/// errno 9 (EBADF). The only exceptions are those of building a ByteArray: std::bad_alloc, or std::length_error for a
/// length beyond what a vector can hold.
class [[gnu::visibility("default")]] SyncSerialBase
{
public:
    SyncSerialBase() = default;
    SyncSerialBase(const SyncSerialBase&) = delete;
    SyncSerialBase& operator=(const SyncSerialBase&) = delete;
    virtual ~SyncSerialBase();

    /// Opens the device node and applies the link parameters. A second call closes the earlier descriptor first.
    ///
    /// @return true when the device is open; false after an ERROR line.
    virtual bool init() = 0;

    /// Receives bytes in one transfer.
    ///
    /// @param len Bytes to receive.
    /// @return `len` bytes. After a failure: empty (I2c), or `len` bytes all the same (Spi).
    virtual ByteArray read(size_t len) = 0;

    /// Sends all bytes of `data` in one transfer, out of the caller's storage.
    ///
    /// @return true when they were sent. After a failure: false (I2c), or true all the same (Spi).
    virtual bool write(const ByteArray& data) = 0;

    /// Sends and receives in one transfer, without giving up the bus in between.
    ///
    /// @param data Bytes to send.
    /// @param len Bytes to receive.
    /// @return I2c: the `len` bytes received after `data`. Spi: everything received from the first clock on, as many
    /// bytes as the longer of `data` and `len`. After a failure as for read().
    virtual ByteArray writeRead(const ByteArray& data, size_t len) = 0;

    /// Sets the highest bus clock.
    ///
    /// @param hz Clock in hertz.
    /// @return false on I2c, which cannot; true on Spi, whatever the driver answered.
    virtual bool setMaxSpeed(int hz) = 0;
};
