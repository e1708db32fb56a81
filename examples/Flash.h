#pragma once

#include "ErrorWatch.h"

#include <serialComm/SyncSerialBase.h>

#include <chrono>
#include <optional>
#include <thread>

/// A NOR flash with the common command set and 3-byte addresses, such as a W25Q80, on SPI.
///
/// The bus tells a failed transfer only in its log, hence the ErrorWatch. A chip that is not there fails nothing: the
/// line then reads 00 or ff throughout, which id() refuses. Only reading back tells whether a page was programmed: a
/// protected chip drops commands without a word.
class Flash
{
public:
    static constexpr size_t pageSize = 256;
    static constexpr size_t sectorSize = 4096;

    explicit Flash(SyncSerialBase& spi) : bus(spi) {}

    /// Maker, kind and size of the chip, 3 bytes; nothing when no chip answers.
    ///
    ///     MOSI   9f   00      00     00
    ///     MISO  [--] [maker] [kind] [size]
    std::optional<ByteArray> id()
    {
        std::optional<ByteArray> answer = exchange({0x9f}, 3);
        if (answer == ByteArray{0x00, 0x00, 0x00} || answer == ByteArray{0xff, 0xff, 0xff})
            return std::nullopt;
        return answer;
    }

    /// Sets all bytes of the sector that holds the address to ff.
    bool eraseSector(uint32_t address)
    {
        return enableWriting() && send(command(0x20, address)) && ready(std::chrono::milliseconds{400});
    }

    /// Programs bytes within one page; bits go from 1 to 0 only, so that the sector has to be erased first.
    bool program(uint32_t address, const ByteArray& bytes)
    {
        if (address % pageSize + bytes.size() > pageSize)  // the chip would go on at the page's start
            return false;
        ByteArray message = command(0x02, address);
        message.insert(message.end(), bytes.begin(), bytes.end());
        return enableWriting() && send(message) && ready(std::chrono::milliseconds{10});
    }

    /// Reads bytes. Together with the 4 of the command they have to fit into spidev's buffer: 4096 bytes, unless its
    /// module parameter bufsiz says otherwise.
    std::optional<ByteArray> read(uint32_t address, size_t len) { return exchange(command(0x03, address), len); }

private:
    static ByteArray command(uint8_t code, uint32_t address)
    {
        return {code, static_cast<uint8_t>(address >> 16), static_cast<uint8_t>(address >> 8),
                static_cast<uint8_t>(address)};
    }

    bool send(const ByteArray& bytes)
    {
        watch.failed();
        bus.write(bytes);  // true in any case
        return !watch.failed();
    }

    /// Sends a command and returns what came in after it.
    std::optional<ByteArray> exchange(const ByteArray& bytes, size_t len)
    {
        watch.failed();
        const ByteArray reply = bus.writeRead(bytes, bytes.size() + len);
        if (watch.failed())
            return std::nullopt;
        return ByteArray(reply.begin() + static_cast<std::ptrdiff_t>(bytes.size()), reply.end());
    }

    bool enableWriting() { return send({0x06}); }

    /// Waits until the chip is no longer busy.
    bool ready(std::chrono::milliseconds patience)
    {
        const auto deadline = std::chrono::steady_clock::now() + patience;
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
    ErrorWatch watch;
};
