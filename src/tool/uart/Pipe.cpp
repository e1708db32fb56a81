#include "uart/Verbs.h"
namespace uart
{
void addPipe(Verbs&) {}
}  // namespace uart
