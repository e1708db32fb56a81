// What the library says in its log: shown at -v and -vv, and listened to, since a failure of SPI shows nowhere else.
#pragma once

#include <memory>
#include <optional>
#include <string>

/// verbosity 1 shows the library's log on standard error from DEBUG on, 2 from TRACE on. A log4cplus properties file
/// takes the place of both.
void setUpLog(int verbosity, const std::optional<std::string>& propertiesFile);

struct LibraryError {
    std::string message;
    int error;  ///< errno when it was logged: a hint, no more

    /// The message, and what the number means.
    std::string text() const;
};

/// The first ERROR line since the last call.
std::optional<LibraryError> takeLibraryError();

/// The name in the last line "UART slave pts: <name>".
std::string announcedSlave();

/// Keeps the library quiet while it lives, for a scan, where most addresses answer nothing.
class QuietLibrary
{
public:
    QuietLibrary();
    ~QuietLibrary();
    QuietLibrary(const QuietLibrary&) = delete;
    QuietLibrary& operator=(const QuietLibrary&) = delete;

private:
    int level;
};
