#include "i2c/Verbs.h"

void addI2cVerbs(Verbs& verbs)
{
    i2c::addScan(verbs);
    i2c::addRegisters(verbs);
    i2c::addDump(verbs);
    i2c::addTransfers(verbs);
    i2c::addEeprom(verbs);
}
