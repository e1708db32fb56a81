// What a person may type: whatever it is, it becomes a value within its bounds or a Failure that says why not.
#include "Failure.h"
#include "Format.h"
#include "Values.h"

#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>

#include <functional>
#include <sstream>
#include <string>
#include <vector>

static void require(bool holds)
{
    if (!holds) {
        abort();
    }
}

static std::vector<std::string> wordsOf(const std::string& text)
{
    std::istringstream stream{text};
    std::vector<std::string> words;
    for (std::string word; stream >> word;) {
        words.push_back(word);
    }
    return words;
}

/// The first character of the input says which: see the corpus.
static void parse(char what, const std::string& text)
{
    std::vector<std::string> words = wordsOf(text);
    switch (what) {
    case 'a': {
        const int address = parseAddress(text);
        require(address >= 0 && address <= 0x7f);
        break;
    }
    case 'r':
        require(!parseRegister(text).empty());
        break;
    case 'b': {
        const Bytes bytes = parseBytes(words);
        require(parseBytes(wordsOf(hexLines(bytes))) == bytes);
        break;
    }
    case 'n': {
        const size_t count = parseCount(text, maxI2cBytes, "an I2C message");
        require(count >= 1 && count <= maxI2cBytes);
        break;
    }
    case '+':
        require(takePlusCount(words, maxBytes, "an SPI transfer") <= maxBytes);
        break;
    case 'm':
        parseMode(text);
        break;
    case 's':
        require(parseSpeed(text) > 0);
        break;
    case 'u':
        parseBaudRate(text);
        break;
    case 't':
        parseText(words);
        break;
    case 'w':
        require(parseTimeout(text).count() >= 0);
        break;
    case 'd':
        require(!i2cPath(text).empty() && !spiPath(text).empty() && !uartPath(text).empty());
        break;
    default:
        break;
    }
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0) {
        return 0;
    }
    try {
        parse(static_cast<char>(data[0]), std::string{data + 1, data + size});
    } catch (const Failure& failure) {
        require(failure.status == WrongCommandLine && !failure.message.empty());
    }
    return 0;
}
