#pragma once

#include "base/Verb.h"

void addSpiVerbs(Verbs& verbs);
