#pragma once

#include "serialComm/SyncSerialBase.h"

#include <string>

/// A chip on an SPI bus, through its spidev node.
///
/// **A failed transfer is told only by the log.** write() returns true and read() and writeRead() return buffers of
/// full length all the same, filled with zero bytes; a refused mode or clock leaves init() and setMaxSpeed() at true. A
/// program that has to know watches the logger "SerialComm" for ERROR.
///
/// Every transfer is one message: the chip is selected, 8-bit words are clocked at the current speed, the chip is
/// deselected.
///
/// @code
/// Spi flash{"/dev/spidev2.0", 10'000'000, 0};               // 10 MHz, SPI_MODE_0
/// if (!flash.init())
///     return EXIT_FAILURE;                                  // the log says why
/// const ByteArray reply = flash.writeRead({0x9f}, 4);       // reply[0] came in while 0x9f went out
/// @endcode
///
/// @see SyncSerialBase for life cycle, ownership, threads and exceptions
/// @see Linux kernel documentation, SPI: spidev, spi-summary
class [[gnu::visibility("default")]] Spi : public SyncSerialBase
{
public:
    /// Keeps the parameters; touches no device and logs nothing.
    ///
    /// @param device Node of the chip, such as "/dev/spidev2.0" (bus 2, chip select 0).
    /// @param maxSpeedHz Highest clock in hertz.
    /// @param modeByte Mode byte of `<linux/spi/spidev.h>`: 0 to 3 for SPI_MODE_0 to SPI_MODE_3, and the flags up to
    /// 0x80.
    Spi(const std::string& device, int maxSpeedHz, unsigned char modeByte);

    /// Closes the descriptor, if one is open; logs nothing.
    ~Spi() override;

    /// Opens the node, and sets mode and clock. What the driver reports back replaces what was asked for. A second call
    /// closes the earlier descriptor just before it opens the node again.
    ///
    /// @return false when the node could not be opened, and the object is closed; true otherwise, **also when mode or
    /// clock were refused**.
    /// @par System calls
    /// `open(path, O_RDWR)`, `ioctl(fd, SPI_IOC_WR_MODE, ...)`, `ioctl(fd, SPI_IOC_RD_MODE, ...)`, then those of
    /// setMaxSpeed(), which is called through its virtual slot.
    /// @par Log lines
    /// TRACE Enter (with "path: <path>"); INFO Leave (with "SPI initialized with speed Hz: <speed>"); ERROR "Failed to
    /// open spi device: <path>", "SPI can't set spi write mode", "SPI can't set spi read mode", and those of
    /// setMaxSpeed().
    bool init() override;

    /// Receives bytes while zero bits go out.
    ///
    ///     MOSI   00    00   ...   00
    ///     MISO  [Data][Data] ... [Data]
    ///
    /// @param len Bytes to receive, below 2^32. A transfer of length 0 counts as failed.
    /// @return `len` bytes, also after a failure.
    /// @par System calls
    /// One `ioctl(fd, SPI_IOC_MESSAGE(1), ...)`. From 2^32 bytes on none: refused with errno 90 (EMSGSIZE).
    /// @par Log lines
    /// TRACE Enter and Leave, Leave after a failure too; ERROR "SPI can't read spi message. errno: <errno>". Also 90:
    /// more than spidev's buffer holds (module parameter bufsiz, 4096 bytes unless set).
    ByteArray read(size_t len) override;

    /// Sends bytes out of the caller's storage; what the chip sends meanwhile is dropped.
    ///
    ///     MOSI   Data  Data ...  Data
    ///     MISO   (not kept)
    ///
    /// @param data Bytes to send, fewer than 2^32. A transfer of length 0 counts as failed.
    /// @return true, also after a failure.
    /// @par System calls
    /// As for read(); no copy, no allocation.
    /// @par Log lines
    /// TRACE Enter and Leave, Leave after a failure too; ERROR "SPI can't send message. errno: <errno>".
    bool write(const ByteArray& data) override;

    /// Sends and receives at the same time: full duplex.
    ///
    ///     MOSI   Data   Data   00   ...   00            two bytes of data, a len above 2
    ///     MISO  [Data] [Data] [Data] ... [Data]
    ///
    /// @param data Bytes to send, out of the caller's storage unless `len` is greater: then a copy, filled up with zero
    /// bytes, is sent.
    /// @param len Bytes to receive, counted from the first clock.
    /// @return As many bytes as the longer of `data` and `len`, also after a failure: what came in while `data` went
    /// out stands at the front. A transfer of length 0 counts as failed.
    /// @par System calls
    /// As for read().
    /// @par Log lines
    /// No Enter or Leave; ERROR "SPI can't send/read message. ret:<ret>", the request's result.
    ByteArray writeRead(const ByteArray& data, size_t len) override;

    /// Sets the highest clock of the node and of the transfers that follow. What the driver reports back replaces what
    /// was asked for; the wire may run slower still, as the controller's dividers allow.
    ///
    /// @param hz Clock in hertz.
    /// @return true, also when the driver refused.
    /// @par System calls
    /// `ioctl(fd, SPI_IOC_WR_MAX_SPEED_HZ, ...)`, `ioctl(fd, SPI_IOC_RD_MAX_SPEED_HZ, ...)`.
    /// @par Log lines
    /// TRACE Enter (with "Speed: <speed>"), no Leave; ERROR "SPI can't set write max speed hz", "SPI can't get max
    /// speed hz"; DEBUG "SPI set speed Hz: <speed>", the one reported back.
    bool setMaxSpeed(int hz) override;

private:
    int fd = -1;
    int speedHz;
    std::string path;
    uint8_t mode;
};
