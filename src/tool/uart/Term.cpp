// The interactive session: sends what is typed, shows what is received. It continues when the port is unplugged.

#include "uart/Verbs.h"

#include "base/Bytes.h"
#include "base/Signals.h"
#include "uart/Port.h"
#include "uart/Values.h"

#include <fcntl.h>
#include <poll.h>
#include <string.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>

namespace uart
{
namespace
{

constexpr uint8_t endKey = 0x1d;  // Ctrl-]
constexpr milliseconds answerAfterInput{1000};
constexpr milliseconds betweenAttempts{500};
constexpr size_t maxKept = 65536;

struct Term : PortSettings {
    ByteArray lineEnd;
    bool hex = false;
    bool localEcho = false;
    bool times = false;
    std::string logFile;
};

void describe(Grammar& grammar, OutputOptions& /*output*/, Term& request)
{
    describePort(grammar, request);
    grammar.flag("--hex", "Hex in and out, one line per burst", request.hex);
    describeLineEnd(grammar, request.lineEnd).exclude("--hex");
    grammar.flag("-e", "Local echo: show what is typed", request.localEcho);
    grammar.flag("-t", "The time at the start of each line", request.times);
    grammar.option("--log", "FILE", "Append the session to this file", request.logFile, parseWord)
        .complete(Candidates::Files);
}

std::string traffic(const Term& request)
{
    return request.traffic();
}

// The terminal's settings, at file level because signal handlers need them.
struct termios originalSettings;
struct termios rawInputSettings;

/// While the program is in the background, the terminal has the shell's settings.
bool terminalIsOurs()
{
    const pid_t group = tcgetpgrp(STDIN_FILENO);
    return group < 0 || group == getpgrp();
}

void leaveRawInput()
{
    if (terminalIsOurs())
        tcsetattr(STDIN_FILENO, TCSANOW, &originalSettings);
}

void enterRawInput()
{
    if (terminalIsOurs())
        tcsetattr(STDIN_FILENO, TCSANOW, &rawInputSettings);
}

/// Standard input; on a terminal, key by key.
class Keyboard
{
public:
    Keyboard() : isTerminal(tcgetattr(STDIN_FILENO, &originalSettings) == 0)
    {
        if (!isTerminal)
            return;
        rawInputSettings = originalSettings;
        rawInputSettings.c_iflag &= ~static_cast<tcflag_t>(BRKINT | ICRNL | IGNCR | INLCR | ISTRIP | IXON);
        rawInputSettings.c_lflag &= ~static_cast<tcflag_t>(ECHO | ICANON | IEXTEN | ISIG);
        rawInputSettings.c_cc[VMIN] = 1;
        rawInputSettings.c_cc[VTIME] = 0;
        setStopHooks(leaveRawInput, enterRawInput);
        tcsetattr(STDIN_FILENO, TCSANOW, &rawInputSettings);
    }
    ~Keyboard()
    {
        if (!isTerminal)
            return;
        setStopHooks(nullptr, nullptr);
        leaveRawInput();
    }
    Keyboard(const Keyboard&) = delete;
    Keyboard& operator=(const Keyboard&) = delete;

    /// The key that ends a line; lines from a pipe end with LF.
    [[nodiscard]] uint8_t enter() const { return isTerminal ? '\r' : '\n'; }

    [[nodiscard]] bool isTyped() const { return isTerminal; }

    /// Empty at the end of the input.
    static ByteArray read()
    {
        ByteArray keys(256);
        const ssize_t count = ::read(STDIN_FILENO, keys.data(), keys.size());
        throwIfSignalled();
        keys.resize(static_cast<size_t>(std::max<ssize_t>(count, 0)));
        return keys;
    }

private:
    bool isTerminal;
};

/// Writes the same to standard output and to the log file.
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

    void show(const ByteArray& bytes)
    {
        std::string text;
        for (const uint8_t byte : bytes) {
            const bool atLineStart = last == '\r' || last == '\n';
            if (times && atLineStart && byte != '\r' && byte != '\n')
                text += timeOfDay();
            text += static_cast<char>(byte);
            last = byte;
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

    /// Ends the last line on a terminal, so that the shell's prompt does not overwrite it.
    void end()
    {
        if (last != '\n' && isatty(STDOUT_FILENO) == 1)
            print("\n");
    }

private:
    std::string logName;
    bool times;
    int log = -1;
    uint8_t last = '\n';
};

class Session
{
public:
    Session(const Term& term, Output& output)
        : request(term), screen(term.logFile, term.times), port(openPort(term, traffic(term), output))
    {
    }

    void run()
    {
        try {
            while (!ended)
                port ? transfer() : waitForPort();
        } catch (...) {
            screen.end();
            throw;
        }
        screen.end();
    }

private:
    void transfer()
    {
        try {
            const Limits limits{inputEnded ? std::optional{answerAfterInput} : std::nullopt, {}, keyboard.isTyped()};
            // A pipe is read when all its earlier bytes are sent; keys are read at any time, because of the end key.
            switch (port->wait(limits, inputEnded ? -1 : STDIN_FILENO, keyboard.isTyped() ? SIZE_MAX : 0)) {
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
        } catch (const PortGone& gone) {
            if (inputEnded)
                throw;
            kept = port->takeQueue();
            if (!port->slave().empty()) {  // another program may open it
                printError(gone.message);
                send({});
                return;
            }
            port.reset();
            printError(request.path + " is gone; waiting for it to come back, Ctrl-] ends");
        }
    }

    void receive()
    {
        ByteArray bytes = port->take(4096);
        if (request.hex)
            bytes = port->burstAfter(bytes, SIZE_MAX, {});
        if (request.hex && !bytes.empty())
            screen.showLine(hexLine(bytes));
        else
            screen.show(bytes);
    }

    void waitForPort()
    {
        const bool listens = keyboard.isTyped() || kept.size() < maxKept;
        struct pollfd input = {listens ? STDIN_FILENO : -1, POLLIN, 0};
        if (poll(&input, 1, static_cast<int>(betweenAttempts.count())) > 0)
            take(Keyboard::read());
        throwIfSignalled();
        if (inputEnded)
            throw PortGone{{TransferFailed, request.path + " is gone: unplugged, or closed at the other side; " +
                                                byteCount(kept.size()) + " of the input were not sent"}};
        try {
            port = openPort(request);
            printError(request.path + " is back");
            send({});
        } catch (const Failure& failure) {
            reportOpenError(failure.message);
        }
    }

    /// "PATH is back but in use by ...", once. A node that has just appeared may get its permissions a moment later.
    void reportOpenError(const std::string& message)
    {
        const bool seenBefore = message == openError;
        openError = message;
        if (!seenBefore || message == reportedOpenError || access(request.path.c_str(), F_OK) != 0)
            return;
        reportedOpenError = message;
        const std::string cause = message.substr(request.path.size());
        printError(request.path + " is back but" + (startsWith(cause, " is ") ? cause.substr(3) : cause));
    }

    void take(const ByteArray& keys)
    {
        inputEnded = keys.empty();
        ByteArray out;
        for (const uint8_t key : keys) {
            ended = ended || (key == endKey && keyboard.isTyped());
            if (!ended && request.hex)
                addHexDigit(key, out);
            else if (!ended)
                addText(key, out);
        }
        if (request.localEcho && request.hex && !out.empty())
            screen.showLine(hexLine(out));
        send(out);
    }

    /// Sends the bytes after those that were kept, or keeps them while there is no port.
    void send(const ByteArray& bytes)
    {
        kept.insert(kept.end(), bytes.begin(), bytes.end());
        if (port) {
            port->queue(kept);
            kept.clear();
        }
    }

    void addText(uint8_t key, ByteArray& out)
    {
        const bool isEnter = key == keyboard.enter();
        if (isEnter)
            out.insert(out.end(), request.lineEnd.begin(), request.lineEnd.end());
        else
            out.push_back(key);
        if (request.localEcho)
            screen.show({isEnter ? uint8_t{'\n'} : key});
    }

    /// A byte is sent when its second digit is typed; any other character separates bytes.
    void addHexDigit(uint8_t key, ByteArray& out)
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

    Term request;
    Screen screen;
    std::unique_ptr<Port> port;
    Keyboard keyboard;
    ByteArray kept;  ///< input that waits for the port
    std::string digit;
    std::string openError;
    std::string reportedOpenError;
    bool inputEnded = false;
    bool ended = false;
};

void run(const Term& request, Output& output)
{
    Session session{request, output};
    printError(request.path + " at " + request.text() + "; Ctrl-] ends");
    session.run();
}

}  // namespace

void addTerm(Verbs& verbs)
{
    verbs.push_back(verb<Term>("uart", "term", "interactive terminal; Ctrl-] ends it", "uart term ttyUSB0 -b 9600"));
}

}  // namespace uart
