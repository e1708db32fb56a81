#include "cli/Verbs.h"

#include "cli/Batch.h"
#include "device/List.h"
#include "doctor/Doctor.h"
#include "i2c/Verbs.h"
#include "programs/Verbs.h"
#include "spi/Verbs.h"
#include "uart/Verbs.h"
#include "watch/Verb.h"

#include <algorithm>

const Verbs& allVerbs()
{
    static const Verbs verbs = [] {
        Verbs all;
        for (const auto add : {addListVerb, addDoctorVerb, addI2cVerbs, addSpiVerbs, addUartVerbs, addWatchVerb,
                               addProgramVerbs, addBatchVerb})
            add(all);
        return all;
    }();
    return verbs;
}

const Verb* findVerb(const std::vector<std::string>& names)
{
    const Verbs& verbs = allVerbs();
    const auto found = std::find_if(verbs.begin(), verbs.end(), [&](const Verb& verb) {
        return *verb.bus == '\0' ? names == std::vector<std::string>{verb.name}
                                 : names == std::vector<std::string>{verb.bus, verb.name};
    });
    return found == verbs.end() ? nullptr : &*found;
}

bool isBus(const std::string& word)
{
    const Verbs& verbs = allVerbs();
    return !word.empty() && std::any_of(verbs.begin(), verbs.end(), [&](const Verb& verb) { return word == verb.bus; });
}
