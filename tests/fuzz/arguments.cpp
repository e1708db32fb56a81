// Parses arbitrary command lines, one word per line: each must become a request or a Failure. Nothing is opened.
#include "base/Failure.h"
#include "cli/CommandLine.h"

#include <fcntl.h>
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

static std::vector<std::string> linesOf(const std::string& text)
{
    std::vector<std::string> lines;
    for (size_t at = 0; at <= text.size();) {
        const size_t end = std::min(text.find('\n', at), text.size());
        lines.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return lines;
}

/// Commands that do more than parse their words.
static bool acts(const std::vector<std::string>& words)
{
    const auto has = [&](const char* word) { return std::find(words.begin(), words.end(), word) != words.end(); };
    return has("batch") || has("list") || has("record") || has("replay") || has("--log-config") ||
           std::any_of(words.begin(), words.end(), [](const std::string& word) {
               return word.find('\0') != std::string::npos || word.compare(0, 13, "--log-config=") == 0;
           });
}

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/)
{
    const int null = open("/dev/null", O_RDWR);
    dup2(null, STDIN_FILENO);
    dup2(null, STDOUT_FILENO);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::vector<std::string> words = linesOf(std::string{data, data + size});
    if (acts(words))
        return 0;
    words.insert(words.begin(), "--dry-run");
    try {
        execute(words);
    } catch (const Failure& failure) {
        if (failure.status != WrongCommandLine || failure.message.empty())
            abort();
    }
    return 0;
}
