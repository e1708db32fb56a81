#include "CommandLine.h"

#include "Failure.h"
#include "Grammar.h"
#include "Help.h"
#include "Output.h"
#include "Suggest.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <memory>

namespace
{

/// Lives as long as the command does: what it runs refers to it.
struct Request {
    CLI::App app;
    Arguments arguments;
};

std::vector<std::string> optionNames(const CLI::App& verb)
{
    std::vector<std::string> names;
    for (const CLI::Option* option : verb.get_options({})) {
        for (const std::string& name : option->get_lnames())
            names.push_back("--" + name);
    }
    return names;
}

std::string didYouMean(const std::string& word, const std::vector<std::string>& known)
{
    const std::string name = suggestion(word, known);
    return name.empty() ? "" : "; did you mean " + name + "?";
}

/// The verb that the first words name. Where they name none, the Failure says what was probably meant.
const CLI::App& verbOf(const CLI::App& app, const std::vector<std::string>& words, std::string& path)
{
    const CLI::App* verb = &app;
    for (const std::string& word : words) {
        std::vector<std::string> names;
        for (const CLI::App* below : verb->get_subcommands({}))
            names.push_back(below->get_name());
        if (names.empty() || (!word.empty() && word[0] == '-'))
            break;
        path += (path.empty() ? "" : " ") + (word.empty() ? "\"\"" : word);
        if (std::find(names.begin(), names.end(), word) == names.end())
            throw Failure{WrongCommandLine, path + ": unknown" + didYouMean(word, names)};
        verb = verb->get_subcommand(word);
    }
    return *verb;
}

/// CLI11 takes the letters of "-v=5" one by one, and is left with "-=5": the word as it was written.
std::string written(const std::string& rest, const std::vector<std::string>& words)
{
    const auto endsWithRest = [&](const std::string& word) {
        return word.size() > rest.size() && word.substr(word.size() - rest.size() + 1) == rest.substr(1);
    };
    const auto word = std::find_if(words.begin(), words.end(), endsWithRest);
    return rest.compare(0, 2, "-=") == 0 && word != words.end() ? *word : rest;
}

}  // namespace

Command parseCommandLine(const std::vector<std::string>& words)
{
    const auto request = std::make_shared<Request>();
    CLI::App& app = request->app;
    Arguments& arguments = request->arguments;
    addVerbs(app, arguments);

    std::string path;
    const CLI::App& verb = verbOf(app, words, path);
    const std::string who = path + (path.empty() ? "" : ": ");
    const std::string help = "serialcomm " + path + (path.empty() ? "" : " ") + "--help";
    try {
        std::vector<std::string> reversed = marked(words);
        std::reverse(reversed.begin(), reversed.end());
        app.parse(reversed);
    } catch (const CLI::CallForHelp&) {
        return {0, {}, [request] { print(request->app.help()); }};
    } catch (const CLI::CallForVersion& version) {
        return {0, {}, [text = std::string{version.what()}] { printLine(text); }};
    } catch (const CLI::ExtrasError&) {
        const std::vector<std::string> extra = app.remaining(true);
        const std::string word = extra.empty() ? "" : written(unmarked(extra.front()), words);
        if (verb.get_parent() == nullptr)
            throw Failure{WrongCommandLine, word + ": options stand after the verb", help};
        const bool option = !word.empty() && word[0] == '-';
        throw Failure{WrongCommandLine,
                      who + word +
                          (option ? ": unknown" + didYouMean(word.substr(0, word.find('=')), optionNames(verb))
                                  : ": one argument too many"),
                      help};
    } catch (const CLI::ArgumentMismatch& error) {
        const std::string text = error.what();
        const std::string name = text.substr(0, text.find_first_of(": "));
        if (text.find("flag override") != std::string::npos)
            throw Failure{WrongCommandLine, who + "--" + name + " takes no value", help};
        throw Failure{WrongCommandLine, who + name + " needs a value", help};
    } catch (const CLI::ParseError& error) {
        throw Failure{WrongCommandLine, who + error.what(), help};
    }
    if (!arguments.run)
        return {0, {}, [request, &verb] { print(verbList(verb)); }};
    return {arguments.common.verbosity, arguments.logConfig, [request] { request->arguments.run(); }};
}
