#pragma once

#include "base/Verb.h"

void addUartVerbs(Verbs& verbs);

namespace uart
{

void addTransfers(Verbs& verbs);  // read, write, ask, echo
void addPipe(Verbs& verbs);
void addTerm(Verbs& verbs);

}  // namespace uart
