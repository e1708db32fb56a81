#include "Timeline.h"

#include "ScriptedKernel.h"
#include "serialComm/I2c.h"
#include "serialComm/Spi.h"
#include "serialComm/Uart.h"

#include <stdio.h>
#include <string.h>
#include <termios.h>

#include <gtest/gtest.h>
#include <log4cplus/loglevel.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <sstream>

/// A derived class's setMaxSpeed() is the one that init() calls.
class SlowerSpi : public Spi
{
public:
    using Spi::Spi;
    bool setMaxSpeed(int hz) override { return Spi::setMaxSpeed(hz / 2); }
};

static const std::map<std::string, std::string> signatures = {
    {"I2c init", "virtual bool I2c::init()"},
    {"I2c read", "virtual ByteArray I2c::read(size_t)"},
    {"I2c write", "virtual bool I2c::write(const ByteArray&)"},
    {"I2c writeRead", "virtual ByteArray I2c::writeRead(const ByteArray&, size_t)"},
    {"I2c setMaxSpeed", "virtual bool I2c::setMaxSpeed(int)"},
    {"I2c readRegister", "virtual ByteArray I2c::readRegister(uint8_t, size_t)"},
    {"I2c writeRegister", "virtual bool I2c::writeRegister(uint8_t, const ByteArray&)"},
    {"Spi init", "virtual bool Spi::init()"},
    {"Spi read", "virtual ByteArray Spi::read(size_t)"},
    {"Spi write", "virtual bool Spi::write(const ByteArray&)"},
    {"Spi writeRead", "virtual ByteArray Spi::writeRead(const ByteArray&, size_t)"},
    {"Spi setMaxSpeed", "virtual bool Spi::setMaxSpeed(int)"},
    {"Uart init", "bool Uart::init()"},
    {"Uart read", "ByteArray Uart::read(size_t, bool*)"},
    {"Uart write", "bool Uart::write(const ByteArray&)"},
};

static bool isCall(const std::string& line)
{
    return line.rfind("> ", 0) == 0;
}

std::vector<Case> readCases(const std::string& file)
{
    std::ifstream stream{file};
    std::vector<Case> cases;
    int number = 0;
    for (std::string line; std::getline(stream, line);) {
        ++number;
        if (line.rfind("# ", 0) == 0) {
            cases.push_back({file, number, line.substr(2), {}});
        } else if (!line.empty()) {
            if (cases.empty()) {
                throw TimelineError{file + ":" + std::to_string(number) + ": no title before this line: " + line};
            }
            cases.back().lines.push_back(line);
        }
    }
    for (const Case& wanted : cases) {
        if (std::none_of(wanted.lines.begin(), wanted.lines.end(), isCall)) {
            throw TimelineError{file + ":" + std::to_string(wanted.line) + ": no call in this case"};
        }
    }
    if (cases.empty()) {
        throw TimelineError{file + ": the file cannot be read or has no case"};
    }
    return cases;
}

/// The words of a line, separated by spaces or commas and taken from left to right. A word that is missing or unknown
/// is a TimelineError.
class Words
{
public:
    explicit Words(const std::string& text) : line(text)
    {
        std::string spaced = text;
        std::replace(spaced.begin(), spaced.end(), ',', ' ');
        std::istringstream stream{spaced};
        for (std::string word; stream >> word;) {
            words.push_back(word);
        }
    }

    [[nodiscard]] bool more() const { return next < words.size(); }

    std::string word()
    {
        if (!more()) {
            throw TimelineError{"a word is missing: " + line};
        }
        const std::string& word = words[next++];
        return word == "''" ? "" : word;
    }

    /// "0x" makes it hexadecimal in any base.
    template <class Number>
    Number number(int base = 10)
    {
        return parse<Number>(word(), base);
    }

    size_t size()
    {
        const std::string text = word();
        return text == "max" ? SIZE_MAX : parse<size_t>(text, 10);
    }

    /// All words that are left: "de ad 3*00".
    ByteArray bytes()
    {
        ByteArray result;
        while (more()) {
            const std::string text = word();
            const size_t star = text.find('*');
            const size_t count = star == std::string::npos ? 1 : parse<size_t>(text.substr(0, star), 10);
            result.insert(result.end(), count, parse<uint8_t>(text.substr(star + 1), 16));
        }
        return result;
    }

    /// "9*.."
    std::optional<size_t> absentBytes()
    {
        const std::string suffix = "*..";
        if (!more() || words[next].size() <= suffix.size() ||
            words[next].compare(words[next].size() - suffix.size(), suffix.size(), suffix) != 0) {
            return std::nullopt;
        }
        const std::string text = word();
        return parse<size_t>(text.substr(0, text.size() - suffix.size()), 10);
    }

    /// One of two words.
    bool choice(const std::string& yes, const std::string& no)
    {
        const std::string text = word();
        if (text != yes && text != no) {
            unknown(text);
        }
        return text == yes;
    }

    /// Whether one more word follows, which must be this one.
    bool option(const std::string& expected) { return more() && choice(expected, expected); }

    void end()
    {
        if (more()) {
            unknown(word());
        }
    }

    [[noreturn]] void unknown(const std::string& text) const
    {
        throw TimelineError{"unknown word " + text + ": " + line};
    }

private:
    template <class Number>
    Number parse(const std::string& text, int base) const
    {
        const bool prefixed = text.rfind("0x", 0) == 0;
        const char* end = text.data() + text.size();
        Number value{};
        const auto [last, error] = std::from_chars(text.data() + (prefixed ? 2 : 0), end, value, prefixed ? 16 : base);
        if (error != std::errc{} || last != end) {
            unknown(text);
        }
        return value;
    }

    std::string line;
    std::vector<std::string> words;
    size_t next = 0;
};

/// "{cflag 0xcbd, VTIME 9, speeds B0 B0}"; the speeds are not read.
static ByteArray attributes(const std::string& text)
{
    struct termios record;
    memset(&record, 0, sizeof record);
    unsigned time = 0;
    if (sscanf(text.c_str(), "{cflag %x, VTIME %u, speeds B0 B0}", &record.c_cflag, &time) != 2) {
        throw TimelineError{"not terminal attributes: " + text};
    }
    record.c_cc[VTIME] = static_cast<cc_t>(time);
    const auto* first = reinterpret_cast<const uint8_t*>(&record);
    return {first, first + sizeof record};
}

/// "EIO" to 5.
static int errorNumber(Words& words)
{
    const std::string name = words.word();
    for (int number = 1; number <= EHWPOISON; ++number) {
        const char* known = strerrorname_np(number);
        if (known != nullptr && name == known) {
            return number;
        }
    }
    words.unknown(name);
}

/// "-1 EIO", "2 [19 80]", or for ptsname() "/dev/pts/9".
static Answer answerIn(const std::string& text, bool isName)
{
    const size_t bracket = text.find(" [");
    Words words{text.substr(0, bracket)};
    Answer answer;
    if (isName) {
        const std::string name = words.word();
        answer.text = name == "NULL" ? "" : name;
    } else {
        answer.result = words.number<long>();
        answer.errorNumber = words.more() ? errorNumber(words) : 0;
    }
    words.end();
    if (bracket != std::string::npos) {
        const std::string stored = text.substr(bracket + 2, text.rfind(']') - bracket - 2);
        answer.bytes = stored[0] == '{' ? attributes(stored) : Words{stored}.bytes();
    }
    return answer;
}

/// The kernel's answers in a timeline: what follows " = " in lines such as "read(7, [00], 1) = -1 EIO".
static Script answersIn(const Case& wanted)
{
    const std::string equals = ") = ";
    Script script;
    for (const std::string& line : wanted.lines) {
        const size_t end = line.rfind(equals);
        if (end != std::string::npos && std::islower(static_cast<unsigned char>(line[0])) != 0) {
            script.push_back(answerIn(line.substr(end + equals.size()), line.rfind("ptsname(", 0) == 0));
        }
    }
    return script;
}

/// A device and the kernel that answers it.
class Player
{
public:
    Player(const Case& wanted, Kernel answering) : kernel(answering)
    {
        recordLog();
        if (kernel == Kernel::real) {
            recorder = std::make_unique<RecordedKernel>();
        } else {
            recorder = std::make_unique<ScriptedKernel>(answersIn(wanted));
        }
    }
    Player(const Player&) = delete;
    Player& operator=(const Player&) = delete;
    ~Player() = default;

    void call(const std::string& line)
    {
        recorder->add("> " + line);
        Words words{line};
        const std::function<void()> action = actionOf(words);
        words.end();
        try {
            action();
        } catch (const std::exception& exception) {
            recorder->add(std::string{"threw "} + exception.what());
        }
    }

    void shell(const std::string& command)
    {
        recorder->add("$ " + command);
        FILE* pipe = popen((command + " 2>&1 | sed 's/^/| /'").c_str(), "r");
        std::string output;
        for (int character = fgetc(pipe); character != EOF; character = fgetc(pipe)) {
            output += static_cast<char>(character);
        }
        pclose(pipe);
        if (!output.empty()) {
            recorder->add(output.substr(0, output.size() - 1));
        }
    }

    std::string finish()
    {
        if (openedUnseen) {
            unseen([this] { destroy(); });
        }
        destroy();
        return recorder->timeline();
    }

private:
    void unseen(const std::function<void()>& action)
    {
        if (kernel == Kernel::real) {
            const RecordedKernel other;
            action();
        } else {
            const ScriptedKernel other{{}};
            const WillingKernel willing;
            action();
        }
    }

    std::function<void()> actionOf(Words& words)
    {
        const std::string name = words.word();
        if (name == "level") {
            const std::string text = words.word();
            const log4cplus::LogLevel level = log4cplus::getLogLevelManager().fromString(text);
            if (level == log4cplus::NOT_SET_LOG_LEVEL) {
                words.unknown(text);
            }
            return [=] { recordLog(level); };
        }
        if (name == "end") {
            return [this] { destroy(); };
        }
        if (name == "I2c" || name == "Spi" || name == "SlowerSpi" || name == "Uart") {
            return construction(name, words);
        }

        const auto signature = signatures.find(kind + " " + name);
        if (signature == signatures.end()) {
            words.unknown(name);
        }
        recorder->expectLinesFrom("src/lib/serialComm/" + kind + ".cpp", signature->second);
        if (name == "init") {
            return [this] { recorder->returned(bus ? bus->init() : uart->init()); };
        }
        return bus ? busCall(name, words) : uartCall(name, words);
    }

    std::function<void()> construction(const std::string& name, Words& words)
    {
        kind = name == "SlowerSpi" ? "Spi" : name;
        const std::string path = words.word();
        if (name == "I2c") {
            bus = std::make_unique<I2c>(path, words.number<int>());
        } else if (name == "Uart") {
            const auto baud = words.number<int>();
            const auto stopBits = words.number<int>();
            const std::string parity = words.word();
            uart = std::make_unique<Uart>(path, baud, stopBits, parity, words.choice("blocking", "nonblocking"));
        } else {
            const auto hz = words.number<int>();
            const auto mode = words.number<uint8_t>(16);
            bus = name == "Spi" ? std::make_unique<Spi>(path, hz, mode) : std::make_unique<SlowerSpi>(path, hz, mode);
        }
        openedUnseen = words.option("open");
        return [this] {
            if (openedUnseen) {
                unseen([this] { EXPECT_TRUE(bus ? bus->init() : uart->init()); });
            }
        };
    }

    std::function<void()> busCall(const std::string& name, Words& words)
    {
        auto* chip = dynamic_cast<I2c*>(bus.get());
        if (name == "read") {
            return [this, len = words.size()] { recorder->returned(bus->read(len)); };
        }
        if (name == "write") {
            return [this, &data = callers(words)] { recorder->returned(bus->write(data)); };
        }
        if (name == "writeRead") {
            const size_t len = words.size();
            return [this, len, &data = callers(words)] { recorder->returned(bus->writeRead(data, len)); };
        }
        if (name == "setMaxSpeed") {
            return [this, hz = words.number<int>()] { recorder->returned(bus->setMaxSpeed(hz)); };
        }
        const auto reg = words.number<uint8_t>(16);
        if (name == "readRegister") {
            return [this, chip, reg, len = words.size()] { recorder->returned(chip->readRegister(reg, len)); };
        }
        return [this, chip, reg, &data = callers(words)] { recorder->returned(chip->writeRegister(reg, data)); };
    }

    std::function<void()> uartCall(const std::string& name, Words& words)
    {
        if (name == "write") {
            return [this, &data = callers(words)] { recorder->returned(uart->write(data)); };
        }
        const size_t size = words.size();
        if (words.option("-")) {  // "read 4 -": with a null pointer for the error flag
            return [this, size] { recorder->returned(uart->read(size)); };
        }
        return [this, size] {
            constexpr uint8_t untouched = 0x55;
            uint8_t flag = untouched;
            recorder->returned(uart->read(size, reinterpret_cast<bool*>(&flag)));
            recorder->add(flag == untouched ? "error untouched" : flag != 0 ? "error" : "no error");
        };
    }

    /// The buffer that the caller passes.
    const ByteArray& callers(Words& words)
    {
        const std::optional<size_t> length = words.absentBytes();
        if (length) {
            absent.emplace(*length);
        } else {
            data = words.bytes();
        }
        const ByteArray& buffer = length ? absent->get() : data;
        recorder->callersBuffer(buffer);
        return buffer;
    }

    void destroy()
    {
        bus.reset();
        uart.reset();
    }

    Kernel kernel;
    std::unique_ptr<ScriptedKernel> recorder;  // outlives the devices
    std::string kind;
    std::unique_ptr<SyncSerialBase> bus;
    std::unique_ptr<Uart> uart;
    bool openedUnseen = false;
    ByteArray data;
    std::optional<AbsentBytes> absent;
};

std::string play(const Case& wanted, Kernel kernel)
{
    Player player{wanted, kernel};
    for (const std::string& line : wanted.lines) {
        if (isCall(line)) {
            player.call(line.substr(2));
        } else if (line.rfind("$ ", 0) == 0) {
            player.shell(line.substr(2));
        }
    }
    return player.finish();
}

class TimelineCase : public testing::Test
{
public:
    TimelineCase(Case toPlay, Kernel answering) : wanted(std::move(toPlay)), kernel(answering) {}

    void TestBody() override
    {
        const testing::ScopedTrace trace{wanted.file.c_str(), wanted.line, wanted.title};
        std::string timeline;
        for (const std::string& line : wanted.lines) {
            if (line.rfind("? ", 0) != 0) {
                timeline += line + '\n';
            } else if (std::system(line.c_str() + 2) != 0) {
                GTEST_SKIP() << "this machine lacks: " << line.substr(2);
            }
        }
        try {
            EXPECT_EQ(timeline, play(wanted, kernel));
        } catch (const TimelineError& error) {
            FAIL() << error.what();
        }
    }

private:
    Case wanted;
    Kernel kernel;
};

void addCases(const std::string& file, Kernel kernel)
{
    const std::string name = file.substr(file.rfind('/') + 1);
    const std::string suite = name.substr(0, name.find('.'));
    for (const Case& wanted : readCases(file)) {
        std::string title = wanted.title;
        for (char& character : title) {
            character = std::isalnum(static_cast<unsigned char>(character)) != 0 ? character : '_';
        }
        testing::RegisterTest(suite.c_str(), title.c_str(), nullptr, nullptr, file.c_str(), wanted.line,
                              [=]() -> testing::Test* {
                                  return new TimelineCase{wanted, kernel};
                              });
    }
}
