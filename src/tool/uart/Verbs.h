#pragma once

#include "base/Verb.h"

void addUartVerbs(Verbs& verbs);
