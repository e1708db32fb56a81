#include "cli/Parser.h"

#include "base/Failure.h"
#include "cli/Suggest.h"

#include <CLI/CLI.hpp>

#include <algorithm>

namespace
{

constexpr char protection = '\x01';

/// CLI11 splits a repeated word "[1,2]" in two and looks for options even after "--". A prefix protects such words; the
/// first "--" is dropped.
std::vector<std::string> protect(const std::vector<std::string>& words)
{
    std::vector<std::string> all;
    bool literal = false;
    for (const std::string& word : words) {
        if (!literal && word == "--")
            literal = true;
        else if (literal || (!word.empty() && (word.front() == '[' || word.front() == protection)))
            all.push_back(protection + word);
        else
            all.push_back(word);
    }
    return all;
}

std::string unprotect(const std::string& word)
{
    return !word.empty() && word.front() == protection ? word.substr(1) : word;
}

/// CLI11 reads "-v=5" letter by letter and reports "-=5". Returns the word as it was written.
std::string asWritten(const std::string& rest, const std::vector<std::string>& words)
{
    if (rest.compare(0, 2, "-=") != 0)
        return rest;
    const std::string end = rest.substr(1);
    const auto endsWithRest = [&](const std::string& word) {
        return word.size() > end.size() && word.compare(word.size() - end.size(), end.size(), end) == 0;
    };
    const auto word = std::find_if(words.begin(), words.end(), endsWithRest);
    return word == words.end() ? rest : *word;
}

CLI::Option* addTo(CLI::App& app, const Argument& argument)
{
    if (argument.isFlag())
        return app.add_flag(argument.name)->disable_flag_override();
    CLI::Option* option = app.add_option(argument.name);
    option->multi_option_policy(argument.repeated ? CLI::MultiOptionPolicy::TakeAll : CLI::MultiOptionPolicy::TakeLast);
    option->required(argument.required);
    const bool isParsed = !argument.isBehindDashes;  // CLI11 takes one argument of any length
    if (isParsed && argument.repeated && (!argument.isOption() || argument.many))
        option->expected(1, CLI::detail::expected_max_vector_size)->allow_extra_args();
    return option;
}

/// "--baud" of "-b,--baud".
std::string shownName(const Argument& argument)
{
    return argument.name.substr(argument.name.find(',') + 1);
}

std::vector<std::string> optionNames(const Grammar& grammar)
{
    std::vector<std::string> names;
    for (const auto& argument : grammar.arguments()) {
        if (argument->isOption())
            names.push_back(shownName(*argument));
    }
    return names;
}

class Parser
{
public:
    Parser(const Grammar& verbs, const std::string& verb, const std::vector<std::string>& given)
        : grammar(verbs), name(verb), words(given)
    {
        const auto ownEnd = words.begin() + static_cast<std::ptrdiff_t>(grammar.ownWords(words));
        program.assign(ownEnd, words.end());
        words.erase(ownEnd, words.end());
        app.set_help_flag();
        for (const auto& argument : grammar.arguments()) {
            options.push_back(addTo(app, *argument));
            if (argument->isProgram && !program.empty())
                options.back()->required(false);
        }
    }

    void parse()
    {
        try {
            std::vector<std::string> reversed = protect(words);
            std::reverse(reversed.begin(), reversed.end());
            app.parse(reversed);
        } catch (const CLI::ExtrasError&) {
            const std::vector<std::string> extra = app.remaining(true);
            const std::string word = extra.empty() ? "" : asWritten(unprotect(extra.front()), words);
            if (word.empty() || word[0] != '-')
                fail((word.empty() ? "\"\"" : word) + ": one argument too many");
            const std::string known = suggestion(word.substr(0, word.find('=')), optionNames(grammar));
            fail(word + ": unknown option" + (known.empty() ? "" : "; did you mean " + known + "?"));
        } catch (const CLI::ArgumentMismatch& error) {
            const std::string text = error.what();
            const std::string option = text.substr(0, text.find_first_of(": "));
            fail(text.find("flag override") != std::string::npos ? "--" + option + " takes no value"
                                                                 : option + " needs a value");
        } catch (const CLI::ParseError& error) {
            fail(error.what());
        }
    }

    /// Passes the parsed values to the request, in the order of the grammar.
    void take() const
    {
        for (size_t i = 0; i < options.size(); ++i) {
            const Argument& argument = *grammar.arguments()[i];
            if (argument.isProgram)
                argument.take(program);
            if (options[i]->count() == 0)
                continue;
            for (const std::string& excluded : argument.excludes) {
                if (app[excluded]->count() > 0)
                    fail(shownName(argument) + " and " + excluded + " cannot be combined");
            }
            std::vector<std::string> values = options[i]->results();
            std::transform(values.begin(), values.end(), values.begin(), unprotect);
            for (const std::string& value : values)
                checkValue(argument, value);
            argument.take(values);
        }
    }

private:
    void checkValue(const Argument& argument, const std::string& value) const
    {
        if (value.empty() && !argument.required)
            fail(shownName(argument) + ": must not be empty");
        const std::vector<std::string>& choices = argument.choices;
        if (!choices.empty() && std::find(choices.begin(), choices.end(), value) == choices.end())
            fail(shownName(argument) + " \"" + value + "\": must be " + argument.choiceText());
    }

    [[noreturn]] void fail(const std::string& message) const
    {
        throw Failure{WrongCommandLine, name + ": " + message, "serialcomm " + name + " --help"};
    }

    const Grammar& grammar;
    const std::string& name;
    std::vector<std::string> words;
    std::vector<std::string> program;  ///< another one's command line, which is left alone
    CLI::App app;
    std::vector<CLI::Option*> options;
};

}  // namespace

void addCommonOptions(Command& command, CommonOptions& options)
{
    Grammar& grammar = command.grammar;
    if (command.opensDevice)
        grammar.flag("-n,--dry-run", "Print the traffic, open nothing", command.output.dryRun);
    grammar.count("-v", "Traffic and the library's log on standard error; -vv traces calls", command.output.verbosity);
    grammar
        .option("--log-config", "FILE", "log4cplus properties file that replaces the log of -v", options.logConfig,
                parseWord)
        .complete(Candidates::Files);
    grammar.flag("-h,--help", "This text", options.help);
    grammar.flag("--version", "The version", options.version);
}

void parse(const Grammar& grammar, const std::string& name, const std::vector<std::string>& words)
{
    Parser parser{grammar, name, words};
    parser.parse();
    parser.take();
}
