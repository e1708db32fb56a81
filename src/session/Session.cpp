#include "Session.h"

#include "Take.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <map>
#include <sstream>
#include <tuple>

namespace session
{

namespace
{

constexpr auto firstLine = "serialcomm session 1";
constexpr auto devices = "/dev/";
constexpr size_t columns = 120;
constexpr int deepest = 16;

using Name = Setting::Name;

struct SettingName {
    const char* text;
    Name name;
    Bus bus;
};
constexpr SettingName settingNames[] = {
    {"address", Name::address, Bus::i2c},     {"force-address", Name::forceAddress, Bus::i2c},
    {"tenbit", Name::tenBit, Bus::i2c},       {"pec", Name::pec, Bus::i2c},
    {"timeout", Name::timeout, Bus::i2c},     {"retries", Name::retries, Bus::i2c},
    {"functions", Name::functions, Bus::i2c}, {"mode", Name::mode, Bus::spi},
    {"lsb-first", Name::lsbFirst, Bus::spi},  {"bits", Name::bits, Bus::spi},
    {"speed", Name::speed, Bus::spi},         {"line", Name::line, Bus::serial},
};

constexpr const char* busNames[] = {"i2c", "spi", "serial"};
constexpr auto actionExpected = "open, get, address, mode, line or another setting, or a traffic line";

bool isPlainPath(const std::string& path)
{
    return std::all_of(path.begin(), path.end(), [](unsigned char character) {
        return std::isalnum(character) != 0 ||
               std::string{"._/:@-"}.find(static_cast<char>(character)) != std::string::npos;
    });
}

const SettingName& nameOf(Name name)
{
    return *std::find_if(std::begin(settingNames), std::end(settingNames),
                         [&](const SettingName& each) { return each.name == name; });
}

std::string hexText(const char* format, uint32_t value)
{
    char text[16];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

std::string valueText(const Setting& setting)
{
    switch (setting.name) {
    case Name::address:
    case Name::forceAddress:
        return hexText("%02x", setting.value);
    case Name::functions:
        return hexText("0x%08x", setting.value);
    case Name::mode:
        return modeText(setting.value);
    case Name::speed:
        return frequency(setting.value);
    case Name::line:
        return toText(setting.line);
    default:
        return std::to_string(setting.value);
    }
}

std::string withError(const std::string& text, int error)
{
    return error == 0 ? text : text + "  " + errorName(error);
}

std::string text(const Open& open)
{
    std::string text = std::string{"open "} + busNames[static_cast<size_t>(open.bus)];
    const std::string settings = modeAndSpeed(open.mode, open.speedHz);
    text += (settings.empty() ? "" : "  ") + settings;
    if (open.line)
        text += "  " + toText(*open.line);
    return withError(text, open.error);
}

std::string text(const Setting& setting)
{
    std::string text = std::string{setting.isAnswer ? "get " : ""} + nameOf(setting.name).text;
    if (!setting.isAnswer || setting.error == 0)
        text += ' ' + valueText(setting);
    return withError(text, setting.error);
}

template <class Transferred>
std::string text(const Transferred& transfer)
{
    return toText(transfer);
}

/// Breaks a line that is too long between words, where a backslash may stand.
std::string wrapped(const std::string& line)
{
    std::string result;
    size_t width = 0;
    bool inText = false;
    for (size_t at = 0; at < line.size();) {
        size_t end = at;  // of the word, and of the blanks before it
        while (end < line.size() && line[end] == ' ')
            ++end;
        for (; end < line.size() && (inText || line[end] != ' '); ++end) {
            if (line[end] == '"')
                inText = !inText;
            else if (line[end] == '\\')
                ++end;
        }
        if (width > 0 && width + (end - at) > columns - 2) {
            result += " \\\n   ";
            width = 3;
        }
        result += line.substr(at, end - at);
        width += end - at;
        at = end;
    }
    return result;
}

std::string indented(const Item& item, size_t depth)
{
    const std::string margin(2 * depth, ' ');
    if (item.kind == Item::Kind::event)
        return wrapped(margin + toText(item.event)) + '\n';
    std::string text = margin + (item.kind == Item::Kind::repeat ? "repeat {\n" : "unordered {\n");
    for (const Item& each : item.items)
        text += indented(each, depth + 1);
    return text + margin + "}\n";
}

// Parsing

LineSettings takeLine(Words& words)
{
    LineSettings line;
    line.baudRate = static_cast<uint32_t>(takeNumber(words, UINT32_MAX, "a baud rate, as in 9600 8N1"));
    const std::string& frame = words.peek().value;
    if (words.peek().kind != Word::Kind::plain || frame.size() != 3 || frame[0] < '5' || frame[0] > '8' ||
        std::string{"NEO"}.find(frame[1]) == std::string::npos || (frame[2] != '1' && frame[2] != '2'))
        words.expected("data bits, parity and stop bits, as in 8N1");
    line.dataBits = static_cast<uint8_t>(frame[0] - '0');
    line.parity = frame[1];
    line.stopBits = static_cast<uint8_t>(frame[2] - '0');
    words.take();
    line.rtsCts = words.take("rtscts");
    line.xonXoff = words.take("xonxoff");
    return line;
}

void takeOpenState(Words& words, Open& open)
{
    if (open.bus == Bus::spi && words.take("mode"))
        takeModeAndSpeed(words, open.mode, open.speedHz);
    if (open.bus == Bus::serial && !words.atEnd() && words.peek().value[0] != 'E')
        open.line = takeLine(words);
}

Open takeOpen(Words& words)
{
    Open open;
    const auto* name =
        std::find_if(std::begin(busNames), std::end(busNames), [&](const char* each) { return words.nextIs(each); });
    if (name == std::end(busNames))
        words.expected("i2c, spi or serial");
    words.take();
    open.bus = static_cast<Bus>(name - std::begin(busNames));
    takeOpenState(words, open);
    if (!words.atEnd())
        open.error = takeError(words, "the end of the line or the name of an error");
    return open;
}

/// Any number that a program may ask for, valid or not.
uint32_t takeAskedAddress(Words& words)
{
    const std::string& word = words.peek().value;
    if (words.peek().kind != Word::Kind::plain || word.size() < 2 || word.size() > 8 ||
        word.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos)
        words.expected("an address: two or more hexadecimal digits");
    return static_cast<uint32_t>(std::stoul(words.take().value, nullptr, 16));
}

void takeValue(Words& words, Setting& setting)
{
    switch (setting.name) {
    case Name::address:
    case Name::forceAddress:
        setting.value = takeAskedAddress(words);
        break;
    case Name::speed:
        setting.value = takeFrequency(words);
        break;
    case Name::line:
        setting.line = takeLine(words);
        break;
    default:
        setting.value = static_cast<uint32_t>(takeNumber(words, UINT32_MAX, "a number"));
        break;
    }
}

const SettingName* settingAt(const Words& words)
{
    const auto* name = std::find_if(std::begin(settingNames), std::end(settingNames),
                                    [&](const SettingName& each) { return words.nextIs(each.text); });
    return name == std::end(settingNames) ? nullptr : name;
}

Setting takeSetting(Words& words)
{
    Setting setting;
    setting.isAnswer = words.take("get");
    const SettingName* name = settingAt(words);
    if (name == nullptr)
        words.expected("the name of a setting");
    words.take();
    setting.name = name->name;
    if (setting.name == Name::functions && !setting.isAnswer)
        throw SyntaxError("functions cannot be set; expected get functions");
    const bool hasValue = !setting.isAnswer || words.peek().value[0] != 'E';
    if (hasValue)
        takeValue(words, setting);
    if (!hasValue || (!setting.isAnswer && !words.atEnd()))
        setting.error = takeError(words, "the end of the line or the name of an error");
    return setting;
}

/// "+0.002150"
std::optional<std::chrono::microseconds> takeTime(Words& words)
{
    const std::string& word = words.peek().value;
    if (words.peek().kind != Word::Kind::plain || word[0] != '+')
        return std::nullopt;
    const size_t point = word.find('.');
    const std::string seconds = word.substr(1, point - 1);
    const std::string fraction = point == std::string::npos ? "0" : word.substr(point + 1);
    constexpr auto digits = "0123456789";
    if (seconds.empty() || seconds.size() > 9 || seconds.find_first_not_of(digits) != std::string::npos ||
        fraction.empty() || fraction.size() > 6 || fraction.find_first_not_of(digits) != std::string::npos)
        words.expected("a time in seconds, as in +0.002150");
    const std::string micros = fraction + std::string(6 - fraction.size(), '0');
    const auto time = std::chrono::seconds{std::stol(seconds)} + std::chrono::microseconds{std::stol(micros)};
    words.take();
    return time;
}

std::string takeDevice(Words& words)
{
    if (words.atEnd() || words.peek().kind == Word::Kind::mark)
        words.expected("a device, as in i2c-4 or /dev/i2c-4");
    const Word word = words.take();
    if (!word.value.empty() && word.value[0] == '/')
        return word.value;
    if (word.kind == Word::Kind::text || !isPlainPath(word.value))
        throw SyntaxError("no device: " + quoted(word.value) +
                          "; expected a name in /dev, as in i2c-4, or a path that starts with / (in quotation marks "
                          "where it holds other characters than letters, digits and ._/:@-)");
    return devices + word.value;
}

void takeAction(Words& words, Event& event)
{
    if (words.take("open"))
        event.what = takeOpen(words);
    else if (words.nextIs("get") || settingAt(words) != nullptr)
        event.what = takeSetting(words);
    else if (startsTransfer(words))
        std::visit([&](auto&& transfer) { event.what = transfer; }, takeTransfer(words));
    else
        words.expected(actionExpected);
    words.expectEnd();
}

class Parser
{
public:
    explicit Parser(const std::string& file) : text(file) {}

    Session parseFile()
    {
        std::string line;
        size_t start = 0;
        do {
            if (!readLine(line))
                throw FormatError(1, std::string{"no session: expected the line "} + firstLine);
            start = line.find_first_not_of(" \t");
        } while (start == std::string::npos || line[start] == '#');
        checkVersion(line.substr(0, line.find('#')));
        hasDevices = true;
        return parseLines();
    }

    Session parseLines()
    {
        Session session;
        for (std::string line; readLine(line);)
            add(line, session.items);
        return session;
    }

private:
    /// A line, with those that a backslash at its end joins to it.
    bool readLine(std::string& line)
    {
        line.clear();
        lineNumber = nextNumber;
        while (at < text.size()) {
            const size_t end = std::min(text.find('\n', at), text.size());
            line += text.substr(at, end - at);
            at = end + 1;
            ++nextNumber;
            if (!line.empty() && line.back() == '\r')
                line.pop_back();
            if (line.empty() || line.back() != '\\')
                return true;
            line.back() = ' ';
        }
        return !line.empty();
    }

    void checkVersion(const std::string& line) const
    {
        std::istringstream words{line};
        std::string program;
        std::string kind;
        std::string version;
        std::string more;
        words >> program >> kind >> version;
        if (program != "serialcomm" || kind != "session")
            throw FormatError(lineNumber, std::string{"no session: expected the line "} + firstLine);
        if (version != "1" || words >> more)
            throw FormatError(lineNumber, std::string{"a session of another version; this program reads "} + firstLine);
    }

    void add(const std::string& line, std::vector<Item>& items)
    {
        const size_t number = lineNumber;
        try {
            Words words{line};
            if (words.atEnd())
                return;
            Item item;
            if (words.nextIs("repeat") || words.nextIs("unordered")) {
                item.kind = words.take().value == "repeat" ? Item::Kind::repeat : Item::Kind::unordered;
                if (!words.take("{"))
                    words.expected("{");
                words.expectEnd();
                item.items = block(item.kind);
            } else {
                if (hasDevices) {
                    item.event.after = takeTime(words);
                    item.event.device = takeDevice(words);
                }
                takeAction(words, item.event);
                item.event.fileLine = number;
                checkBus(item.event);
            }
            items.push_back(std::move(item));
        } catch (const FormatError&) {
            throw;
        } catch (const SyntaxError& error) {
            throw FormatError(number, error.what());
        }
    }

    /// The lines up to the closing brace.
    std::vector<Item> block(Item::Kind kind)
    {
        const size_t number = lineNumber;
        if (++depth > deepest)
            throw SyntaxError("blocks are nested more than " + std::to_string(deepest) + " times");
        std::vector<Item> items;
        for (std::string line; readLine(line);) {
            Words words = wordsOf(line);
            if (words.take("}")) {
                words.expectEnd();
                if (items.empty())
                    throw SyntaxError("an empty block");
                --depth;
                return items;
            }
            add(line, items);
            if (kind == Item::Kind::unordered && !items.empty())
                checkUnordered(items.back());
        }
        throw FormatError(number, "a block without its closing brace");
    }

    [[nodiscard]] Words wordsOf(const std::string& line) const
    {
        try {
            return Words{line};
        } catch (const SyntaxError& error) {
            throw FormatError(lineNumber, error.what());
        }
    }

    void checkUnordered(const Item& item) const
    {
        if (item.kind != Item::Kind::event)
            throw FormatError(lineNumber, "an unordered block holds no other blocks");
        if (std::holds_alternative<SerialTransfer>(item.event.what))
            throw FormatError(lineNumber, "bytes of a serial port have an order; move them out of the block");
        const auto* setting = std::get_if<Setting>(&item.event.what);
        if (setting != nullptr && setting->isAnswer)
            throw FormatError(lineNumber, "a line with get belongs before or after an unordered block");
    }

    void checkBus(const Event& event)
    {
        const Bus bus = busOf(event);
        const auto [known, isNew] = buses.try_emplace(event.device, std::make_pair(bus, event.fileLine));
        const auto [knownBus, knownLine] = known->second;
        if (!isNew && knownBus != bus)
            throw SyntaxError((hasDevices ? deviceName(event.device) : "the device") + " is " +
                              busNames[static_cast<size_t>(knownBus)] + " in line " + std::to_string(knownLine) +
                              ", and " + busNames[static_cast<size_t>(bus)] + " here");
    }

    const std::string& text;
    bool hasDevices = false;
    size_t at = 0;
    size_t lineNumber = 0;
    size_t nextNumber = 1;
    int depth = 0;
    std::map<std::string, std::pair<Bus, size_t>> buses;
};

}  // namespace

bool operator==(const LineSettings& a, const LineSettings& b)
{
    return std::tie(a.baudRate, a.dataBits, a.parity, a.stopBits, a.rtsCts, a.xonXoff) ==
           std::tie(b.baudRate, b.dataBits, b.parity, b.stopBits, b.rtsCts, b.xonXoff);
}

bool operator==(const Open& a, const Open& b)
{
    return std::tie(a.bus, a.mode, a.speedHz, a.line, a.error) == std::tie(b.bus, b.mode, b.speedHz, b.line, b.error);
}

bool operator==(const Setting& a, const Setting& b)
{
    return std::tie(a.name, a.isAnswer, a.value, a.line, a.error) ==
           std::tie(b.name, b.isAnswer, b.value, b.line, b.error);
}

bool operator==(const Event& a, const Event& b)
{
    return std::tie(a.after, a.device, a.what) == std::tie(b.after, b.device, b.what);
}

bool operator==(const Item& a, const Item& b)
{
    if (a.kind != b.kind)
        return false;
    return a.kind == Item::Kind::event ? a.event == b.event : a.items == b.items;
}

bool operator==(const Session& a, const Session& b)
{
    return a.items == b.items;
}

Session parse(const std::string& text)
{
    return Parser{text}.parseFile();
}

Session parseLines(const std::string& text)
{
    return Parser{text}.parseLines();
}

std::string toText(const Session& session)
{
    std::string text = versionLine();
    for (const Item& item : session.items)
        text += indented(item, 0);
    return text;
}

std::string toText(const Event& event)
{
    std::string time;
    if (event.after) {
        char text[32];
        const auto micros = static_cast<long long>(event.after->count());
        std::snprintf(text, sizeof text, "+%lld.%06lld  ", micros / 1'000'000, micros % 1'000'000);
        time = text;
    }
    return time + withoutTime(event);
}

std::string withoutTime(const Event& event)
{
    return (event.device.empty() ? "" : deviceName(event.device) + "  ") + action(event);
}

std::string versionLine()
{
    return std::string{firstLine} + '\n';
}

std::string action(const Event& event)
{
    return std::visit([](const auto& what) { return text(what); }, event.what);
}

std::string deviceName(const std::string& path)
{
    if (!isPlainPath(path))
        return quoted(path);
    const std::string name = path.rfind(devices, 0) == 0 ? path.substr(std::string{devices}.size()) : "";
    const bool isWord = !name.empty() && name[0] != '/' && name != "repeat" && name != "unordered";
    return isWord ? name : path;
}

std::string toText(const LineSettings& line)
{
    std::string text = std::to_string(line.baudRate) + ' ' + std::to_string(line.dataBits) + line.parity +
                       std::to_string(line.stopBits);
    if (line.rtsCts)
        text += " rtscts";
    if (line.xonXoff)
        text += " xonxoff";
    return text;
}

Bus busOf(const Event& event)
{
    if (const auto* open = std::get_if<Open>(&event.what))
        return open->bus;
    if (const auto* setting = std::get_if<Setting>(&event.what))
        return nameOf(setting->name).bus;
    if (std::holds_alternative<I2cTransfer>(event.what))
        return Bus::i2c;
    return std::holds_alternative<SpiTransfer>(event.what) ? Bus::spi : Bus::serial;
}

int errorOf(const Event& event)
{
    return std::visit([](const auto& what) { return what.error; }, event.what);
}

}  // namespace session
