#pragma once

#include "serialComm/SyncSerialBase.h"

#include <string>

/// A chip on an SPI bus, accessed through its spidev node.
///
/// **A failed transfer is reported only in the log.** write() still returns true, and read() and writeRead() still
/// return buffers of full length, filled with zero bytes. init() and setMaxSpeed() return true even if the driver
/// refuses mode or clock. A program that needs to know watches the logger "SerialComm" for ERROR lines.
///
/// Every transfer is one message: it selects the chip, transfers 8-bit words at the current clock and deselects the
/// chip.
///
/// @code
/// Spi flash{"/dev/spidev2.0", 10'000'000, 0};               // 10 MHz, SPI_MODE_0
/// if (!flash.init())
///     return EXIT_FAILURE;                                  // the reason is in the log
/// const ByteArray reply = flash.writeRead({0x9f}, 4);       // reply[0] was received while 0x9f was sent
/// @endcode
///
/// @see SyncSerialBase for life cycle, descriptor ownership, threads and exceptions
/// @see Linux kernel documentation, SPI: spidev, spi-summary
class [[gnu::visibility("default")]] Spi : public SyncSerialBase
{
public:
    /// Stores the parameters; accesses no device and logs nothing.
    ///
    /// @param device Node of the chip, such as "/dev/spidev2.0" (bus 2, chip select 0).
    /// @param maxSpeedHz Maximum clock in Hz.
    /// @param modeByte Mode byte of `<linux/spi/spidev.h>`: 0 to 3 for SPI_MODE_0 to SPI_MODE_3, and flags up to 0x80.
    Spi(const std::string& device, int maxSpeedHz, unsigned char modeByte);

    /// Closes the descriptor if it is open; logs nothing.
    ~Spi() override;

    /// Opens the node and sets mode and clock. The mode and clock that the driver reports back replace the requested
    /// ones. A second call closes the old descriptor, then opens the node again.
    ///
    /// @return false if the node cannot be opened; the object is then closed. true otherwise, **even if the driver
    /// refuses mode or clock**.
    /// @par System calls
    /// `open(path, O_RDWR)`, `ioctl(fd, SPI_IOC_WR_MODE, ...)`, `ioctl(fd, SPI_IOC_RD_MODE, ...)`, then those of
    /// setMaxSpeed(), which is called as a virtual function.
    /// @par Log lines
    /// TRACE Enter (with "path: <path>"); INFO Leave (with "SPI initialized with speed Hz: <speed>"); ERROR "Failed to
    /// open spi device: <path>", "SPI can't set spi write mode", "SPI can't set spi read mode", and those of
    /// setMaxSpeed().
    bool init() override;

    /// Receives bytes while it sends zero bytes.
    ///
    ///     MOSI   00    00   ...   00
    ///     MISO  [Data][Data] ... [Data]
    ///
    /// @param len Bytes to receive, less than 2^32. A transfer of length 0 is a failure.
    /// @return `len` bytes, even after a failure.
    /// @par System calls
    /// One `ioctl(fd, SPI_IOC_MESSAGE(1), ...)`; none for 2^32 bytes and more, which are refused with errno 90
    /// (EMSGSIZE).
    /// @par Log lines
    /// TRACE Enter and Leave, Leave even after a failure; ERROR "SPI can't read spi message. errno: <errno>". errno is
    /// 90 also if spidev's buffer is too small (module parameter bufsiz, by default 4096 bytes).
    ByteArray read(size_t len) override;

    /// Sends bytes directly from the caller's buffer; the received bytes are dropped.
    ///
    ///     MOSI   Data  Data ...  Data
    ///     MISO   (dropped)
    ///
    /// @param data Bytes to send, less than 2^32. A transfer of length 0 is a failure.
    /// @return true, even after a failure.
    /// @par System calls
    /// As for read(); no copy, no allocation.
    /// @par Log lines
    /// TRACE Enter and Leave, Leave even after a failure; ERROR "SPI can't send message. errno: <errno>".
    bool write(const ByteArray& data) override;

    /// Sends and receives at the same time: full duplex.
    ///
    ///     MOSI   Data   Data   00   ...   00            with two bytes of data and a larger len
    ///     MISO  [Data] [Data] [Data] ... [Data]
    ///
    /// @param data Bytes to send, directly from the caller's buffer. If `len` is larger, a copy padded with zero bytes
    /// is sent instead.
    /// @param len Bytes to receive, counted from the first clock.
    /// @return The larger of `data.size()` and `len` bytes, even after a failure; it starts with the bytes received
    /// while `data` was sent. A transfer of length 0 is a failure.
    /// @par System calls
    /// As for read().
    /// @par Log lines
    /// No Enter or Leave; ERROR "SPI can't send/read message. ret:<ret>", where `<ret>` is the result of the request.
    ByteArray writeRead(const ByteArray& data, size_t len) override;

    /// Sets the maximum clock of the node and of the following transfers. The clock that the driver reports back
    /// replaces the requested one; the clock on the wire may be lower still, depending on the controller's dividers.
    ///
    /// @param hz Clock in Hz.
    /// @return true, even if the driver refuses the clock.
    /// @par System calls
    /// `ioctl(fd, SPI_IOC_WR_MAX_SPEED_HZ, ...)`, `ioctl(fd, SPI_IOC_RD_MAX_SPEED_HZ, ...)`.
    /// @par Log lines
    /// TRACE Enter (with "Speed: <speed>"), no Leave; ERROR "SPI can't set write max speed hz", "SPI can't get max
    /// speed hz"; DEBUG "SPI set speed Hz: <speed>", with the clock that the driver reported back.
    bool setMaxSpeed(int hz) override;

private:
    int fd = -1;
    int speedHz;
    std::string path;
    uint8_t mode;
};
