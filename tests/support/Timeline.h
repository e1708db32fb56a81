#pragma once

#include <stdexcept>
#include <string>
#include <vector>

/// Who answers the system calls: a script, which is the timeline itself, or the kernel.
enum class Kernel { scripted, real };

/// One case of a timeline file: what the test calls, and the system calls, log lines and results that must follow. With
/// a scripted kernel it also gives the kernel's answers.
///
///     # title                            ? command: skip the case unless the command succeeds
///     > I2c /dev/i2c-4 0x48, open        construct a device; "open": init() and the destruction are not shown
///     > read 2                           call an operation; bytes are hexadecimal, "9*00" is nine of them; "max" is
///                                        SIZE_MAX; "9*.." is nine bytes without storage (see AbsentBytes)
///     read(7, [00 00], 2) = 1 [19]       a system call as strace writes it; in brackets the bytes before the call and
///                                        those that the kernel stored
///     ERROR I2C read failed, ...         a log line
///     returned []                        or: threw ...
///     > level ERROR                      set the logger's level
///     > end                              destroy the device
///     $ command                          run a shell command; "| " and its output follow
struct Case {
    std::string file;
    int line;
    std::string title;
    std::vector<std::string> lines;
};

/// A timeline that cannot be read: the file is missing or empty, or a line is misspelt.
class TimelineError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// @throw TimelineError The file cannot be read, has no case, or has a case without a call.
std::vector<Case> readCases(const std::string& file);

/// Makes the calls of a case and writes down what happens.
///
/// @return A text like the lines of the case, and equal to them if the library does what they say.
/// @throw TimelineError A line is misspelt.
std::string play(const Case& wanted, Kernel kernel);

/// Registers each case of a file as a test.
void addCases(const std::string& file, Kernel kernel);
