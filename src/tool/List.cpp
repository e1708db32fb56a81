#include "List.h"
void list(const Common&, const std::string&) {}
