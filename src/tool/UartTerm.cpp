// The interactive session: what is typed goes out, what comes in is shown. It outlives the port.

#include "UartCommands.h"

#include "Failure.h"
#include "Format.h"
#include "Output.h"
#include "Signals.h"
#include "UartPort.h"
#include "Values.h"

#include <fcntl.h>
#include <poll.h>
#include <string.h>
#include <sys/stat.h>
#include <termios.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <memory>

namespace
{

constexpr uint8_t endKey = 0x1d;  // Ctrl-]
constexpr milliseconds answerAfterInput{1000};

/// Standard input key by key, when it is a terminal; as it was again afterwards.
class Keyboard
{
public:
    Keyboard() : isTerminal(tcgetattr(STDIN_FILENO, &saved) == 0)
    {
        struct termios raw = saved;
        raw.c_iflag &= ~static_cast<tcflag_t>(BRKINT | ICRNL | IGNCR | INLCR | ISTRIP | IXON);
        raw.c_lflag &= ~static_cast<tcflag_t>(ECHO | ICANON | IEXTEN | ISIG);
        raw.c_cc[VMIN] = 1;
        raw.c_cc[VTIME] = 0;
        if (isTerminal)
            tcsetattr(STDIN_FILENO, TCSANOW, &raw);
    }
    ~Keyboard()
    {
        if (isTerminal)
            tcsetattr(STDIN_FILENO, TCSANOW, &saved);
    }
    Keyboard(const Keyboard&) = delete;
    Keyboard& operator=(const Keyboard&) = delete;

    /// What Enter is: lines that come through a pipe end with LF.
    uint8_t enter() const { return isTerminal ? '\r' : '\n'; }

    bool isTyped() const { return isTerminal; }

    /// Empty at the end of the input.
    static Bytes read()
    {
        Bytes keys(256);
        const ssize_t count = ::read(STDIN_FILENO, keys.data(), keys.size());
        throwIfSignalled();
        keys.resize(static_cast<size_t>(std::max<ssize_t>(count, 0)));
        return keys;
    }

private:
    struct termios saved {
    };
    bool isTerminal;
};

/// Standard output and the log file, which get the same.
class Screen
{
public:
    Screen(const std::string& logFile, bool withTimes) : logName(logFile), times(withTimes)
    {
        if (logFile.empty())
            return;
        log = open(logFile.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
        if (log < 0)
            throw Failure{CannotOpen, logFile + ": " + strerror(errno)};
    }
    ~Screen()
    {
        if (log >= 0)
            close(log);
    }
    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;

    void show(const Bytes& bytes)
    {
        std::string text;
        for (const uint8_t byte : bytes) {
            const bool endsLine = byte == '\r' || byte == '\n';
            if (times && atLineStart && !endsLine)
                text += timeOfDay();
            atLineStart = endsLine;
            text += static_cast<char>(byte);
        }
        writeAll(STDOUT_FILENO, text.data(), text.size(), "standard output");
        if (log >= 0)
            writeAll(log, text.data(), text.size(), logName);
    }

    void showLine(const std::string& line)
    {
        show({line.begin(), line.end()});
        show({'\n'});
    }

private:
    /// "[12:34:56.789] "
    static std::string timeOfDay()
    {
        struct timespec now {
        };
        clock_gettime(CLOCK_REALTIME, &now);
        struct tm local {
        };
        localtime_r(&now.tv_sec, &local);
        std::array<char, 32> text{};
        std::snprintf(text.data(), text.size(), "[%02d:%02d:%02d.%03ld] ", local.tm_hour, local.tm_min, local.tm_sec,
                      now.tv_nsec / 1000000);
        return text.data();
    }

    std::string logName;
    bool times;
    int log = -1;
    bool atLineStart = true;
};

class Session
{
public:
    explicit Session(const Common& common, const UartArguments& given)
        : arguments(given), line(lineOf(given)), lineEnd(parseLineEnd(given.lineEnd)),
          screen(given.logFile, given.times), port(std::make_unique<Port>(line))
    {
        announceSlave(common, *port);
    }

    void run()
    {
        while (!ended) {
            try {
                if (port)
                    carry();
                else
                    waitForPort();
            } catch (const PortGone&) {
                if (inputEnded)
                    throw;
                port.reset();
                say(line.path + " is gone; waiting for it to come back, Ctrl-] ends");
            }
        }
    }

private:
    void carry()
    {
        const auto wait = inputEnded ? std::optional{answerAfterInput} : std::nullopt;
        switch (port->wait(wait, inputEnded ? -1 : STDIN_FILENO)) {
        case Port::Ready::Other:
            take(Keyboard::read());
            break;
        case Port::Ready::Bytes:
            receive();
            break;
        case Port::Ready::Silence:
            ended = true;
            break;
        }
    }

    void receive()
    {
        if (!arguments.hex) {
            screen.show(port->receive(SIZE_MAX, milliseconds{0}));
            return;
        }
        const ByteArray burst = port->receiveBurst(SIZE_MAX, milliseconds{0});
        if (!burst.empty())
            screen.showLine(hexLine(burst));
    }

    /// Keys are looked at meanwhile, for the one that ends; what comes through a pipe waits there.
    void waitForPort()
    {
        struct pollfd input = {keyboard.isTyped() && !inputEnded ? STDIN_FILENO : -1, POLLIN, 0};
        if (poll(&input, 1, 500) > 0)
            take(Keyboard::read());
        throwIfSignalled();
        try {
            port = std::make_unique<Port>(line);
            say(line.path + " is back");
        } catch (const Failure&) {
            return;  // not yet
        }
    }

    void take(const Bytes& keys)
    {
        inputEnded = keys.empty();
        Bytes out;
        for (const uint8_t key : keys) {
            ended = ended || key == endKey;
            if (!ended && arguments.hex)
                addHexDigit(key, out);
            else if (!ended)
                addText(key, out);
        }
        if (out.empty() || !port)
            return;
        if (arguments.localEcho && arguments.hex)
            screen.showLine(hexLine(out));
        port->send(out);
    }

    void addText(uint8_t key, Bytes& out)
    {
        const bool isEnter = key == keyboard.enter();
        if (isEnter)
            out.insert(out.end(), lineEnd.begin(), lineEnd.end());
        else
            out.push_back(key);
        if (arguments.localEcho)
            screen.show({isEnter ? uint8_t{'\n'} : key});
    }

    /// A byte goes out with its second digit; all but digits separates.
    void addHexDigit(uint8_t key, Bytes& out)
    {
        if (isxdigit(key) == 0) {
            digit.clear();
            return;
        }
        digit += static_cast<char>(key);
        if (digit.size() < 2)
            return;
        out.push_back(parseBytes({digit}).front());
        digit.clear();
    }

    UartArguments arguments;
    Line line;
    Bytes lineEnd;
    Screen screen;
    std::unique_ptr<Port> port;
    Keyboard keyboard;
    std::string digit;
    bool inputEnded = false;
    bool ended = false;
};

}  // namespace

void uartTerm(const Common& common, const UartArguments& arguments)
{
    const Line line = lineOf(arguments);
    parseLineEnd(arguments.lineEnd);
    if (showTraffic(common, line.settings()))
        return;

    Session session{common, arguments};
    say(line.path + " at " + line.settings() + "; Ctrl-] ends");
    session.run();
}
