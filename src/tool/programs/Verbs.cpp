#include "programs/Verbs.h"

#include "base/Failure.h"

#include <replay/Recorder.h>
#include <replay/Replayer.h>

#include <optional>

namespace
{

struct ProgramRequest : NoTraffic {
    std::string file;
    std::vector<std::string> command;
    bool times = false;
};

void describeProgram(Grammar& grammar, ProgramRequest& request, const std::string& fileHelp)
{
    grammar.word("FILE", fileHelp, request.file, parseWord).complete(Candidates::Files);
    grammar.program("PROGRAM", "Program to run; all words after it are its arguments", request.command)
        .complete(Candidates::Files)
        .show("PROGRAM ARGS...");
}

replay::Command commandOf(const ProgramRequest& request)
{
    return {request.command.front(), {request.command.begin() + 1, request.command.end()}};
}

/// Ends with the exit status of what `function` runs.
template <typename Function>
void passOn(const Function& function)
{
    int status = 0;
    try {
        status = function();
    } catch (const replay::Problem& problem) {
        throw Failure{static_cast<Status>(problem.status), problem.what()};
    }
    if (status != 0)
        throw ExitStatus{status};
}

struct Record : ProgramRequest {
};

void describe(Grammar& grammar, OutputOptions& /*output*/, Record& request)
{
    describeProgram(grammar, request, "Session file to write; an existing one is replaced");
    grammar.flag("--times", "Record the time of each line", request.times);
}

void run(const Record& request, Output& /*output*/)
{
    passOn([&] {
        return replay::Recorder{request.file, {request.times, replay::preloadLibrary()}}.run(commandOf(request));
    });
}

struct Replay : ProgramRequest {
    bool failEach = false;
    std::optional<milliseconds> timeout;
};

void describe(Grammar& grammar, OutputOptions& /*output*/, Replay& request)
{
    describeProgram(grammar, request, "Session file with the answers to the program");
    grammar.flag("--times", "Keep the recorded pace, if the file has times", request.times);
    grammar
        .flag("--fail-each", "Run once for each way in which each transfer can fail; report ignored failures",
              request.failEach)
        .exclude("--times");
    grammar.option("--timeout", "S", "End the program after this many seconds; default with --fail-each: 10",
                   request.timeout, [](const std::string& text) { return parseSeconds("--timeout", text); });
}

void run(const Replay& request, Output& /*output*/)
{
    passOn([&] {
        replay::Replayer replayer{request.file, {request.times, request.timeout, replay::preloadLibrary()}};
        return request.failEach ? replayer.failEach(commandOf(request)) : replayer.run(commandOf(request));
    });
}

}  // namespace

void addProgramVerbs(Verbs& verbs)
{
    verbs.push_back(
        verb<Record>("", "record", "run a program and record its transfers", "record sensor.session ./thermometer"));
    verbs.push_back(verb<Replay>("", "replay", "run a program without hardware; a session answers its transfers",
                                 "replay sensor.session ./thermometer"));
}
