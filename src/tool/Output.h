// Standard output carries data alone, standard error all that is said about it. What can't be written ends the program.
#pragma once

#include "Common.h"

#include <nlohmann/json_fwd.hpp>

#include <stdint.h>

#include <string>
#include <vector>

void print(const std::string& text);
void printLine(const std::string& line);
void printBytes(const std::vector<uint8_t>& bytes);

/// One object, one line. Bytes that are no text are shown as the replacement character.
void printJson(const nlohmann::ordered_json& object);

/// The bus traffic: on standard output in a dry run, on standard error at -v. True: a dry run, nothing more is to be
/// done.
bool showTraffic(const Common& common, const std::string& lines);

/// One line on standard error: "serialcomm: " and what is the case.
void say(const std::string& message);

/// All of standard input, at most `most` bytes.
std::vector<uint8_t> readStandardInput(size_t most);

/// Writes everything to a descriptor. `name` is what the error line calls it.
void writeAll(int fd, const void* data, size_t size, const std::string& name);

/// What is being done, on a terminal on standard error, from one second after the start on. The log at -v
/// shows it as well, and takes its place.
class Progress
{
public:
    explicit Progress(const Common& common);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void show(const std::string& what);
    void wipe();

private:
    int64_t startedMs;
    bool wanted;
    bool shown = false;
};
