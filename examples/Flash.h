#pragma once

#include "ErrorWatch.h"

#include <serialComm/SyncSerialBase.h>

#include <chrono>
#include <optional>
#include <thread>

/// A NOR flash with the common command set and 3-byte addresses, such as a W25Q80, on SPI.
///
/// The bus reports a failed transfer only in its log, so each transfer has an ErrorWatch. A missing chip makes no
/// transfer fail: all bytes then read 00 or ff, which id() rejects. A protected chip ignores commands without an error,
/// so read a page back after programming it.
class Flash
{
public:
    static constexpr size_t pageSize = 256;
    static constexpr size_t sectorSize = 4096;

    explicit Flash(SyncSerialBase& spi) : bus(spi) {}

    /// Reads manufacturer, type and capacity: 3 bytes, or nothing if no chip answers.
    ///
    ///     MOSI   9f   00             00     00
    ///     MISO  [--] [manufacturer] [type] [capacity]
    std::optional<ByteArray> id()
    {
        std::optional<ByteArray> answer = exchange({0x9f}, 3);
        if (answer == ByteArray{0x00, 0x00, 0x00} || answer == ByteArray{0xff, 0xff, 0xff})
            return std::nullopt;
        return answer;
    }

    /// Sets all bytes of the sector that contains the address to ff.
    bool eraseSector(uint32_t address)
    {
        return enableWriting() && send(command(0x20, address)) && waitUntilReady(std::chrono::milliseconds{400});
    }

    /// Programs bytes within one page. Programming only clears bits, so erase the sector first.
    bool program(uint32_t address, const ByteArray& bytes)
    {
        if (address % pageSize + bytes.size() > pageSize)  // the chip would continue at the start of the page
            return false;
        ByteArray message = command(0x02, address);
        message.insert(message.end(), bytes.begin(), bytes.end());
        return enableWriting() && send(message) && waitUntilReady(std::chrono::milliseconds{10});
    }

    /// Reads bytes. These and the 4 bytes of the command must fit into spidev's buffer, which has 4096 bytes unless the
    /// module parameter bufsiz changes that.
    std::optional<ByteArray> read(uint32_t address, size_t len) { return exchange(command(0x03, address), len); }

private:
    static ByteArray command(uint8_t code, uint32_t address)
    {
        return {code, static_cast<uint8_t>(address >> 16), static_cast<uint8_t>(address >> 8),
                static_cast<uint8_t>(address)};
    }

    bool send(const ByteArray& bytes)
    {
        const ErrorWatch watch;
        bus.write(bytes);  // returns true in any case
        return !watch.failed();
    }

    /// Sends a command and returns the `len` bytes received after it.
    std::optional<ByteArray> exchange(const ByteArray& bytes, size_t len)
    {
        const ErrorWatch watch;
        const ByteArray reply = bus.writeRead(bytes, bytes.size() + len);
        if (watch.failed())
            return std::nullopt;
        return ByteArray(reply.begin() + static_cast<std::ptrdiff_t>(bytes.size()), reply.end());
    }

    bool enableWriting() { return send({0x06}); }

    /// Waits until the chip is no longer busy; false after the timeout or a failed transfer.
    bool waitUntilReady(std::chrono::milliseconds timeout)
    {
        const auto deadline = std::chrono::steady_clock::now() + timeout;
        for (;;) {
            const std::optional<ByteArray> status = exchange({0x05}, 1);
            if (!status)
                return false;
            if ((status->front() & 0x01) == 0)
                return true;
            if (std::chrono::steady_clock::now() > deadline)
                return false;
            std::this_thread::sleep_for(std::chrono::milliseconds{1});
        }
    }

    SyncSerialBase& bus;
};
