// The library's log: shown at -v and -vv, and the source of errors that the library reports nowhere else.
#pragma once

#include <optional>
#include <string>

/// verbosity 1 shows the library's log on standard error from DEBUG on, 2 from TRACE on. A log4cplus properties file
/// replaces both.
void setUpLog(int verbosity, const std::string& propertiesFile);

struct LibraryError {
    std::string message;
    int error;  ///< errno when the line was logged, which may be a later one than that of the failed call

    /// The message, and what the number means.
    [[nodiscard]] std::string text() const;
};

/// Collects the first ERROR line that the library logs in this thread while the scope lives:
///
///     ErrorScope errors;
///     bus.write(data);
///     if (errors.first()) ...
class ErrorScope
{
public:
    enum Visibility { Shown, Hidden };

    /// Hidden: the lines are not shown at -v either, for a scan, where most addresses do not answer.
    explicit ErrorScope(Visibility wanted = Shown);
    ~ErrorScope();
    ErrorScope(const ErrorScope&) = delete;
    ErrorScope& operator=(const ErrorScope&) = delete;

    [[nodiscard]] const std::optional<LibraryError>& first() const { return error; }

    /// An error of a device that is not the library's, in the innermost scope, as if the library had logged it.
    static void report(const std::string& message, int number);

    // For the appender.
    void add(const std::string& message, int number);
    [[nodiscard]] bool shows() const { return visible == Shown; }

private:
    Visibility visible;
    ErrorScope* outer;
    std::optional<LibraryError> error;
};
