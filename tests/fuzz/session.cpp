// Any text is a session or an error with its line; and what is written of a session is read as the same one.
#include "session/Session.h"

#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>

#include <string>

static void check(const std::string& text)
{
    try {
        const session::Session first = session::parse(text);
        if (!(session::parse(session::toText(first)) == first)) {
            abort();
        }
    } catch (const session::FormatError& error) {
        if (error.fileLine == 0 || *error.what() == '\0') {
            abort();
        }
    }
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string text{data, data + size};
    check(text);
    check(session::versionLine() + text);
    return 0;
}
