#pragma once

#include "base/Verb.h"

void addBatchVerb(Verbs& verbs);
