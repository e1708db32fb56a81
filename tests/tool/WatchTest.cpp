// The verb watch without a kernel: recorded pages, events that are paired into transfers, and how transfers are shown.

#include "Folder.h"
#include "Recorded.h"

#include "device/System.h"
#include "watch/Assembler.h"
#include "watch/Files.h"
#include "watch/Names.h"
#include "watch/Render.h"
#include "watch/Summary.h"

#include <linux/i2c.h>
#include <session/Session.h>

#include <gtest/gtest.h>

#include <cerrno>

namespace watch
{
namespace
{

/// Device, traffic, duration and note, as a line of the watch has them.
std::string lineOf(Transfer transfer)
{
    const Place& place = transfer.place;
    const std::string number = std::to_string(place.number);
    transfer.device =
        place.bus == Place::Bus::i2c ? "/dev/i2c-" + number : "/dev/spidev" + number + '.' + std::to_string(place.chip);
    return '[' + std::to_string(transfer.thread) + "] " + shortName(transfer) + ' ' + trafficOf(transfer) + ' ' +
           durationText(transfer.duration) + (transfer.note.empty() ? "" : " (" + transfer.note + ')');
}

std::vector<std::string> linesOf(Assembler& assembler)
{
    std::vector<std::string> lines;
    for (const Transfer& transfer : assembler.take())
        lines.push_back(lineOf(transfer));
    return lines;
}

std::vector<std::string> linesOf(const std::vector<Event>& events)
{
    Assembler assembler;
    for (const Event& event : events)
        assembler.add(event);
    return linesOf(assembler);
}

std::vector<Event> eventsIn(const Decoder& decoder, const std::vector<uint8_t>& page)
{
    std::vector<Event> events;
    for (const Record& record : decoder.page(page.data(), page.size()).records) {
        if (const std::optional<Event> event = decoder.event(record))
            events.push_back(*event);
    }
    return events;
}

TEST(WatchPages, RecordedOnesAreDecoded)
{
    struct {
        const char* page;
        std::vector<std::string> lines;
    } const rows[] = {
        {"thermometer", {"[444] i2c-4 S 48 W 00 Sr 48 R 00 00 P 714 us"}},
        {"stop", {"[457] i2c-4 S 48 W 00 P 515 us", "[457] i2c-4 S 48 R 00 00 P 392 us"}},
        {"absent", {"[470] i2c-4 S 51 W 00 Sr 51 R [1] NA ETIMEDOUT 103.2 ms"}},
        {"at24",
         {"[542] i2c-4 S 50 W 00 Sr 50 R 00 00 00 00 00 00 00 00 01 02 03 00 00 00 00 00 ... (20 bytes) P 1.1 ms"}},
        {"flash", {"[483] spidev2.0 MOSI 9f 00 00 00 MISO 00 ef 40 14  mode 0x03, 500000 Hz 275 us"}},
        {"long",
         {"[496] i2c-4 S 50 R -- x 4096 P 33.4 ms (4096 bytes read were not recorded)",
          "[502] i2c-4 S ... P 0 us (1 of 1 messages not recorded)",
          "[507] spidev2.0 MOSI 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 ... (70 bytes) MISO 00 00 00 00 00 00 "
          "00 00 00 00 00 00 00 00 00 00 ... (70 bytes)  mode "
          "0x03, 500000 Hz 212 us (64 of 70 bytes recorded)",
          "[512] spidev2.1 MOSI 05 MISO -- x 1  mode 0x00, 500000 Hz 206 us"}},
        {"smbus",
         {"[525] i2c-4 S 48 W 01 Sr 48 R 60 P 789 us", "[526] i2c-4 S 48 W 00 Sr 48 R 00 00 P 501 us",
          "[527] i2c-4 S 48 W 01 60 P 452 us", "[528] i2c-4 S 48 R 60 P 495 us",
          "[530] i2c-4 S 50 W 08 01 02 03 P 873 us", "[531] i2c-4 S 50 W 00 P 456 us",
          "[532] i2c-4 S 48 W 01 60 00 P 529 us"}},
    };
    Decoder decoder;
    ASSERT_EQ(15U, learnAll(decoder));
    for (const auto& row : rows) {
        SCOPED_TRACE(row.page);
        const std::vector<uint8_t> bytes = recordedPage(row.page);
        const Page page = decoder.page(bytes.data(), bytes.size());
        EXPECT_FALSE(page.damaged);
        EXPECT_FALSE(page.lostBefore);
        EXPECT_EQ(row.lines, linesOf(eventsIn(decoder, bytes)));
    }
}

TEST(WatchPages, LostEventsAreCounted)
{
    Decoder decoder;
    learnAll(decoder);
    const std::vector<uint8_t> bytes = recordedPage("lost");
    const Page page = decoder.page(bytes.data(), bytes.size());
    EXPECT_TRUE(page.lostBefore);
    EXPECT_EQ(301U, page.lost);
    EXPECT_EQ("[551] i2c-4 S 48 R 00 00 P 438 us (1 of 2 messages not recorded)",
              linesOf(eventsIn(decoder, bytes)).front());
}

/// The SMBus requests of a page without the I2C messages that the kernel made of them, as an adapter without I2C has
/// them.
TEST(WatchPages, RequestsOfAnSmbusAdapterAreTheSameTransfers)
{
    Decoder decoder;
    learnAll(decoder);
    std::vector<Event> whole = eventsIn(decoder, recordedPage("smbus"));
    std::vector<Event> smbus;
    for (const Event& event : whole) {
        if (std::holds_alternative<SmbusEvent>(event.what))
            smbus.push_back(event);
    }
    ASSERT_EQ(17U, smbus.size());
    const auto withoutDuration = [](std::vector<std::string> lines) {
        for (std::string& line : lines)
            line.erase(line.find(" P ") + 2);
        return lines;
    };
    EXPECT_EQ(withoutDuration(linesOf(whole)), withoutDuration(linesOf(smbus)));
}

TEST(WatchPages, ATruncatedPageYieldsTheRecordsBeforeItsEnd)
{
    Decoder decoder;
    learnAll(decoder);
    for (const char* name : {"thermometer", "flash", "smbus", "long"}) {
        const std::vector<uint8_t> whole = recordedPage(name);
        const size_t all = decoder.page(whole.data(), whole.size()).records.size();
        size_t before = 0;
        for (size_t size = 0; size < whole.size(); ++size) {
            const std::vector<uint8_t> part(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
            const Page page = decoder.page(part.data(), part.size());
            EXPECT_TRUE(page.damaged) << name << ": " << size;
            EXPECT_GE(page.records.size(), before);
            EXPECT_LT(page.records.size(), all);
            before = page.records.size();
            linesOf(eventsIn(decoder, part));
        }
        EXPECT_EQ(all - 1, before);
    }
}

std::vector<uint8_t> pageOf(uint64_t commit, const std::vector<uint32_t>& words)
{
    const uint64_t header[] = {1000, commit};
    const auto* first = reinterpret_cast<const uint8_t*>(header);
    std::vector<uint8_t> bytes(first, first + sizeof header);
    const auto* data = reinterpret_cast<const uint8_t*>(words.data());
    bytes.insert(bytes.end(), data, data + words.size() * sizeof(uint32_t));
    return bytes;
}

constexpr uint32_t head(uint32_t type, uint32_t delta)
{
    return type | delta << 5;
}

TEST(WatchPages, EveryKindOfRecordIsRead)
{
    struct {
        const char* title;
        uint64_t commit;
        std::vector<uint32_t> words;
        std::vector<std::pair<uint64_t, size_t>> records;  ///< time and size
        bool damaged;
    } const rows[] = {
        {"no record", 0, {}, {}, false},
        {"short records", 16, {head(1, 5), 0, head(1, 2), 0}, {{1005, 4}, {1007, 4}}, false},
        {"a length in a word of its own", 12, {head(0, 5), 8, 0}, {{1005, 4}}, false},
        {"time extend", 16, {head(30, 3), 1, head(1, 2), 0}, {{1000 + (1 << 27) + 3 + 2, 4}}, false},
        {"time stamp", 16, {head(31, 3), 2, head(1, 1), 0}, {{(2 << 27) + 3 + 1, 4}}, false},
        {"a discarded record", 20, {head(29, 5), 8, 0, head(1, 1), 0}, {{1006, 4}}, false},
        {"padding to the end", 20, {head(1, 5), 0, head(29, 0), 99, 99}, {{1005, 4}}, false},
        {"a record behind the end", 8, {head(3, 5), 0}, {}, true},
        {"a length behind the end", 12, {head(0, 5), 9, 0}, {}, true},
        {"a length that wraps", 12, {head(29, 5), 0xfffffffc, 0}, {}, true},
        {"a length of 0", 12, {head(0, 5), 0, 0}, {}, true},
        {"a length that is missing", 4, {head(0, 5)}, {}, true},
        {"more than the page has", 4096, {head(1, 5), 0}, {{1005, 4}}, true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.title);
        const std::vector<uint8_t> bytes = pageOf(row.commit, row.words);
        const Page page = readPage(bytes.data(), bytes.size(), 8);
        std::vector<std::pair<uint64_t, size_t>> records;
        for (const Record& record : page.records)
            records.emplace_back(record.time, record.size);
        EXPECT_EQ(row.records, records);
        EXPECT_EQ(row.damaged, page.damaged);
    }
    const std::vector<uint8_t> lost = pageOf(8 | 1U << 31 | 1U << 30, {head(1, 5), 0, 42, 0});
    EXPECT_EQ(42U, readPage(lost.data(), lost.size(), 8).lost);
    const std::vector<uint8_t> unknown = pageOf(8 | 1U << 31, {head(1, 5), 0});
    EXPECT_TRUE(readPage(unknown.data(), unknown.size(), 8).lostBefore);
    EXPECT_EQ(0U, readPage(unknown.data(), unknown.size(), 8).lost);
}

using I2c = I2cEvent::Kind;
using Smbus = SmbusEvent::Kind;
using Spi = SpiEvent::Kind;

Event i2c(uint64_t time, I2c kind, unsigned int number, size_t length, std::vector<uint8_t> bytes = {})
{
    return {time * 1000, 7, I2cEvent{kind, 4, number, 0x48, 0, length, 0, std::move(bytes)}};
}

Event i2cResult(uint64_t time, unsigned int messages, int result)
{
    return {time * 1000, 7, I2cEvent{I2c::result, 4, messages, 0, 0, 0, result}};
}

Event smbus(Smbus kind, uint32_t protocol, std::vector<uint8_t> bytes = {}, int result = 0, bool isRead = false)
{
    return {1000, 7, SmbusEvent{kind, 4, 0x50, 0, 0x12, protocol, result, isRead, std::move(bytes)}};
}

Event spi(uint64_t time, Spi kind, uint64_t message, size_t length = 0, size_t transferred = 0)
{
    SpiEvent event;
    event.kind = kind;
    event.bus = 1;
    event.message = message;
    event.length = length;
    event.transferred = transferred;
    return {time * 1000, kind == Spi::submit ? 7 : 99, event};
}

Event spiBytes(Spi kind, size_t length, std::vector<uint8_t> sent, std::vector<uint8_t> received)
{
    Event event = spi(3, kind, 0, length);
    std::get<SpiEvent>(event.what).sent = std::move(sent);
    std::get<SpiEvent>(event.what).received = std::move(received);
    return event;
}

Event chipSelect(bool isActive)
{
    Event event = spi(3, Spi::chipSelect, 0);
    std::get<SpiEvent>(event.what).isActive = isActive;
    return event;
}

struct Assembled {
    const char* title;
    std::vector<Event> events;
    std::vector<std::string> lines;
};

void expectAssembled(const std::vector<Assembled>& rows)
{
    for (const Assembled& row : rows) {
        SCOPED_TRACE(row.title);
        EXPECT_EQ(row.lines, linesOf(row.events));
    }
}

TEST(WatchAssembler, I2c)
{
    Event other = i2c(2, I2c::write, 0, 1, {0xff});
    std::get<I2cEvent>(other.what).adapter = 5;
    Event otherResult = i2cResult(3, 1, 1);
    std::get<I2cEvent>(otherResult.what).adapter = 5;
    Event flagged = i2c(1, I2c::read, 0, 1);
    std::get<I2cEvent>(flagged.what).flags = I2C_M_RD | I2C_M_RECV_LEN | 0x0200;
    Event tenBit = i2c(1, I2c::write, 0, 1, {0});
    std::get<I2cEvent>(tenBit.what).flags = I2C_M_TEN;
    std::get<I2cEvent>(tenBit.what).address = 0x3a5;
    expectAssembled({
        {"two adapters at once",
         {i2c(1, I2c::write, 0, 1, {0}), other, otherResult, i2cResult(4, 1, 1)},
         {"[7] i2c-5 S 48 W ff P 1 us", "[7] i2c-4 S 48 W 00 P 3 us"}},
        {"the first message is missing",
         {i2c(1, I2c::read, 1, 2), i2c(2, I2c::reply, 1, 2, {1, 2}), i2cResult(3, 2, 2)},
         {"[7] i2c-4 S 48 R 01 02 P 2 us (1 of 2 messages not recorded)"}},
        {"the last message is missing",
         {i2c(1, I2c::read, 0, 2), i2c(2, I2c::reply, 0, 2, {1, 2}), i2cResult(3, 3, 3)},
         {"[7] i2c-4 S 48 R 01 02 P 2 us (2 of 3 messages not recorded)"}},
        {"the reply of one of two reads is missing",
         {i2c(1, I2c::read, 0, 3), i2c(1, I2c::read, 1, 2), i2c(2, I2c::reply, 1, 2, {1, 2}), i2cResult(3, 2, 2)},
         {"[7] i2c-4 S 48 R -- x 3 Sr 48 R 01 02 P 2 us (3 bytes read were not recorded)"}},
        {"the driver ends before the last message",
         {i2c(1, I2c::write, 0, 1, {0}), i2c(1, I2c::read, 1, 2), i2cResult(3, 2, 1)},
         {"[7] i2c-4 S 48 W 00 Sr 48 R [2] P 2 us (failed after 1 of 2 messages)"}},
        {"an error",
         {i2c(1, I2c::write, 0, 1, {0}), i2cResult(3, 1, -EREMOTEIO)},
         {"[7] i2c-4 S 48 W 00 NA EREMOTEIO 2 us"}},
        {"the result is missing",
         {i2c(1, I2c::write, 0, 1, {0}), i2c(5, I2c::write, 0, 1, {1}), i2cResult(6, 1, 1)},
         {"[7] i2c-4 S 48 W 00 P 0 us (its end was not recorded)", "[7] i2c-4 S 48 W 01 P 1 us"}},
        {"the chip says how many bytes follow",
         {flagged, i2c(2, I2c::reply, 0, 3, {2, 8, 9}), i2cResult(3, 1, 1)},
         {"[7] i2c-4 S 48 R+recv-len 02 08 09 P 2 us"}},
        {"an address of ten bits", {tenBit, i2cResult(3, 1, 1)}, {"[7] i2c-4 S 3a5 W 00 P 2 us"}},
    });
}

TEST(WatchAssembler, Smbus)
{
    const auto read = [](uint32_t protocol, const std::vector<uint8_t>& bytes) -> std::vector<Event> {
        return {smbus(Smbus::read, protocol), smbus(Smbus::reply, protocol, bytes),
                smbus(Smbus::result, protocol, {}, 0, true)};
    };
    const auto write = [](uint32_t protocol, const std::vector<uint8_t>& bytes) -> std::vector<Event> {
        return {smbus(Smbus::write, protocol, bytes), smbus(Smbus::result, protocol)};
    };
    expectAssembled({
        {"quick", write(I2C_SMBUS_QUICK, {}), {"[7] i2c-4 S 50 W P 0 us"}},
        {"quick, reading", read(I2C_SMBUS_QUICK, {}), {"[7] i2c-4 S 50 R P 0 us"}},
        {"byte", write(I2C_SMBUS_BYTE, {}), {"[7] i2c-4 S 50 W 12 P 0 us"}},
        {"block", write(I2C_SMBUS_BLOCK_DATA, {2, 8, 9}), {"[7] i2c-4 S 50 W 12 02 08 09 P 0 us"}},
        {"block, read", read(I2C_SMBUS_BLOCK_DATA, {2, 8, 9}), {"[7] i2c-4 S 50 W 12 Sr 50 R 02 08 09 P 0 us"}},
        {"block of I2C, read", read(I2C_SMBUS_I2C_BLOCK_DATA, {2, 8, 9}), {"[7] i2c-4 S 50 W 12 Sr 50 R 08 09 P 0 us"}},
        {"process call",
         {smbus(Smbus::write, I2C_SMBUS_PROC_CALL, {1, 2}), smbus(Smbus::reply, I2C_SMBUS_PROC_CALL, {3, 4}),
          smbus(Smbus::result, I2C_SMBUS_PROC_CALL)},
         {"[7] i2c-4 S 50 W 12 01 02 Sr 50 R 03 04 P 0 us"}},
        {"no answer",
         {smbus(Smbus::write, I2C_SMBUS_BYTE), smbus(Smbus::result, I2C_SMBUS_BYTE, {}, -ENXIO)},
         {"[7] i2c-4 S 50 W 12 NA ENXIO 0 us"}},
        {"a result without its request", {smbus(Smbus::result, I2C_SMBUS_BYTE)}, {}},
    });
}

TEST(WatchAssembler, Spi)
{
    const Event sent = spiBytes(Spi::transferStart, 2, {1, 2}, {});
    const Event received = spiBytes(Spi::transferStop, 2, {1, 2}, {3, 4});
    expectAssembled({
        {"the process that submitted it, not the one that transfers",
         {spi(1, Spi::submit, 10), spi(2, Spi::start, 10), sent, received, spi(4, Spi::done, 10, 2, 2)},
         {"[7] spidev1.0 MOSI 01 02 MISO 03 04 2 us"}},
        {"two queued messages",
         {spi(1, Spi::submit, 10), spi(1, Spi::submit, 20), spi(2, Spi::start, 10), sent, received,
          spi(4, Spi::done, 10, 2, 2), spi(5, Spi::start, 20), sent, spi(6, Spi::done, 20, 2, 2)},
         {"[7] spidev1.0 MOSI 01 02 MISO 03 04 2 us", "[7] spidev1.0 MOSI 01 02 MISO -- x 2 1 us"}},
        {"released between two transfers",
         {spi(2, Spi::start, 10), chipSelect(true), sent, received, chipSelect(false), chipSelect(true), sent, received,
          chipSelect(false), spi(4, Spi::done, 10, 4, 4)},
         {"[99] spidev1.0 MOSI 01 02 MISO 03 04, cs-change; MOSI 01 02 MISO 03 04 2 us"}},
        {"selected after its end",
         {spi(2, Spi::start, 10), chipSelect(true), sent, received, spi(4, Spi::done, 10, 2, 2)},
         {"[99] spidev1.0 MOSI 01 02 MISO 03 04, cs-change 2 us"}},
        {"failed",
         {spi(2, Spi::start, 10), sent, spi(4, Spi::done, 10, 4, 0)},
         {"[99] spidev1.0 MOSI 01 02 MISO -- x 2 2 us (failed after 0 of 4 bytes)"}},
        {"a picture for a display",
         {spi(2, Spi::start, 10), spiBytes(Spi::transferStart, 300'000, {1, 2}, {}),
          spi(4, Spi::done, 10, 300'000, 300'000)},
         {"[99] spidev1.0 MOSI 01 02 -- x 65534 MISO -- x 65536 2 us (2 of 300000 bytes recorded)"}},
        {"a driver that records no transfers",
         {spi(2, Spi::start, 10), spi(4, Spi::done, 10, 4, 4)},
         {"[99] spidev1.0 MOSI ... MISO ... 2 us (4 of 4 bytes not recorded)"}},
        {"begun before the watch",
         {received, spi(4, Spi::done, 10, 4, 4)},
         {"[99] spidev1.0 MOSI ... MISO ... 0 us (its beginning was not recorded)"}},
    });
}

TEST(WatchAssembler, WhatIsInProgressEndsAsIncomplete)
{
    Assembler assembler;
    for (const Event& event :
         {i2c(1, I2c::write, 0, 1, {0}), spi(2, Spi::start, 10), spiBytes(Spi::transferStart, 1, {1}, {})})
        assembler.add(event);
    assembler.endAll();
    EXPECT_EQ((std::vector<std::string>{"[7] i2c-4 S 48 W 00 P 0 us (its end was not recorded)",
                                        "[99] spidev1.0 MOSI 01 MISO -- x 1 0 us (its end was not recorded)"}),
              linesOf(assembler));
    assembler.add(smbus(Smbus::reply, I2C_SMBUS_BYTE, {1}));  // of a request before
    assembler.endAll();
    EXPECT_EQ(std::vector<std::string>{}, linesOf(assembler));
    assembler.add(smbus(Smbus::read, I2C_SMBUS_BYTE, {}, 0, true));
    assembler.endAll();
    EXPECT_EQ((std::vector<std::string>{"[7] i2c-4 S 50 R P 0 us (its end was not recorded)"}), linesOf(assembler));
    assembler.add(i2cResult(3, 1, 1));
    EXPECT_EQ((std::vector<std::string>{"[7] i2c-4 S ... P 0 us (1 of 1 messages not recorded)"}), linesOf(assembler));
}

Transfer i2cTransfer(int error = 0)
{
    Transfer transfer;
    transfer.place = {Place::Bus::i2c, 4, 0};
    transfer.time = 2'000'000'000;
    transfer.duration = 2'200'000;
    transfer.thread = 192;
    transfer.process = "thermo\x1bmeter";
    transfer.device = "/dev/i2c-4";
    session::I2cTransfer what = std::get<session::I2cTransfer>(session::parseTransfer("S 48 W 00 Sr 48 R 19 80 P"));
    what.error = error;
    transfer.what = what;
    transfer.failed = error != 0;
    return transfer;
}

Transfer spiTransfer(const std::string& traffic)
{
    Transfer transfer = i2cTransfer();
    transfer.place = {Place::Bus::spi, 2, 0};
    transfer.device = "spi2.0";
    transfer.what = std::get<session::SpiTransfer>(session::parseTransfer(traffic));
    for (const session::SpiSegment& segment : transfer.spi()->segments)
        transfer.lengths.push_back(segment.out.bytes.size());
    return transfer;
}

TEST(WatchRendering, Text)
{
    EXPECT_EQ("1.000000  thermo\\x1bmeter[192]  i2c-4      S 48 W 00 Sr 48 R 19 80 P                 2.2 ms",
              textOf(i2cTransfer(), "1.000000"));
    Transfer cut = spiTransfer("MOSI 9f MISO --");
    cut.note = "64 of 70 bytes recorded";
    EXPECT_EQ("x  thermo\\x1bmeter[192]  spi2.0     MOSI 9f MISO -- x 1                       2.2 ms  (64 of 70 bytes "
              "recorded)",
              textOf(cut, "x"));
    const std::pair<uint64_t, const char*> durations[] = {{0, "0 us"},
                                                          {999'499, "999 us"},
                                                          {999'500, "1.0 ms"},
                                                          {101'349'000, "101.3 ms"},
                                                          {999'950'000, "1.00 s"},
                                                          {61'000'000'000, "61.00 s"}};
    for (const auto& [nanoseconds, text] : durations)
        EXPECT_EQ(text, durationText(nanoseconds));
    EXPECT_EQ("12.004205", secondsText(12'004'205'999));
}

TEST(WatchRendering, Json)
{
    EXPECT_EQ(R"({"time":1.5,"process":"thermo\u001bmeter","pid":192,"device":"/dev/i2c-4","messages":[)"
              R"({"address":"0x48","read":false,"length":1,"bytes":[0]},)"
              R"({"address":"0x48","read":true,"length":2,"bytes":[25,128]}],)"
              R"("error":"EIO","duration":0.0022,"note":null})",
              fieldsOf(i2cTransfer(EIO), 1.5).text());
    Transfer failed = spiTransfer("MOSI 9f 00 MISO -- x 2, cs-change; MOSI 01 MISO 07  mode 0x03, 500 kHz");
    failed.failed = true;
    failed.note = "failed after 0 of 3 bytes";
    EXPECT_EQ(R"({"time":1.5,"process":"thermo\u001bmeter","pid":192,"device":"spi2.0","segments":[)"
              R"({"length":2,"sent":[159,0],"received":[],"chip_select_change":true},)"
              R"({"length":1,"sent":[1],"received":[7],"chip_select_change":false}],)"
              R"("mode":3,"speed":500000,"error":"failed","duration":0.0022,"note":"failed after 0 of 3 bytes"})",
              fieldsOf(failed, 1.5).text());
}

TEST(WatchRendering, Summary)
{
    Summary summary;
    EXPECT_EQ("no transfers\n", summary.text(1'000'000'000));
    summary.add(i2cTransfer(), 100'000);
    summary.add(i2cTransfer(ETIMEDOUT), 100'000);
    Transfer unknown = i2cTransfer();
    unknown.what = session::I2cTransfer{};
    unknown.duration = 0;
    summary.add(unknown, 100'000);
    summary.add(spiTransfer("MOSI 9f 00 MISO 01 02"), {});
    EXPECT_EQ("i2c-4: 3 transfers, 6 bytes, 1 error (ETIMEDOUT 1), longest 2.2 ms, busy 4.4 ms, 4.4 % of 100.0 ms; "
              "1.0 % at its clock\n"
              "  0x48: 2 transfers, 6 bytes, 1 error (ETIMEDOUT 1), longest 2.2 ms, busy 4.4 ms\n"
              "  unknown: 1 transfer, 0 bytes, 0 errors, longest 0 us, busy 0 us\n"
              "spi2: 1 transfer, 2 bytes, 0 errors, longest 2.2 ms, busy 2.2 ms, 2.2 % of 100.0 ms\n"
              "  spi2.0: 1 transfer, 2 bytes, 0 errors, longest 2.2 ms, busy 2.2 ms\n",
              summary.text(100'000'000));
    const std::vector<Fields> fields = summary.fields(100'000'000);
    ASSERT_EQ(5U, fields.size());
    EXPECT_EQ(R"({"bus":"i2c-4","transfers":3,"bytes":6,"errors":{"ETIMEDOUT":1},"longest":0.0022,"busy":0.0044,)"
              R"("watched":0.1,"on_wire":0.00097})",
              fields[0].text());
    EXPECT_EQ(R"({"bus":"spi2","transfers":1,"bytes":2,"errors":{},"longest":0.0022,"busy":0.0022,)"
              R"("watched":0.1,"on_wire":null})",
              fields[3].text());
}

TEST(WatchFiles, ACaptureHasAPacketForEachMessage)
{
    ByteArray capture = captureHeader();
    const ByteArray packets = packetsOf(i2cTransfer(), 3'000'000'005);
    capture.insert(capture.end(), packets.begin(), packets.end());
    EXPECT_EQ(
        (ByteArray{0x4d, 0x3c, 0xb2, 0xa1, 2, 0, 4, 0, 0, 0, 0, 0, 0, 0, 0, 0, 8, 0, 1, 0, 209, 0,    0,    0,  //
                   3,    0,    0,    0,    5, 0, 0, 0, 7, 0, 0, 0, 7, 0, 0, 0, 4, 0, 0, 0, 0,   0x90, 0,        //
                   3,    0,    0,    0,    5, 0, 0, 0, 8, 0, 0, 0, 8, 0, 0, 0, 4, 0, 0, 0, 1,   0x91, 0x19, 0x80}),
        capture);
    EXPECT_TRUE(packetsOf(spiTransfer("MOSI 9f MISO --"), 0).empty());

    Transfer cut = i2cTransfer();
    cut.what = std::get<session::I2cTransfer>(session::parseTransfer("S 3a5 R -- x 300 P"));
    EXPECT_EQ((ByteArray{0, 0, 0, 0, 0, 0, 0, 0, 7, 0, 0, 0, 0x33, 1, 0, 0, 4, 0, 0, 0, 0x11, 0xf7, 0xa5}),
              packetsOf(cut, 0));
}

TEST(WatchFiles, ASessionHasWhatCanBeReplayed)
{
    EXPECT_EQ("i2c-4  S 48 W 00 Sr 48 R 19 80 P\n", sessionLine(i2cTransfer()));
    EXPECT_EQ("spi2.0  MOSI 9f MISO 01  mode 0x03\n", sessionLine(spiTransfer("MOSI 9f MISO 01  mode 0x03, 500 kHz")));
    Transfer noted = i2cTransfer();
    noted.note = "1 of 3 messages not recorded";
    EXPECT_EQ("# i2c-4  S 48 W 00 Sr 48 R 19 80 P  (1 of 3 messages not recorded)\n", sessionLine(noted));
    Transfer failed = spiTransfer("MOSI 9f MISO --");
    failed.failed = true;
    EXPECT_EQ("its errno was not recorded", notReplayable(failed));
    EXPECT_EQ("", notReplayable(i2cTransfer(ENXIO)));

    const std::string long1 = "S 48 R 00 x 100 P";
    Transfer whole = i2cTransfer();
    whole.what = std::get<session::I2cTransfer>(session::parseTransfer(long1));
    EXPECT_EQ(1U, session::parse(session::versionLine() + sessionLine(noted) + sessionLine(whole)).items.size());
}

/// The folder that takes the place of "/" while this object lives.
struct FakeSystem : Folder {
    FakeSystem() { systemRoot = path.c_str(); }
    ~FakeSystem() { systemRoot = ""; }

    void write(const std::string& file, const std::string& content) const
    {
        ASSERT_EQ(0, system(("mkdir -p " + path + file.substr(0, file.rfind('/'))).c_str()));
        std::ofstream{path + file} << content;
    }
};

TEST(WatchNames, ThreadsAndDevices)
{
    FakeSystem fake;
    fake.write("/proc/192/status", "Name:\tworker\nTgid:\t190\n");
    fake.write("/proc/190/comm", "sensors\n");
    fake.write("/sys/bus/i2c/devices/i2c-4/of_node/clock-frequency", std::string("\0\x06\x1a\x80", 4));
    fake.write("/sys/bus/spi/drivers/spidev/bind", "");
    fake.write("/sys/bus/spi/devices/spi2.0/modalias", "");
    ASSERT_EQ(0, symlink("../../drivers/spidev", (fake.path + "/sys/bus/spi/devices/spi2.0/driver").c_str()));

    std::string name = "worker";
    Names names{[&](int thread) { return thread == 192 ? name : ""; }};
    Transfer transfer = i2cTransfer();
    names.fill(transfer);
    EXPECT_EQ("worker", transfer.process);
    EXPECT_EQ("/dev/i2c-4", transfer.device);
    EXPECT_EQ(400'000U, names.clockOf(transfer));
    for (const char* process : {"worker", "sensors", "192", "190"})
        EXPECT_TRUE(names.isOf(transfer, process)) << process;
    for (const char* process : {"sensor", "19", "0"})
        EXPECT_FALSE(names.isOf(transfer, process)) << process;

    name = "other";  // within a second, it is the same thread
    names.fill(transfer);
    EXPECT_EQ("worker", transfer.process);
    transfer.time += 1'000'000'000;
    names.fill(transfer);
    EXPECT_EQ("other", transfer.process);
    name = "";  // it has ended
    transfer.time += 1'000'000'000;
    names.fill(transfer);
    EXPECT_EQ("other", transfer.process);

    Transfer flash = spiTransfer("MOSI 9f MISO --  mode 0x00, 500 kHz");
    names.fill(flash);
    EXPECT_EQ("/dev/spidev2.0", flash.device);
    EXPECT_EQ(500'000U, names.clockOf(flash));
    flash.place.chip = 1;
    names.fill(flash);
    EXPECT_EQ("spi2.1", flash.device);
}

}  // namespace
}  // namespace watch
