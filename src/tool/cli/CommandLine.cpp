#include "cli/CommandLine.h"

#include "base/Failure.h"
#include "base/LibraryLog.h"
#include "base/Output.h"
#include "base/Signals.h"
#include "cli/Completion.h"
#include "cli/Help.h"
#include "cli/Parser.h"
#include "cli/Suggest.h"
#include "cli/Verbs.h"

#include <algorithm>
#include <exception>

namespace
{

/// A command line split into the names of the verb and all other words, in their order.
struct Call {
    std::vector<std::string> names;
    std::vector<std::string> rest;
};

/// Options may come before the bus, and between bus and verb; they belong to the verb.
Call splitCall(const std::vector<std::string>& words)
{
    Call call;
    size_t i = 0;
    const auto complete = [&] { return !call.names.empty() && (call.names.size() == 2 || !isBus(call.names[0])); };
    for (; i < words.size() && !complete() && words[i] != "--"; ++i) {
        const std::string& word = words[i];
        if (word.empty() || word[0] != '-') {
            call.names.push_back(word);
            continue;
        }
        call.rest.push_back(word);
        if (word == "--log-config" && i + 1 < words.size())
            call.rest.push_back(words[++i]);
    }
    call.rest.insert(call.rest.end(), words.begin() + static_cast<std::ptrdiff_t>(i), words.end());
    return call;
}

bool asksFor(const std::string& option, const std::vector<std::string>& words)
{
    const auto end = std::find(words.begin(), words.end(), "--");
    return std::find(words.begin(), end, option) != end;
}

void printVersion()
{
    printLine("serialcomm " SERIALCOMM_VERSION);
}

/// Executes a command line without a verb: prints the list of verbs, or executes "help" or "version".
void executeWithoutVerb(const Call& call, const std::vector<std::string>& words)
{
    const bool help = asksFor("--help", call.rest) || asksFor("-h", call.rest);
    if (call.names == std::vector<std::string>{"version"} || asksFor("--version", call.rest)) {
        printVersion();
    } else if (call.names == std::vector<std::string>{"help"}) {
        print(helpFor(call.rest));
    } else if (call.names.empty() || (call.names.size() == 1 && isBus(call.names[0]))) {
        if (!call.rest.empty() && !help)
            throw Failure{WrongCommandLine, call.rest.front() + ": no verb given", "serialcomm --help"};
        print(help ? helpFor(call.names) : verbList(call.names));
    } else {
        throw unknownVerb(words);
    }
}

void executeVerb(const Verb& verb, const Call& call)
{
    const auto command = verb.make();
    CommonOptions common;
    addCommonOptions(*command, common);
    const auto ownEnd = call.rest.begin() + static_cast<std::ptrdiff_t>(command->grammar.ownWords(call.rest));
    const std::vector<std::string> own(call.rest.begin(), ownEnd);
    if (asksFor("--help", own) || asksFor("-h", own)) {
        print(helpFor(call.names));
        return;
    }
    if (asksFor("--version", own)) {
        printVersion();
        return;
    }
    parse(command->grammar, verb.words(), call.rest);
    command->check();
    setUpLog(command->output.verbosity, common.logConfig);
    Output output{command->output};
    if (command->output.dryRun)
        output.plannedTraffic(command->traffic());
    else
        command->run(output);
    output.progress({});
}

}  // namespace

void execute(const std::vector<std::string>& words)
{
    if (!words.empty() && words[0] == "--complete") {
        print(completions({words.begin() + 1, words.end()}));
        return;
    }
    const Call call = splitCall(words);
    const Verb* verb = findVerb(call.names);
    if (verb == nullptr)
        executeWithoutVerb(call, words);
    else
        executeVerb(*verb, call);
}

int runCommandLine(const std::vector<std::string>& words)
{
    try {
        execute(words);
        return Done;
    } catch (const Failure& failure) {
        printError(failure.message);
        if (!failure.hint.empty())
            printHint(failure.hint);
        return failure.status;
    } catch (const ExitStatus& exit) {
        return exit.status;
    } catch (const Interrupted& interrupted) {
        endBySignal(interrupted.signal);
    } catch (const std::exception& error) {  // out of memory
        printError(error.what());
        return TransferFailed;
    }
}
