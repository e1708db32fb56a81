#pragma once

#include "base/Verb.h"

void addI2cVerbs(Verbs& verbs);

namespace i2c
{

void addTransfers(Verbs& verbs);  // get, set, read, write, transfer

}  // namespace i2c
