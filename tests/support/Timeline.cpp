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

#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
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

struct Case {
    std::string title;
    std::vector<std::string> lines;
};

static std::vector<Case> readCases(const std::string& file)
{
    std::vector<Case> cases;
    std::ifstream stream{file};
    for (std::string line; std::getline(stream, line);) {
        if (line.rfind("# ", 0) == 0) {
            cases.push_back({line.substr(2), {}});
        } else if (!line.empty() && !cases.empty()) {
            cases.back().lines.push_back(line);
        }
    }
    return cases;
}

static std::vector<std::string> wordsOf(const std::string& line)
{
    std::istringstream stream{line};
    std::vector<std::string> words;
    for (std::string word; stream >> word;) {
        words.push_back(word == "''" ? "" : word);
    }
    return words;
}

static size_t size(const std::string& word)
{
    return word == "max" ? SIZE_MAX : std::stoul(word);
}

static uint8_t byte(const std::string& word)
{
    return static_cast<uint8_t>(std::stoul(word, nullptr, 16));
}

/// "de ad 3*00"
static ByteArray bytes(const std::vector<std::string>& words, size_t first = 0)
{
    ByteArray result;
    for (size_t i = first; i < words.size(); ++i) {
        const size_t star = words[i].find('*');
        const size_t count = star == std::string::npos ? 1 : size(words[i].substr(0, star));
        result.insert(result.end(), count, byte(words[i].substr(star + 1)));
    }
    return result;
}

/// "{cflag 0xcbd, VTIME 9, speeds 0 0}"
static ByteArray attributes(const std::string& text)
{
    struct termios record;
    memset(&record, 0, sizeof record);
    int time = 0;
    EXPECT_EQ(2, sscanf(text.c_str(), "{cflag %x, VTIME %d", &record.c_cflag, &time)) << text;
    record.c_cc[VTIME] = static_cast<cc_t>(time);
    const auto* first = reinterpret_cast<const uint8_t*>(&record);
    return {first, first + sizeof record};
}

/// "EIO" to 5; 0 for nothing.
static int errorNumber(const std::string& name)
{
    for (int number = 1; number <= EHWPOISON; ++number) {
        const char* known = strerrorname_np(number);
        if (known != nullptr && name == known) {
            return number;
        }
    }
    return 0;
}

/// The answers that stand in a timeline: "read(…) = -1 EIO", "ioctl(…) = 2 [19 80]", "ptsname(…) = /dev/pts/9".
static Script answersIn(const Case& wanted)
{
    const std::string equals = ") = ";
    Script script;
    for (const std::string& line : wanted.lines) {
        const size_t end = line.rfind(equals);
        if (end == std::string::npos || std::islower(static_cast<unsigned char>(line[0])) == 0) {
            continue;
        }
        const std::string text = line.substr(end + equals.size());
        const size_t bracket = text.find(" [");
        const std::vector<std::string> words = wordsOf(text.substr(0, bracket));
        Answer answer;
        if (line.rfind("ptsname(", 0) == 0) {
            answer.text = words[0] == "NULL" ? "" : words[0];
        } else {
            answer.result = std::stol(words[0]);
            answer.errorNumber = words.size() > 1 ? errorNumber(words[1]) : 0;
        }
        if (bracket != std::string::npos) {
            const std::string stored = text.substr(bracket + 2, text.rfind(']') - bracket - 2);
            answer.bytes = stored[0] == '{' ? attributes(stored) : bytes(wordsOf(stored));
        }
        script.push_back(answer);
    }
    return script;
}

/// A device, and the kernel that answers it.
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
        const std::vector<std::string> words = wordsOf(line);
        const auto signature = signatures.find(kind + " " + words[0]);
        if (signature != signatures.end()) {
            recorder->expectLinesFrom("src/lib/serialComm/" + kind + ".cpp", signature->second);
        }
        try {
            if (words[0] == "level") {
                recordLog(log4cplus::getLogLevelManager().fromString(words[1]));
            } else if (words[0] == "end") {
                bus.reset();
                uart.reset();
            } else if (signature == signatures.end()) {
                make(line);
            } else if (words[0] == "init") {
                recorder->returned(bus ? bus->init() : uart->init());
            } else if (bus) {
                callBus(words);
            } else {
                callUart(words);
            }
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
            unseen([this] {
                bus.reset();
                uart.reset();
            });
        }
        bus.reset();
        uart.reset();
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

    void make(const std::string& line)
    {
        openedUnseen = line.find(", open") != std::string::npos;
        const std::vector<std::string> words = wordsOf(line.substr(0, line.find(", open")));
        kind = words[0] == "SlowerSpi" ? "Spi" : words[0];
        if (words[0] == "I2c") {
            bus = std::make_unique<I2c>(words[1], std::stoi(words[2], nullptr, 0));
        } else if (words[0] == "Spi") {
            bus = std::make_unique<Spi>(words[1], std::stoi(words[2]), byte(words[3]));
        } else if (words[0] == "SlowerSpi") {
            bus = std::make_unique<SlowerSpi>(words[1], std::stoi(words[2]), byte(words[3]));
        } else {
            const bool waits = words[5] == "waits";
            uart = std::make_unique<Uart>(words[1], std::stoi(words[2]), std::stoi(words[3]), words[4], waits);
        }
        if (openedUnseen) {
            unseen([this] { EXPECT_TRUE(bus ? bus->init() : uart->init()); });
        }
    }

    void callBus(const std::vector<std::string>& words)
    {
        auto* chip = dynamic_cast<I2c*>(bus.get());
        if (words[0] == "read") {
            recorder->returned(bus->read(size(words[1])));
        } else if (words[0] == "write") {
            recorder->returned(bus->write(callers(words, 1)));
        } else if (words[0] == "writeRead") {
            recorder->returned(bus->writeRead(callers(words, 2), size(words[1])));
        } else if (words[0] == "setMaxSpeed") {
            recorder->returned(bus->setMaxSpeed(std::stoi(words[1])));
        } else if (words[0] == "readRegister") {
            recorder->returned(chip->readRegister(byte(words[1]), size(words[2])));
        } else {
            recorder->returned(chip->writeRegister(byte(words[1]), callers(words, 2)));
        }
    }

    void callUart(const std::vector<std::string>& words)
    {
        if (words[0] == "write") {
            recorder->returned(uart->write(callers(words, 1)));
        } else if (words.size() == 3) {  // "read 4 -": without a flag
            recorder->returned(uart->read(size(words[1])));
        } else {
            constexpr uint8_t untouched = 0x55;
            uint8_t flag = untouched;
            recorder->returned(uart->read(size(words[1]), reinterpret_cast<bool*>(&flag)));
            recorder->add(flag == untouched ? "error untouched" : flag != 0 ? "error" : "no error");
        }
    }

    const ByteArray& callers(const std::vector<std::string>& words, size_t first)
    {
        data = bytes(words, first);
        recorder->callersBuffer(data);
        return data;
    }

    Kernel kernel;
    std::unique_ptr<ScriptedKernel> recorder;  // outlives the devices
    std::string kind;
    std::unique_ptr<SyncSerialBase> bus;
    std::unique_ptr<Uart> uart;
    bool openedUnseen = false;
    ByteArray data;
};

static std::string play(const Case& wanted, Kernel kernel)
{
    Player player{wanted, kernel};
    for (const std::string& line : wanted.lines) {
        if (line.rfind("> ", 0) == 0) {
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
        std::string timeline;
        for (const std::string& line : wanted.lines) {
            if (line.rfind("? ", 0) != 0) {
                timeline += line + '\n';
            } else if (std::system(line.c_str() + 2) != 0) {
                GTEST_SKIP() << line;
            }
        }
        EXPECT_EQ(timeline, play(wanted, kernel));
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
        testing::RegisterTest(suite.c_str(), title.c_str(), nullptr, nullptr, __FILE__, __LINE__,
                              [=]() -> testing::Test* {
                                  return new TimelineCase{wanted, kernel};
                              });
    }
}
