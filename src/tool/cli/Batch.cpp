// Many commands in one process: the verb batch.

#include "cli/Batch.h"

#include "base/Failure.h"
#include "base/Output.h"
#include "cli/CommandLine.h"

#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include <cerrno>
#include <optional>

namespace
{

struct BatchRequest : NoTraffic {
    std::string file;  ///< "-": standard input
};

void describe(Grammar& grammar, OutputOptions& /*output*/, BatchRequest& request)
{
    grammar
        .optionalWord("FILE", "One command per line, without \"serialcomm\"; # starts a comment; - for standard input",
                      request.file, parseWord, "-")
        .complete(Candidates::Files);
}

/// Reads lines of a file or of standard input as they arrive, so that another program can write them one by one.
class Lines
{
public:
    explicit Lines(const std::string& file)
        : name(file == "-" ? "standard input" : file),
          fd(file == "-" ? STDIN_FILENO : open(file.c_str(), O_RDONLY | O_CLOEXEC))
    {
        if (fd < 0)
            throw Failure{CannotOpen, name + ": " + strerror(errno)};
    }
    ~Lines()
    {
        if (fd != STDIN_FILENO)
            close(fd);
    }
    Lines(const Lines&) = delete;
    Lines& operator=(const Lines&) = delete;

    std::optional<std::string> next()
    {
        size_t end = text.find('\n');
        while (end == std::string::npos && !ended) {
            const ByteArray piece = readFrom(fd, name);
            ended = piece.empty();
            text.append(piece.begin(), piece.end());
            end = text.find('\n');
        }
        if (text.empty())
            return {};
        const std::string line = text.substr(0, end);
        text.erase(0, end == std::string::npos ? end : end + 1);
        return line;
    }

    const std::string name;

private:
    int fd;
    std::string text;
    bool ended = false;
};

/// Splits a line into words as a shell does: at spaces, except those that quotes or a backslash protect.
std::vector<std::string> wordsOf(const std::string& line)
{
    std::vector<std::string> words;
    std::optional<std::string> word;
    char quote = '\0';
    for (size_t i = 0; i < line.size(); ++i) {
        const char character = line[i];
        const bool escapes = character == '\\' && quote != '\'' && i + 1 < line.size();
        if (quote == '\0' && (character == ' ' || character == '\t' || character == '\r')) {
            if (word)
                words.push_back(*word);
            word.reset();
        } else if (quote == '\0' && !word && character == '#') {
            break;
        } else if (character == quote) {
            quote = '\0';
        } else if (quote == '\0' && (character == '\'' || character == '"')) {
            quote = character;
            word = word.value_or("");
        } else {
            // In double quotes, a backslash is kept unless it escapes a quote or a backslash.
            const bool protects = escapes && (quote == '\0' || line[i + 1] == '"' || line[i + 1] == '\\');
            word = word.value_or("") + (protects ? line[++i] : character);
        }
    }
    if (quote != '\0')
        throw Failure{WrongCommandLine, std::string{"no closing "} + quote};
    if (word)
        words.push_back(*word);
    return words;
}

void run(const BatchRequest& request, Output& /*output*/)
{
    Lines lines{request.file};
    for (size_t number = 1; const auto line = lines.next(); ++number) {
        try {
            const std::vector<std::string> words = wordsOf(*line);
            if (!words.empty() && words[0] == "batch")
                throw Failure{WrongCommandLine, "batch: not allowed in a batch"};
            if (!words.empty())
                execute(words);
        } catch (const Failure& failure) {
            throw Failure{failure.status, lines.name + ":" + std::to_string(number) + ": " + failure.message,
                          failure.hint};
        } catch (const ExitStatus& exit) {
            throw Failure{static_cast<Status>(exit.status), lines.name + ":" + std::to_string(number) +
                                                                ": ended with status " + std::to_string(exit.status)};
        }
    }
}

}  // namespace

void addBatchVerb(Verbs& verbs)
{
    verbs.push_back(
        verb<BatchRequest>("", "batch", "run one command per line; stop at the first that fails", "batch setup.txt"));
}
