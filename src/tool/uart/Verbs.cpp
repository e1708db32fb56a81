#include "uart/Verbs.h"

void addUartVerbs(Verbs& /*verbs*/) {}
