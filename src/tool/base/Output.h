// Standard output carries only data; errors, progress and traffic go to standard error. A failed write to standard
// output ends the program.
#pragma once

#include "base/Json.h"

#include <serialComm/SyncSerialBase.h>

#include <stdint.h>

#include <string>

/// What the user wants to see.
struct OutputOptions {
    int verbosity = 0;  ///< 1: traffic and the library's log from DEBUG on, on standard error; 2: from TRACE on
    bool dryRun = false;
    bool json = false;
    bool raw = false;
    bool hexDump = false;
};

/// The one place that renders results, as text, JSON or raw bytes.
class Output
{
public:
    explicit Output(const OutputOptions& given) : options(given) {}

    [[nodiscard]] bool json() const { return options.json; }
    [[nodiscard]] bool raw() const { return options.raw; }
    [[nodiscard]] bool hexDump() const { return options.hexDump; }

    /// The results that follow are a series: each is one line of hex. `withTimes` puts the time of day before each
    /// line, and "time" before the fields: seconds since the epoch, with microseconds.
    void startSeries(bool withTimes);

    /// Shows progress on standard error, if it is a terminal, from one second after the start on. An empty text removes
    /// it. At -v, the log is shown instead.
    void progress(const std::string& text);

    /// Bytes from a device: in hex, 16 per line; with --hexdump after offsets, which start at `firstOffset`; with
    /// --json as "bytes" after `fields`; with --raw unchanged.
    void bytes(const Fields& fields, const ByteArray& bytes, size_t firstOffset = 0);

    /// A result other than bytes: a line of text, or the fields with --json.
    void result(const Fields& fields, const std::string& text);

    /// What goes over the wire, one transfer per line: on standard error at -v.
    void traffic(const std::string& lines) const;

    /// The same in a dry run, where it is the result.
    void plannedTraffic(const std::string& lines);

private:
    OutputOptions options;
    int64_t startedMs = nowMs();
    bool progressShown = false;
    bool series = false;
    bool times = false;

    static int64_t nowMs();
    void writeJson(Fields fields) const;
    void line(const std::string& text) const;
};

/// "12:34:56.789" with three decimals, local time. @param sinceEpoch ns
std::string timeOfDay(uint64_t sinceEpoch, size_t decimals);

/// "[12:34:56.789] ": now.
std::string timeOfDay();

void print(const std::string& text);
void printLine(const std::string& line);
void printBytes(const ByteArray& bytes);

/// One line on standard error: "serialcomm: <message>". What is not printable is escaped.
void printError(const std::string& message);

/// The line after an error: "  try: <hint>".
void printHint(const std::string& hint);

/// Writes everything to a descriptor. `name` is its name in the error message.
void writeAll(int fd, const void* data, size_t size, const std::string& name);

/// Reads up to 64 KiB from a descriptor, as soon as there are any bytes; empty at its end. `name` is its name in the
/// error message.
ByteArray readFrom(int fd, const std::string& name);
ByteArray readInput();

/// Everything up to the end, at most `most` bytes.
ByteArray readWhole(int fd, const std::string& name, size_t most);
ByteArray readWholeInput(size_t most);
