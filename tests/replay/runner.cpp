// Records and replays programs from the command line:
//     replay_runner record [--times] FILE PROGRAM ARGS...
//     replay_runner replay [--times | --fail-each] [--timeout MS] FILE PROGRAM ARGS...
#include "replay/Recorder.h"
#include "replay/Replayer.h"

#include <cstdlib>
#include <iostream>

int main(int argc, char* argv[])
{
    std::vector<std::string> words(argv + 1, argv + argc);
    const auto take = [&words](const std::string& word) {
        const bool is = !words.empty() && words.front() == word;
        words.erase(words.begin(), words.begin() + (is ? 1 : 0));
        return is;
    };
    const bool isRecord = take("record");
    take("replay");
    const bool times = take("--times");
    const bool failEach = take("--fail-each");
    try {
        const std::string library = replay::preloadLibrary();
        replay::ReplayOptions options;
        if (take("--timeout") && !words.empty()) {
            options.timeout = std::chrono::milliseconds{std::stol(words.front())};
            words.erase(words.begin());
        }
        if (words.size() < 2) {
            std::cerr << "usage: see runner.cpp\n";
            return 2;
        }
        const std::string file = words[0];
        const replay::Command command{words[1], {words.begin() + 2, words.end()}};
        if (isRecord)
            return replay::Recorder{file, {times, library}}.run(command);
        options.times = times;
        options.library = library;
        replay::Replayer replayer{file, options};
        return failEach ? replayer.failEach(command) : replayer.run(command);
    } catch (const replay::Problem& problem) {
        std::cerr << "replay_runner: " << problem.what() << '\n';
        return problem.status;
    }
}
