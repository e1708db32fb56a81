#include "i2c/Verbs.h"

void addI2cVerbs(Verbs& verbs)
{
    i2c::addTransfers(verbs);
}
