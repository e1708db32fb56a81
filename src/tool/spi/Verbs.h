#pragma once

#include "base/Verb.h"

void addSpiVerbs(Verbs& verbs);

namespace spi
{

void addTransfers(Verbs& verbs);  // info, read, write, transfer
void addFlash(Verbs& verbs);

}  // namespace spi
