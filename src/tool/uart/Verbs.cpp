#include "uart/Verbs.h"

void addUartVerbs(Verbs& verbs)
{
    uart::addTransfers(verbs);
    uart::addTerm(verbs);
    uart::addPipe(verbs);
}
