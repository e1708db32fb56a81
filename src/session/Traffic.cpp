#include "Traffic.h"

#include "Take.h"

#include <string.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <tuple>

namespace session
{

namespace
{

constexpr size_t shownWhenCut = 16;
constexpr size_t longestRun = 16;       // of equal bytes that are written one by one
constexpr size_t mostBytes = 16 << 20;  // of one direction
constexpr int mostErrors = 4095;        // the kernel's own bound
constexpr auto hexDigits = "0123456789abcdefABCDEF";

struct FlagName {
    uint16_t bit;
    const char* name;
};
constexpr FlagName flagNames[] = {
    {0x8000, "stop"},       {0x4000, "nostart"},   {0x2000, "rev-dir"},
    {0x1000, "ignore-nak"}, {0x0800, "no-rd-ack"}, {0x0400, "recv-len"},
};

std::string formatted(const char* format, unsigned int number)
{
    char text[16];
    std::snprintf(text, sizeof text, format, number);
    return text;
}

std::string byteText(const Byte& byte)
{
    return byte ? formatted("%02x", *byte) : "--";
}

/// How many equal bytes there are from here on.
size_t runAt(const std::vector<Byte>& bytes, size_t start)
{
    size_t end = start + 1;
    while (end < bytes.size() && bytes[end] == bytes[start])
        ++end;
    return end - start;
}

void append(std::string& line, const std::string& word)
{
    if (!line.empty())
        line += ' ';
    line += word;
}

bool isPrintable(const Byte& byte)
{
    return byte && ((*byte >= 0x20 && *byte < 0x7f) || *byte == '\n' || *byte == '\r' || *byte == '\t');
}

bool meansNoAnswer(int error)
{
    return error == ENXIO || error == EREMOTEIO || error == ETIMEDOUT;
}

std::string flagText(uint16_t flags)
{
    std::string text;
    for (const FlagName& flag : flagNames) {
        if ((flags & flag.bit) != 0)
            text += std::string{"+"} + flag.name;
        flags = static_cast<uint16_t>(flags & ~flag.bit);
    }
    return flags == 0 ? text : text + "+" + formatted("0x%04x", flags);
}

/// An address that is none, because it has too many bits, has four digits.
const char* addressFormat(const I2cMessage& message)
{
    return message.tenBit ? "%03x" : message.address > 0xff ? "%04x" : "%02x";
}

std::string withData(const std::string& line, const Data& data, Length length)
{
    const std::string bytes = toText(data, length);
    return bytes.empty() ? line : line + ' ' + bytes;
}

std::string segmentText(const SpiSegment& segment, Length length)
{
    std::string line = withData("MOSI", segment.out, length) + ' ' + withData("MISO", segment.in, length);
    if (segment.speedHz != 0)
        line += ", " + frequency(segment.speedHz);
    if (segment.bitsPerWord != 0)
        line += ", " + std::to_string(segment.bitsPerWord) + " bits";
    if (segment.outLines != 0)
        line += ", mosi-lines " + std::to_string(segment.outLines);
    if (segment.inLines != 0)
        line += ", miso-lines " + std::to_string(segment.inLines);
    if (segment.chipSelectChange)
        line += ", cs-change";
    return line;
}

// Parsing

bool isHex(const std::string& word, size_t digits)
{
    return word.size() == digits && word.find_first_not_of(hexDigits) == std::string::npos;
}

uint16_t hexValue(const std::string& digits)
{
    return static_cast<uint16_t>(std::stoul(digits, nullptr, 16));
}

/// "19", "--".
bool parseByte(const std::string& word, Byte& byte)
{
    if (word == "--")
        byte = std::nullopt;
    else if (isHex(word, 2))
        byte = static_cast<uint8_t>(hexValue(word));
    else
        return false;
    return true;
}

/// The count in "[2]" and "00 x 9": decimal digits.
bool parseCount(const std::string& digits, size_t& count)
{
    if (digits.empty() || digits.size() > 9 || digits.find_first_not_of("0123456789") != std::string::npos)
        return false;
    count = std::stoul(digits);
    return true;
}

void requireRoom(size_t size, size_t more)
{
    if (more > mostBytes - size)
        throw SyntaxError("more than " + std::to_string(mostBytes) + " bytes in one direction");
}

/// The "x 9" behind a byte; 1 where there is none.
size_t takeRepetition(Words& words)
{
    size_t count = 1;
    if (words.take("x") && !parseCount(words.take().value, count))
        throw SyntaxError("x needs a decimal number behind it, as in 00 x 9");
    return count;
}

/// Takes the bytes that come next; a word that is none ends them.
Data takeData(Words& words)
{
    Data data;
    while (!words.atEnd() && words.peek().kind != Word::Kind::mark) {
        const Word& word = words.peek();
        Byte byte;
        size_t count = 0;
        if (word.kind == Word::Kind::text) {
            requireRoom(data.bytes.size(), word.value.size());
            for (const char character : words.take().value)
                data.bytes.emplace_back(static_cast<uint8_t>(character));
        } else if (parseByte(word.value, byte)) {
            words.take();
            count = takeRepetition(words);
            requireRoom(data.bytes.size(), count);
            data.bytes.insert(data.bytes.end(), count, byte);
        } else if (word.value.front() == '[' && word.value.back() == ']' &&
                   parseCount(word.value.substr(1, word.value.size() - 2), count) && count > 0) {
            words.take();
            data.missing = count;
            break;
        } else {
            break;
        }
    }
    return data;
}

constexpr auto bytesExpected = "a byte (two hexadecimal digits, --, 00 x 9 or a text in quotation marks)";

uint16_t takeFlags(const std::string& word)
{
    unsigned int flags = 0;
    for (size_t plus = word.find('+'); plus != std::string::npos;) {
        const size_t end = word.find('+', plus + 1);
        const std::string name = word.substr(plus + 1, end - plus - 1);
        const auto* known = std::find_if(std::begin(flagNames), std::end(flagNames),
                                         [&](const FlagName& flag) { return name == flag.name; });
        if (known != std::end(flagNames))
            flags |= known->bit;
        else if (name.rfind("0x", 0) == 0 && isHex(name.substr(2), 4))
            flags |= hexValue(name.substr(2));
        else
            throw SyntaxError("unknown flag '" + name + "' of a message");
        plus = end;
    }
    return static_cast<uint16_t>(flags);
}

uint16_t takeAddress(Words& words, bool& tenBit)
{
    const std::string& word = words.peek().value;
    tenBit = isHex(word, 3);
    const bool isAddress = isHex(word, 2) || isHex(word, 4) || (tenBit && hexValue(word) <= 0x3ff);
    if (words.peek().kind != Word::Kind::plain || !isAddress)
        words.expected("an address: two hexadecimal digits, or three up to 3ff for one of ten bits");
    return hexValue(words.take().value);
}

I2cMessage takeMessage(Words& words)
{
    I2cMessage message;
    message.address = takeAddress(words, message.tenBit);

    const std::string& direction = words.peek().value;
    const std::string name = direction.substr(0, direction.find('+'));
    if (words.peek().kind != Word::Kind::plain || (name != "W" && name != "R"))
        words.expected("W or R");
    message.read = name == "R";
    message.flags = takeFlags(words.take().value);
    message.data = takeData(words);
    return message;
}

I2cTransfer takeI2c(Words& words)
{
    I2cTransfer transfer;
    words.take("S");
    do {
        transfer.messages.push_back(takeMessage(words));
    } while (words.take("Sr"));
    if (words.take("P"))
        return transfer;
    words.take("NA");
    transfer.error = takeError(words, std::string{bytesExpected} + ", P, Sr, NA or the name of an error");
    return transfer;
}

void takeSegmentOption(Words& words, SpiSegment& segment)
{
    constexpr auto what = "a frequency, a number of bits, mosi-lines, miso-lines or cs-change";
    if (words.take("cs-change")) {
        segment.chipSelectChange = true;
    } else if (words.take("mosi-lines")) {
        segment.outLines = static_cast<uint32_t>(takeNumber(words, UINT8_MAX, "a number of lines"));
    } else if (words.take("miso-lines")) {
        segment.inLines = static_cast<uint32_t>(takeNumber(words, UINT8_MAX, "a number of lines"));
    } else {
        Words ahead = words;
        takeNumber(ahead, UINT32_MAX, what);
        if (ahead.nextIs("bits")) {
            segment.bitsPerWord = static_cast<uint32_t>(takeNumber(words, UINT8_MAX, "a number of bits"));
            words.take("bits");
        } else {
            segment.speedHz = takeFrequency(words);
        }
    }
}

SpiSegment takeSegment(Words& words)
{
    SpiSegment segment;
    if (!words.take("MOSI"))
        words.expected("MOSI and what is sent");
    segment.out = takeData(words);
    if (!words.take("MISO"))
        words.expected(std::string{bytesExpected} + ", or MISO and what is received");
    segment.in = takeData(words);
    while (words.takeMark(','))
        takeSegmentOption(words, segment);
    if (length(segment.out) != length(segment.in))
        throw SyntaxError("SPI sends and receives as many bytes: not " + std::to_string(length(segment.out)) + " and " +
                          std::to_string(length(segment.in)));
    return segment;
}

SpiTransfer takeSpi(Words& words)
{
    SpiTransfer transfer;
    do {
        transfer.segments.push_back(takeSegment(words));
    } while (words.takeMark(';'));
    if (words.take("mode"))
        takeModeAndSpeed(words, transfer.mode, transfer.speedHz);
    if (!words.atEnd())
        transfer.error = takeError(words, std::string{bytesExpected} + ", mode, or the name of an error");
    return transfer;
}

SerialTransfer takeSerial(Words& words)
{
    SerialTransfer transfer;
    transfer.received = words.take().value == "<";
    transfer.data = takeData(words);
    if (!words.atEnd())
        transfer.error = takeError(words, std::string{bytesExpected} + ", or the name of an error");
    return transfer;
}

}  // namespace

Data known(const std::vector<uint8_t>& bytes)
{
    return {{bytes.begin(), bytes.end()}, 0};
}

std::vector<uint8_t> bytesOf(const Data& data)
{
    std::vector<uint8_t> bytes;
    for (const Byte& byte : data.bytes)
        bytes.push_back(byte.value_or(0));
    return bytes;
}

Data planned(size_t count)
{
    return {{}, count};
}

size_t length(const Data& data)
{
    return data.bytes.size() + data.missing;
}

bool operator==(const Data& a, const Data& b)
{
    return a.bytes == b.bytes && a.missing == b.missing;
}

bool operator==(const I2cMessage& a, const I2cMessage& b)
{
    return std::tie(a.address, a.tenBit, a.read, a.flags, a.data) ==
           std::tie(b.address, b.tenBit, b.read, b.flags, b.data);
}

bool operator==(const I2cTransfer& a, const I2cTransfer& b)
{
    return a.messages == b.messages && a.error == b.error;
}

bool operator==(const SpiSegment& a, const SpiSegment& b)
{
    return std::tie(a.out, a.in, a.speedHz, a.bitsPerWord, a.outLines, a.inLines, a.chipSelectChange) ==
           std::tie(b.out, b.in, b.speedHz, b.bitsPerWord, b.outLines, b.inLines, b.chipSelectChange);
}

bool operator==(const SpiTransfer& a, const SpiTransfer& b)
{
    return std::tie(a.segments, a.mode, a.speedHz, a.error) == std::tie(b.segments, b.mode, b.speedHz, b.error);
}

bool operator==(const SerialTransfer& a, const SerialTransfer& b)
{
    return std::tie(a.received, a.data, a.error) == std::tie(b.received, b.data, b.error);
}

std::string toText(const Data& data, Length length)
{
    const size_t size = data.bytes.size();
    const size_t end = length == Length::cut && size > shownWhenCut ? shownWhenCut : size;
    std::string text;
    size_t i = 0;
    while (i < end) {
        const size_t run = length == Length::cut && data.bytes[i] ? 1 : runAt(data.bytes, i);
        const bool isShort = data.bytes[i] && run <= longestRun;
        append(text, isShort ? byteText(data.bytes[i]) : repeated(data.bytes[i], run));
        i += isShort ? 1 : run;
    }
    if (i < size)
        append(text, "... (" + std::to_string(size) + " bytes)");
    if (data.missing > 0)
        append(text, "[" + std::to_string(data.missing) + "]");
    return text;
}

std::string toText(const I2cTransfer& transfer, Length length)
{
    std::string line;
    for (const I2cMessage& message : transfer.messages) {
        append(line, line.empty() ? "S" : "Sr");
        append(line, formatted(addressFormat(message), message.address));
        append(line, (message.read ? "R" : "W") + flagText(message.flags));
        line = withData(line, message.data, length);
    }
    if (transfer.error == 0)
        return line + " P";
    return line + (meansNoAnswer(transfer.error) ? " NA " : "  ") + errorName(transfer.error);
}

std::string toText(const SpiTransfer& transfer, Length length)
{
    std::string line;
    for (const SpiSegment& segment : transfer.segments)
        line += (line.empty() ? "" : "; ") + segmentText(segment, length);
    const std::string settings = modeAndSpeed(transfer.mode, transfer.speedHz);
    line += (settings.empty() ? "" : "  ") + settings;
    return transfer.error == 0 ? line : line + "  " + errorName(transfer.error);
}

std::string toText(const SerialTransfer& transfer, Length length)
{
    const std::vector<Byte>& bytes = transfer.data.bytes;
    std::string line = transfer.received ? "<" : ">";
    if (bytes.empty() || !std::all_of(bytes.begin(), bytes.end(), isPrintable)) {
        line = withData(line, transfer.data, length);
    } else {
        const size_t end = length == Length::cut ? std::min(bytes.size(), 4 * shownWhenCut) : bytes.size();
        std::string text;
        for (size_t i = 0; i < end; ++i)
            text += static_cast<char>(*bytes[i]);
        append(line, quoted(text));
        if (end < bytes.size())
            append(line, "... (" + std::to_string(bytes.size()) + " bytes)");
        if (transfer.data.missing > 0)
            append(line, "[" + std::to_string(transfer.data.missing) + "]");
    }
    return transfer.error == 0 ? line : line + "  " + errorName(transfer.error);
}

std::string toText(const Transfer& transfer, Length length)
{
    return std::visit([&](const auto& one) { return toText(one, length); }, transfer);
}

std::string errorName(int number)
{
    const char* name = strerrorname_np(number);
    return name != nullptr ? name : "E" + std::to_string(number);
}

std::string repeated(Byte byte, size_t count)
{
    return byteText(byte) + " x " + std::to_string(count);
}

std::string frequency(uint32_t hz)
{
    return std::to_string(hz) + " Hz";
}

std::string modeAndSpeed(std::optional<uint32_t> mode, std::optional<uint32_t> speedHz)
{
    if (!mode && !speedHz)
        return {};
    return "mode " + (mode ? modeText(*mode) : "as set") + (speedHz ? ", " + frequency(*speedHz) : "");
}

int takeError(Words& words, const std::string& expected)
{
    const std::string& word = words.peek().value;
    size_t number = 0;
    if (words.peek().kind == Word::Kind::plain && word.size() > 1 && word[0] == 'E') {
        if (parseCount(word.substr(1), number) && number >= 1 && number <= mostErrors) {
            words.take();
            return static_cast<int>(number);
        }
        for (int candidate = 1; candidate <= mostErrors; ++candidate) {
            const char* name = strerrorname_np(candidate);
            if (name != nullptr && word == name) {
                words.take();
                return candidate;
            }
        }
    }
    words.expected(expected);
}

uint32_t takeFrequency(Words& words)
{
    const unsigned long number = takeNumber(words, UINT32_MAX, "a frequency, as in 500000 Hz");
    uint64_t factor = 1;
    if (words.take("kHz"))
        factor = 1'000;
    else if (words.take("MHz"))
        factor = 1'000'000;
    else if (!words.take("Hz"))
        words.expected("Hz, kHz or MHz");
    if (number * factor > UINT32_MAX)
        throw SyntaxError("the frequency is above " + frequency(UINT32_MAX));
    return static_cast<uint32_t>(number * factor);
}

void takeModeAndSpeed(Words& words, std::optional<uint32_t>& mode, std::optional<uint32_t>& speedHz)
{
    const bool isAny = words.nextIs("as");
    if (!isAny)
        mode = static_cast<uint32_t>(takeNumber(words, UINT32_MAX, "an SPI mode, or as set"));
    if (words.take("as") && !words.take("set"))
        words.expected("set");
    if (words.takeMark(','))
        speedHz = takeFrequency(words);
}

std::string modeText(uint32_t mode)
{
    return formatted("0x%02x", mode);
}

bool startsTransfer(const Words& words)
{
    return words.nextIs("S") || words.nextIs("MOSI") || words.nextIs(">") || words.nextIs("<");
}

Transfer takeTransfer(Words& words)
{
    if (words.nextIs("S"))
        return takeI2c(words);
    if (words.nextIs(">") || words.nextIs("<"))
        return takeSerial(words);
    return takeSpi(words);
}

Transfer parseTransfer(const std::string& line)
{
    Words words{line};
    Transfer transfer = takeTransfer(words);
    words.expectEnd();
    return transfer;
}

}  // namespace session
