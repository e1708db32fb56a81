#include "spi/Verbs.h"

void addSpiVerbs(Verbs& verbs)
{
    spi::addTransfers(verbs);
    spi::addFlash(verbs);
}
