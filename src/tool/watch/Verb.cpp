#include "watch/Verb.h"

#include "base/Failure.h"
#include "base/Repeat.h"
#include "i2c/Values.h"
#include "spi/Values.h"

namespace watch
{
namespace
{

std::string parseFile(const std::string& text)
{
    if (text == "-")
        refuse("-: standard output has the lines; name a file");
    return parseWord(text);
}

Request::Times parseTimes(const std::string& text)
{
    return text == "wall"       ? Request::Times::wall
           : text == "relative" ? Request::Times::relative
                                : Request::Times::start;
}

}  // namespace

void describe(Grammar& grammar, OutputOptions& output, Request& request)
{
    grammar.optionalWords("BUS", "i2c BUS or spi DEV, repeatable; all buses if none is named", request.words)
        .show("[i2c BUS | spi DEV]...")
        .complete(Candidates::Buses);
    grammar.optionalProgram("PROGRAM", "Program to run; the watch ends with it, with its exit status", request.program)
        .show("[-- PROGRAM ARGS...]");
    grammar.option("--address", "ADDR", "Only transfers of this I2C address", request.address, i2c::parseAddress);
    grammar.option("--process", "NAME|PID", "Only transfers of this process", request.process, parseWord);
    grammar.option("--count", "N", "End the watch after N transfers", request.count, parseRepeatCount);
    grammar.option("--for", "S", "End the watch after S seconds", request.duration,
                   [](const std::string& text) { return parseSeconds("--for", text); });
    grammar
        .option("--times", "KIND", "Seconds since the start or the line before, or the time of day", request.times,
                parseTimes, "start")
        .choose({"start", "relative", "wall"});
    grammar.option("--save", "FILE", "Write a session file, for replay", request.sessionFile, parseFile)
        .complete(Candidates::Files);
    grammar
        .option("--pcap", "FILE", "Write the I2C messages as pcap, for network analysers", request.captureFile,
                parseFile)
        .complete(Candidates::Files);
    grammar.flag("--summary", "At the end, print transfers, errors and busy time of each bus and chip",
                 request.summary);
    grammar.output(output, true);
}

void check(Request& request)
{
    for (size_t i = 0; i < request.words.size(); i += 2) {
        const std::string& bus = request.words[i];
        if (bus != "i2c" && bus != "spi")
            throw Failure{WrongCommandLine, "watch: \"" + bus + "\": a bus is i2c BUS or spi DEV",
                          "serialcomm watch i2c 4 spi 2.0"};
        if (i + 1 == request.words.size())
            throw Failure{WrongCommandLine, "watch: " + bus + ": which one?",
                          bus == "i2c" ? "serialcomm watch i2c 4" : "serialcomm watch spi 2.0"};
        if (bus == "i2c")
            request.buses.push_back(i2c::parseBus(request.words[i + 1]));
        else
            request.chips.push_back(spi::parseDevice(request.words[i + 1]));
    }
    if (request.address && request.buses.empty() && !request.chips.empty())
        refuse("--address: an SPI chip has none; name an I2C bus");
}

#ifndef SERIALCOMM_WATCH
void run(const Request& /*request*/, Output& /*output*/)
{
    throw Failure{CannotOpen, "watch: this serialcomm was built without libtracefs and libtraceevent",
                  "install libtracefs-dev and libtraceevent-dev, and build it again"};
}
#endif

}  // namespace watch

void addWatchVerb(Verbs& verbs)
{
    verbs.push_back(verb<watch::Request>("", "watch", "show the transfers of all programs and kernel drivers",
                                         "watch i2c 4 -- ./thermometer"));
}
