// Help texts, made from the grammars of the verbs.
#pragma once

#include "base/Verb.h"

#include <string>
#include <vector>

/// The synopsis of a verb: "serialcomm i2c get BUS ADDR REG [N]".
std::string synopsisOf(const Verb& verb, const Command& command);

/// The verbs of a bus, or all of them, one per line.
std::string verbList(const std::vector<std::string>& names);

/// The help of the program, a bus or a verb. Throws a Failure for unknown names.
std::string helpFor(const std::vector<std::string>& names);
