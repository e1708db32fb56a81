#pragma once

#include <string>

enum class Kernel { scripted, real };

/// Makes each case of a timeline file a test: what is called, and between the calls the system calls and log lines that
/// must come of them. The kernel's answers stand in it too: a scripted kernel gives those.
///
///     # title                            ? command: the case is skipped unless it succeeds
///     > I2c /dev/i2c-4 0x48, open        a device; "open": init() and the end are not shown
///     > read 2                           a call; bytes are hexadecimal, "9*00" is nine of them, "max" is SIZE_MAX
///     read(7, [00 00], 2) = 1 [19]       as strace writes it; in brackets bytes before the call, and those stored
///     ERROR I2C read failed, ...         a log line
///     returned []                        or: threw ...
///     > level ERROR                      what is logged from here on
///     $ command                          for the shell; "| " and what it prints follow
void addCases(const std::string& file, Kernel kernel);
