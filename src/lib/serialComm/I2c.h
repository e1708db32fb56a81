#pragma once

#include "serialComm/SyncSerialBase.h"

#include <string>

/// A chip at one address of an I2C bus, through the bus's i2c-dev node.
///
/// The notation below: S start, Sr repeated start, P stop, Addr the 7-bit address, Wr and Rd the direction bit, A
/// acknowledged; in brackets what the chip sends. The kernel turns each system call into such messages and carries them
/// out before it returns.
///
/// @code
/// I2c sensor{"/dev/i2c-4", 0x48};
/// if (!sensor.init())
///     return EXIT_FAILURE;                                  // the log says why
/// const ByteArray temperature = sensor.writeRead({0x00}, 2);
/// if (temperature.empty())
///     return EXIT_FAILURE;
/// @endcode
///
/// @see SyncSerialBase for life cycle, ownership, threads and exceptions
/// @see Linux kernel documentation, I2C: dev-interface, i2c-protocol (the notation above), fault-codes
class [[gnu::visibility("default")]] I2c : public SyncSerialBase
{
public:
    /// Keeps the parameters; touches no device and logs nothing.
    ///
    /// @param device Node of the bus, such as "/dev/i2c-4".
    /// @param slaveAddress 7-bit address, 0 to 0x7f, checked by the kernel in init(). A data sheet that says 0xa0 to
    /// write and 0xa1 to read means 0x50.
    I2c(const std::string& device, int slaveAddress);

    /// Closes the descriptor, if one is open; logs nothing.
    ~I2c() override;

    /// Opens the node and binds the descriptor to the address. Nothing goes out on the bus: a missing chip shows only
    /// at the first transfer. A second call closes the earlier descriptor just before it opens the node again.
    ///
    /// @return true when open and bound; false otherwise, and the object is closed.
    /// @par System calls
    /// `open(path, O_RDWR)`, `ioctl(fd, I2C_SLAVE, address)`; `close` when that failed.
    /// @par Log lines
    /// TRACE Enter (with "path: <path> address <address>") and Leave; ERROR "Failed to open i2c device: <path>", or
    /// "ioctl failed": the address is above 0x7f (EINVAL), or a kernel driver has the chip (EBUSY).
    bool init() override;

    /// Receives bytes.
    ///
    ///     S Addr Rd [A] [Data] A [Data] A ... [Data] NA P
    ///
    /// @param len Bytes to receive; 0 asks for none and succeeds when the driver does.
    /// @return `len` bytes; empty when fewer or none arrived.
    /// @par System calls
    /// One `read`: no retry; a driver may cut it (i2c-dev at 8192 bytes), which is a failure.
    /// @par Log lines
    /// TRACE Enter (with "len: <len>") and Leave; ERROR "I2C read failed, requested: <requested>, returned:
    /// <returned>", where -1 returned means that the call failed.
    ByteArray read(size_t len) override;

    /// Sends bytes out of the caller's storage.
    ///
    ///     S Addr Wr [A] Data [A] Data [A] ... Data [A] P
    ///
    /// @param data Bytes to send; none at all is a transfer of length 0.
    /// @return true when the kernel took every byte; false otherwise. What went out before a failure is not taken back.
    /// @par System calls
    /// One `write`: no retry, no copy, no allocation.
    /// @par Log lines
    /// TRACE Enter and Leave; ERROR "I2C write failed, requested: <requested>, written: <written>", where -1 written
    /// means that the call failed.
    bool write(const ByteArray& data) override;

    /// Sends bytes and receives others in one transaction: nobody else gets the bus in between.
    ///
    ///     S Addr Wr [A] Data [A] ... Data [A] Sr Addr Rd [A] [Data] A ... [Data] NA P
    ///
    /// The messages carry the address themselves, so that this call also reaches a chip that a kernel driver has.
    ///
    /// @param data Bytes to send, at most 65535, out of the caller's storage; i2c-dev takes 8192 (EINVAL above).
    /// @param len Bytes to receive, with the same bounds. Both messages are passed even when empty.
    /// @return `len` bytes; empty after a failure. Longer messages, which the kernel would cut to 16 bits and report as
    /// done, are refused with errno 90 (EMSGSIZE), without a system call.
    /// @par System calls
    /// One `ioctl(fd, I2C_RDWR, ...)` with two messages.
    /// @par Log lines
    /// No Enter or Leave; ERROR "I2C ioctl I2C_RDWR failed, return: <return> error: <error>", where `<error>` is the
    /// system's text for errno.
    ByteArray writeRead(const ByteArray& data, size_t len) override;

    /// Not to be had on I2C: the bus driver sets the clock.
    ///
    /// @return false.
    /// @par Log lines
    /// ERROR "I2C set max speed is not supported".
    bool setMaxSpeed(int hz) override;

    /// Sends a register address and then receives the register's bytes, as two transactions: another user of the bus
    /// may come in between. writeRead() does it in one.
    ///
    ///     S Addr Wr [A] Reg [A] P  S Addr Rd [A] [Data] A ... [Data] NA P
    ///
    /// @param reg Register address.
    /// @param len Bytes to receive.
    /// @return `len` bytes; empty when the register address did not go out (nothing is then read), or fewer or none
    /// arrived.
    /// @par System calls
    /// One `write` of one byte, one `read`.
    /// @par Log lines
    /// TRACE Enter and Leave; ERROR "I2C write register address failed, requested: 1, written: <written>", or "I2C read
    /// from register failed, requested: <requested>, returned: <returned>".
    virtual ByteArray readRegister(uint8_t reg, size_t len);

    /// Sends a register address and the register's new bytes in one transaction.
    ///
    ///     S Addr Wr [A] Reg [A] Data [A] ... Data [A] P
    ///
    /// @param reg Register address.
    /// @param data Bytes to send after it; none at all sends the register address alone.
    /// @return true when the kernel took every byte, the register address included; false otherwise.
    /// @par System calls
    /// One `write`, out of a buffer made for the call.
    /// @par Log lines
    /// TRACE Enter and Leave; ERROR "I2C write to register failed, requested: <requested>, written: <written>", where
    /// `<requested>` does not count the register address and `<written>` does.
    virtual bool writeRegister(uint8_t reg, const ByteArray& data);

private:
    int fd = -1;
    int address;
    std::string path;
};
