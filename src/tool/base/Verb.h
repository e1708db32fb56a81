// What a verb is to the rest of the program: a grammar that fills in a typed request, and what a request can do.
#pragma once

#include "base/Output.h"
#include "base/Values.h"

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

/// What completion offers for a word.
enum class Candidates { None, I2cBuses, SpiDevices, SerialPorts, Buses, Files };

/// One word or option of a verb: the only place where its help, default and choices are written. Parser, help, manual
/// page and completion are made from it.
struct Argument {
    std::string name;   ///< a word, "ADDR"; options begin with a dash, "-b,--baud"
    std::string value;  ///< what an option takes, "HZ"; empty for a flag
    std::string help;
    std::string defaultText = {};
    std::vector<std::string> choices = {};  ///< if only these are valid
    std::string synopsis = {};              ///< how the synopsis shows a word, if not by its name: "BYTES... +N"
    Candidates candidates = Candidates::None;
    bool required = false;
    bool repeated = false;
    std::vector<std::string> excludes = {};  ///< options that contradict this one
    std::function<void(const std::vector<std::string>&)> take = {};
    std::vector<std::string> suggestions = {};  ///< for completion, if other values are valid as well
    bool many = false;                          ///< a repeated option takes all values behind it: "--read 0x00 0x01"
    bool isProgram = false;                     ///< this word and all behind it are another program's command line
    bool isBehindDashes = false;                ///< of a program: "--" is in front of it

    /// "cr, lf or none"
    [[nodiscard]] std::string choiceText() const;
    [[nodiscard]] bool isOption() const { return name[0] == '-'; }
    [[nodiscard]] bool isFlag() const { return isOption() && value.empty(); }

    /// Whether the word names this option: "-b" or "--baud".
    [[nodiscard]] bool isNamed(const std::string& word) const;

    // For the description of a verb: grammar.option(...).choose({"cr", "lf"}).exclude("--hex")
    Argument& complete(Candidates what);
    Argument& choose(std::vector<std::string> all);
    Argument& suggest(std::vector<std::string> some);
    Argument& exclude(const std::string& option);
    Argument& show(const std::string& text);
    Argument& takeMany();
    Argument& require();
};

/// A verb's words and options, in the order in which help shows them. Each is parsed into a field of the request; so is
/// its default.
class Grammar
{
public:
    /// `parse` turns a word into the field's value, or throws a Failure.
    template <typename Value, typename Parse>
    Argument& word(const std::string& name, const std::string& help, Value& field, Parse parse)
    {
        return add({name, "", help, "", {}, "", Candidates::None, true, false, {}, takeOne(field, parse)});
    }

    /// A word that may be left out.
    template <typename Value, typename Parse>
    Argument& optionalWord(const std::string& name, const std::string& help, Value& field, Parse parse,
                           const std::string& defaultText = {})
    {
        return withDefault(add({name, "", help, "", {}, "", Candidates::None, false, false, {}, takeOne(field, parse)}),
                           defaultText);
    }

    /// All words that follow, at least one: "BYTES...".
    Argument& words(const std::string& name, const std::string& help, std::vector<std::string>& field);

    /// Words that may be left out.
    Argument& optionalWords(const std::string& name, const std::string& help, std::vector<std::string>& field);

    /// Another program and its arguments, at least one word: everything that follows, whatever it looks like.
    Argument& program(const std::string& name, const std::string& help, std::vector<std::string>& field);

    /// The same behind "--", if there is one.
    Argument& optionalProgram(const std::string& name, const std::string& help, std::vector<std::string>& field);

    /// How many of the words are the verb's own: those behind them are another program's command line.
    [[nodiscard]] size_t ownWords(const std::vector<std::string>& words) const;

    template <typename Value, typename Parse>
    Argument& option(const std::string& name, const std::string& value, const std::string& help, Value& field,
                     Parse parse, const std::string& defaultText = {})
    {
        return withDefault(
            add({name, value, help, "", {}, "", Candidates::None, false, false, {}, takeOne(field, parse)}),
            defaultText);
    }

    /// An option that may be given several times.
    Argument& repeatedOption(const std::string& name, const std::string& value, const std::string& help,
                             std::vector<std::string>& field);

    Argument& flag(const std::string& name, const std::string& help, bool& field);

    /// How often the flag is given: -v, -vv.
    Argument& count(const std::string& name, const std::string& help, int& field);

    /// --json, --raw and --hexdump, as far as the verb's results have that form.
    void output(OutputOptions& options, bool json, bool bytes = false);

    [[nodiscard]] const std::vector<std::unique_ptr<Argument>>& arguments() const { return all; }

private:
    template <typename Value, typename Parse>
    static std::function<void(const std::vector<std::string>&)> takeOne(Value& field, Parse parse)
    {
        return [&field, parse](const std::vector<std::string>& words) { field = parse(words.back()); };
    }

    Argument& add(Argument argument);
    static Argument& withDefault(Argument& argument, const std::string& text);

    std::vector<std::unique_ptr<Argument>> all;
};

/// A request, with the grammar that fills it in and what can be done with it.
struct Command {
    Grammar grammar;
    OutputOptions output;
    bool opensDevice = true;               ///< takes --dry-run
    std::function<void()> check;           ///< checks words against each other; reads standard input for "-"
    std::function<std::string()> traffic;  ///< what would go over the wire, one transfer per line
    std::function<void(Output&)> run;
};

/// A verb: its names and a way to make its command. Cheap until make() is called.
struct Verb {
    const char* bus;  ///< "i2c"; empty for a verb without a bus
    const char* name;
    const char* summary;
    const char* example;  ///< after "serialcomm "
    std::unique_ptr<Command> (*make)();

    [[nodiscard]] std::string words() const { return *bus == '\0' ? name : std::string{bus} + ' ' + name; }
};

using Verbs = std::vector<Verb>;

/// Calls check(request) where there is one.
template <typename Request>
auto checkIfAny(Request& request, int /*preferred*/) -> decltype(check(request))
{
    check(request);
}
template <typename Request>
void checkIfAny(Request& /*request*/, long /*otherwise*/)
{
}

/// For requests that put nothing on a wire.
struct NoTraffic {
};

/// The verb for a type of request, for which these functions are defined:
///
///     void describe(Grammar& grammar, OutputOptions& output, Request& request);
///     void check(Request& request);                     // may be left out
///     std::string traffic(const Request& request);      // missing for a Request derived from NoTraffic
///     void run(const Request& request, Output& output);
template <typename Request>
Verb verb(const char* bus, const char* name, const char* summary, const char* example)
{
    return {bus, name, summary, example, []() {
                auto command = std::make_unique<Command>();
                const auto request = std::make_shared<Request>();
                describe(command->grammar, command->output, *request);
                command->check = [request] { checkIfAny(*request, 0); };
                command->run = [request](Output& output) { run(*request, output); };
                if constexpr (std::is_base_of_v<NoTraffic, Request>)
                    command->opensDevice = false;
                else
                    command->traffic = [request] { return traffic(*request); };
                return command;
            }};
}
