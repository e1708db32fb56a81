#pragma once

#include "serialComm/SyncSerialBase.h"

#include <string>

/// A chip at one address of an I2C bus, accessed through the bus's i2c-dev node.
///
/// Notation: S is start, Sr repeated start, P stop, Addr the 7-bit address, Wr and Rd the direction bit, A acknowledge,
/// NA no acknowledge; brackets enclose what the chip sends. Each system call completes its messages on the bus before
/// it returns.
///
/// @code
/// I2c sensor{"/dev/i2c-4", 0x48};
/// if (!sensor.init())
///     return EXIT_FAILURE;                                  // the reason is in the log
/// const ByteArray temperature = sensor.writeRead({0x00}, 2);
/// if (temperature.empty())
///     return EXIT_FAILURE;
/// @endcode
///
/// @see SyncSerialBase for life cycle, descriptor ownership, threads and exceptions
/// @see Linux kernel documentation, I2C: dev-interface, i2c-protocol (the notation above), fault-codes
class [[gnu::visibility("default")]] I2c : public SyncSerialBase
{
public:
    /// Stores the parameters; accesses no device and logs nothing.
    ///
    /// @param device Node of the bus, such as "/dev/i2c-4".
    /// @param slaveAddress 7-bit address, 0 to 0x7f; init() lets the kernel check it. If the data sheet gives 0xa0 for
    /// writing and 0xa1 for reading, the 7-bit address is 0x50.
    I2c(const std::string& device, int slaveAddress);

    /// Closes the descriptor if it is open; logs nothing.
    ~I2c() override;

    /// Opens the node and binds the descriptor to the address. It sends nothing on the bus, so a missing chip is
    /// noticed only at the first transfer. A second call closes the old descriptor, then opens the node again.
    ///
    /// @return true if the node is open and bound; otherwise false, and the object is closed.
    /// @par System calls
    /// `open(path, O_RDWR)`, `ioctl(fd, I2C_SLAVE, address)`; `close` if the ioctl fails.
    /// @par Log lines
    /// TRACE Enter (with "path: <path> address <address>") and Leave; ERROR "Failed to open i2c device: <path>", or
    /// "ioctl failed": the address is above 0x7f (EINVAL), or a kernel driver uses the chip (EBUSY).
    bool init() override;

    /// Receives bytes.
    ///
    ///     S Addr Rd [A] [Data] A [Data] A ... [Data] NA P
    ///
    /// @param len Bytes to receive. The driver decides whether a length of 0 succeeds.
    /// @return `len` bytes; empty if fewer bytes were received or the call failed.
    /// @par System calls
    /// One `read`: no retry. A driver may return fewer bytes (i2c-dev at most 8192), which is a failure.
    /// @par Log lines
    /// TRACE Enter (with "len: <len>") and Leave; ERROR "I2C read failed, requested: <requested>, returned:
    /// <returned>", where `<returned>` is -1 if the system call failed.
    ByteArray read(size_t len) override;

    /// Sends bytes directly from the caller's buffer.
    ///
    ///     S Addr Wr [A] Data [A] Data [A] ... Data [A] P
    ///
    /// @param data Bytes to send; if it is empty, a transfer of length 0.
    /// @return true if the kernel accepted every byte; false otherwise. Bytes sent before a failure stay sent.
    /// @par System calls
    /// One `write`: no retry, no copy, no allocation.
    /// @par Log lines
    /// TRACE Enter and Leave; ERROR "I2C write failed, requested: <requested>, written: <written>", where `<written>`
    /// is -1 if the system call failed.
    bool write(const ByteArray& data) override;

    /// Sends bytes and receives bytes in one transaction: no other transfer can take place in between.
    ///
    ///     S Addr Wr [A] Data [A] ... Data [A] Sr Addr Rd [A] [Data] A ... [Data] NA P
    ///
    /// The messages contain the address, so this call also reaches a chip that a kernel driver uses.
    ///
    /// @param data Bytes to send, at most 65535, directly from the caller's buffer. i2c-dev accepts at most 8192
    /// (EINVAL).
    /// @param len Bytes to receive, with the same limits. Both messages are passed even if they are empty.
    /// @return `len` bytes; empty after a failure. More than 65535 bytes are refused with errno 90 (EMSGSIZE) and no
    /// system call, because the kernel would truncate the length to 16 bits and report success.
    /// @par System calls
    /// One `ioctl(fd, I2C_RDWR, ...)` with two messages.
    /// @par Log lines
    /// No Enter or Leave; ERROR "I2C ioctl I2C_RDWR failed, return: <return> error: <error>", where `<error>` is the
    /// text of strerror(3).
    ByteArray writeRead(const ByteArray& data, size_t len) override;

    /// Not supported on I2C: the bus driver sets the clock.
    ///
    /// @return false.
    /// @par Log lines
    /// ERROR "I2C set max speed is not supported".
    bool setMaxSpeed(int hz) override;

    /// Sends a register address and receives the register's bytes in two transactions, between which another transfer
    /// can take place. writeRead() does the same in one transaction.
    ///
    ///     S Addr Wr [A] Reg [A] P  S Addr Rd [A] [Data] A ... [Data] NA P
    ///
    /// @param reg Register address.
    /// @param len Bytes to receive.
    /// @return `len` bytes; empty if sending the register address failed (then nothing is read), fewer bytes were
    /// received or the read failed.
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
    /// @param data Bytes to send after it; if it is empty, only the register address is sent.
    /// @return true if the kernel accepted every byte, including the register address; false otherwise.
    /// @par System calls
    /// One `write` from a buffer allocated for the call.
    /// @par Log lines
    /// TRACE Enter and Leave; ERROR "I2C write to register failed, requested: <requested>, written: <written>", where
    /// `<written>` counts the register address and `<requested>` does not.
    virtual bool writeRegister(uint8_t reg, const ByteArray& data);

private:
    int fd = -1;
    int address;
    std::string path;
};
