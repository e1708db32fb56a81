#include "uart/Verbs.h"
namespace uart
{
void addTerm(Verbs&) {}
}  // namespace uart
