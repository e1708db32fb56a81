#include "UartCommands.h"
void uartTerm(const Common&, const UartArguments&) {}
