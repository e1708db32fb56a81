#include "Grammar.h"

#include "Help.h"
#include "List.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <memory>

namespace
{

constexpr char mark = '\x01';

template <typename Value>
CLI::Option* addWord(CLI::App& verb, const std::string& name, Value& value, const std::string& help)
{
    return verb
        .add_option(
            name,
            [&value](const CLI::results_t& words) {
                value = unmarked(words.back());
                return true;
            },
            help)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
}

void addWords(CLI::App& verb, const std::string& name, std::vector<std::string>& values, const std::string& help,
              const std::string& call = {})
{
    verb.add_option(
            name,
            [&values](const CLI::results_t& words) {
                values.clear();
                std::transform(words.begin(), words.end(), std::back_inserter(values), unmarked);
                return true;
            },
            help)
        ->expected(1, CLI::detail::expected_max_vector_size)
        ->allow_extra_args()
        ->type_name(call)
        ->required();
}

/// A flag says nothing but that it is there: not "--dry-run=false".
void addFlag(CLI::App& verb, const std::string& name, bool& value, const std::string& help)
{
    verb.add_flag(name, value, help)->disable_flag_override();
}

/// For words that may be left out, where an empty one would be taken for none.
std::string refuseEmpty(const std::string& word)
{
    return word.empty() ? "must not be empty" : "";
}

class Grammar
{
public:
    Grammar(CLI::App& root, Arguments& values) : app(root), arguments(values) {}

    void add()
    {
        app.name("serialcomm");
        app.description("Talks to chips on I2C and SPI, and through serial ports");
        app.formatter(std::make_shared<HelpFormat>());
        app.require_subcommand(0, 1);
        app.footer("Example: serialcomm list");
        app.set_help_flag("-h,--help", "This text, or that of a verb");
        app.set_version_flag("--version", "serialcomm " SERIALCOMM_VERSION, "The version");
        addList();
        addI2c();
        addSpi();
        addUart();
    }

private:
    CLI::App& addBus(const std::string& name, const std::string& what, const std::string& example)
    {
        CLI::App* bus = app.add_subcommand(name, what);
        bus->require_subcommand(0, 1);
        bus->footer("Example: serialcomm " + example);
        bus->set_version_flag("--version", "serialcomm " SERIALCOMM_VERSION, "The version");
        return *bus;
    }

    template <typename Action>
    CLI::App& addVerb(CLI::App& parent, const std::string& name, const std::string& what, const std::string& example,
                      Action action)
    {
        CLI::App* verb = parent.add_subcommand(name, what);
        verb->footer("Example: serialcomm " + example);
        verb->set_version_flag("--version", "serialcomm " SERIALCOMM_VERSION, "The version");
        verb->add_flag_function(
            "-v", [&values = arguments](std::int64_t count) { values.common.verbosity = static_cast<int>(count); },
            "The library's log and the bus traffic on standard error; -vv traces calls");
        addWord(*verb, "--log-config", arguments.logConfig, "log4cplus properties instead of -v's log")
            ->type_name("FILE");
        verb->callback([&values = arguments, action] { values.run = action; });
        return *verb;
    }

    void addDryRun(CLI::App& verb)
    {
        addFlag(verb, "-n,--dry-run", arguments.common.dryRun, "Print the traffic, open nothing");
    }

    void addJson(CLI::App& verb) { addFlag(verb, "--json", arguments.common.json, "One JSON object a line"); }

    void addList()
    {
        CLI::App& verb = addVerb(app, "list", "what is here, what it is, may I open it", "list i2c",
                                 [&values = arguments] { list(values.common, values.bus); });
        addWord(verb, "BUS", arguments.bus, "i2c, spi or uart; all three when left out")
            ->type_name("[i2c|spi|uart]")
            ->check(refuseEmpty);
        addJson(verb);
    }

    template <typename Verb>
    CLI::App& addI2cVerb(CLI::App& bus, const std::string& name, const std::string& what, const std::string& example,
                         Verb function)
    {
        CLI::App& verb = addVerb(bus, name, what, "i2c " + example,
                                 [&values = arguments, function] { function(values.common, values.i2c); });
        addWord(verb, "BUS", arguments.i2c.bus, "4, i2c-4 or a path")->required();
        if (name != "scan")
            addWord(verb, "ADDR", arguments.i2c.address, "7-bit address of the chip, such as 0x48")->required();
        addDryRun(verb);
        return verb;
    }

    void addI2cRegister(CLI::App& verb)
    {
        addWord(verb, "REG", arguments.i2c.reg, "Register: 0x10 is one byte, 0x0010 two, high byte first")->required();
    }

    void addI2cBytes(CLI::App& verb)
    {
        addWords(verb, "BYTES", arguments.i2c.bytes, "Hex pairs: de ad, dead, de:ad; - for raw standard input");
    }

    void addI2cOutput(CLI::App& verb)
    {
        addJson(verb);
        addFlag(verb, "--raw", arguments.i2c.raw, "Bytes as they are, not in hex");
    }

    void addI2c()
    {
        CLI::App& i2c = addBus("i2c", "Chips on an I2C bus", "i2c scan 4");

        addJson(addI2cVerb(i2c, "scan", "which addresses answer", "scan 4", i2cScan));

        CLI::App& get =
            addI2cVerb(i2c, "get", "read N (1) bytes from a register, repeated start", "get 4 0x48 0x00 2", i2cGet);
        addI2cRegister(get);
        addWord(get, "N", arguments.i2c.count, "Bytes to read, decimal; 1 when left out");
        addFlag(get, "--stop", arguments.i2c.stop, "Register and data as two transactions, with a stop between them");
        addI2cOutput(get);

        CLI::App& set = addI2cVerb(i2c, "set", "write to a register", "set 4 0x48 0x02 4b 00", i2cSet);
        addI2cRegister(set);
        addI2cBytes(set);

        addI2cOutput(addI2cVerb(i2c, "dump", "registers 00 to ff", "dump 4 0x50", i2cDump));

        CLI::App& read = addI2cVerb(i2c, "read", "read N bytes", "read 4 0x48 2", i2cRead);
        addWord(read, "N", arguments.i2c.count, "Bytes to read, decimal")->required();
        addI2cOutput(read);

        addI2cBytes(addI2cVerb(i2c, "write", "write bytes", "write 4 0x50 00 de ad", i2cWrite));

        CLI::App& transfer =
            addI2cVerb(i2c, "transfer", "write, repeated start, read N", "transfer 4 0x50 00 +16", i2cTransfer);
        addWords(transfer, "BYTES", arguments.i2c.bytes,
                 "Hex pairs, then +N, the bytes to read, decimal; - for raw standard input", "BYTES... +N");
        addI2cOutput(transfer);
    }

    template <typename Verb>
    CLI::App& addSpiVerb(CLI::App& bus, const std::string& name, const std::string& what, const std::string& example,
                         Verb function)
    {
        CLI::App& verb = addVerb(bus, name, what, "spi " + example,
                                 [&values = arguments, function] { function(values.common, values.spi); });
        addWord(verb, "DEV", arguments.spi.device, "2.0, spidev2.0 or a path")->required();
        return verb;
    }

    void addSpiTransfer(CLI::App& verb, bool receives)
    {
        addWord(verb, "--mode", arguments.spi.mode, "0 to 3, or the mode byte in hex (0x0b); 0 when left out")
            ->type_name("M");
        addWord(verb, "--speed", arguments.spi.speed, "Clock, with k and M understood; 500k when left out")
            ->type_name("HZ");
        addDryRun(verb);
        if (receives) {
            addJson(verb);
            addFlag(verb, "--raw", arguments.spi.raw, "Bytes as they are, not in hex");
        }
    }

    void addSpi()
    {
        CLI::App& spi = addBus("spi", "Chips on an SPI bus, through spidev", "spi info 2.0");

        addJson(
            addSpiVerb(spi, "info", "mode and speed as the driver reports them; changes nothing", "info 2.0", spiInfo));

        CLI::App& read = addSpiVerb(spi, "read", "read N bytes while zeros go out", "read 2.0 4", spiRead);
        addWord(read, "N", arguments.spi.count, "Bytes to read, decimal")->required();
        addSpiTransfer(read, true);

        CLI::App& write = addSpiVerb(spi, "write", "write bytes", "write 2.0 06", spiWrite);
        addWords(write, "BYTES", arguments.spi.bytes, "Hex pairs: de ad, dead, de:ad; - for raw standard input");
        addSpiTransfer(write, false);

        CLI::App& transfer = addSpiVerb(spi, "transfer", "full duplex; with +N only the N bytes clocked after BYTES",
                                        "transfer 2.0 9f +3 --speed 10M", spiTransfer);
        addWords(transfer, "BYTES", arguments.spi.bytes,
                 "Hex pairs, then perhaps +N, decimal; - for raw standard input", "BYTES... [+N]");
        addSpiTransfer(transfer, true);
    }

    template <typename Verb>
    CLI::App& addUartVerb(CLI::App& bus, const std::string& name, const std::string& what, const std::string& example,
                          Verb function)
    {
        CLI::App& verb = addVerb(bus, name, what, "uart " + example,
                                 [&values = arguments, function] { function(values.common, values.uart); });
        addWord(verb, "PORT", arguments.uart.port, "ttyUSB0, a path, or pty for a new pseudo-terminal")->required();
        addWord(verb, "-b,--baud", arguments.uart.baudRate, "Baud rate; 115200 when left out")->type_name("N");
        addWord(verb, "--parity", arguments.uart.parity, "none, even or odd; none when left out")->type_name("P");
        addWord(verb, "--stop-bits", arguments.uart.stopBits, "1 or 2; 1 when left out")->type_name("N");
        addFlag(verb, "--hex", arguments.uart.hex, "Hex in and out, a burst a line, instead of text");
        addDryRun(verb);
        return verb;
    }

    void addUartText(CLI::App& verb)
    {
        addWords(verb, "TEXT", arguments.uart.text,
                 R"(Goes out with the line end after it; escapes \r \n \t \\ \xNN; - for raw standard input)");
    }

    void addUartLineEnd(CLI::App& verb)
    {
        addWord(verb, "--eol", arguments.uart.lineEnd, "Line end sent: cr, lf, crlf or none; cr when left out")
            ->type_name("END");
    }

    void addUartTimeout(CLI::App& verb, const std::string& usual)
    {
        addWord(verb, "--timeout", arguments.uart.timeout,
                "Silence after which it ends, in steps of 0.5 s; " + usual + " when left out")
            ->type_name("S")
            ->check(refuseEmpty);
    }

    void addUart()
    {
        CLI::App& uart = addBus("uart", "Serial ports and pseudo-terminals", "uart term ttyUSB0");

        CLI::App& read =
            addUartVerb(uart, "read", "print what comes, N bytes at most", "read ttyUSB0 --timeout 2", uartRead);
        addWord(read, "N", arguments.uart.count, "Bytes to read, decimal; no end when left out")->check(refuseEmpty);
        addUartTimeout(read, "none");
        addJson(read);

        CLI::App& write = addUartVerb(uart, "write", "send text", "write ttyUSB0 'AT+GMR' --eol crlf", uartWrite);
        addUartText(write);
        addUartLineEnd(write);

        CLI::App& ask =
            addUartVerb(uart, "ask", "send, print the answer; 1 if none", "ask ttyUSB0 '*IDN?' --eol lf", uartAsk);
        addUartText(ask);
        addUartLineEnd(ask);
        addUartTimeout(ask, "1");
        addWord(ask, "--until", arguments.uart.until, "Ends as soon as this came; 1 if it never did")
            ->type_name("TEXT")
            ->check(refuseEmpty);
        addJson(ask);

        CLI::App& term = addUartVerb(uart, "term", "interactive; Ctrl-] ends", "term ttyUSB0 -b 9600", uartTerm);
        addUartLineEnd(term);
        addFlag(term, "-e", arguments.uart.localEcho, "Local echo: show what is typed");
        addFlag(term, "-t", arguments.uart.times, "The time at the start of each line");
        addWord(term, "--log", arguments.uart.logFile, "Append the session to a file")
            ->type_name("FILE")
            ->check(refuseEmpty);

        addJson(addUartVerb(uart, "echo", "send back what comes: the other end of a bench", "echo pty", uartEcho));
    }

    CLI::App& app;
    Arguments& arguments;
};

}  // namespace

std::vector<std::string> marked(const std::vector<std::string>& words)
{
    std::vector<std::string> all;
    bool literal = false;
    for (const std::string& word : words) {
        if (!literal && word == "--")
            literal = true;
        else if (literal || (!word.empty() && (word.front() == '[' || word.front() == mark)))
            all.push_back(mark + word);
        else
            all.push_back(word);
    }
    return all;
}

std::string unmarked(const std::string& word)
{
    return !word.empty() && word.front() == mark ? word.substr(1) : word;
}

void addVerbs(CLI::App& app, Arguments& arguments)
{
    Grammar{app, arguments}.add();
}
