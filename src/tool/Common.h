#pragma once

/// What every verb takes.
struct Common {
    int verbosity = 0;
    bool dryRun = false;
    bool json = false;
};
