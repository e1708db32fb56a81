// Verbs that run another program: record and replay.
#pragma once

#include "base/Verb.h"

void addProgramVerbs(Verbs& verbs);
