#pragma once

#include "base/Verb.h"

void addListVerb(Verbs& verbs);
