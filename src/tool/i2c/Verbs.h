#pragma once

#include "base/Verb.h"

void addI2cVerbs(Verbs& verbs);

namespace i2c
{

void addScan(Verbs& verbs);
void addRegisters(Verbs& verbs);  // get, set
void addDump(Verbs& verbs);
void addTransfers(Verbs& verbs);  // read, write, transfer
void addEeprom(Verbs& verbs);

}  // namespace i2c
