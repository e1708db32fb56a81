// Help texts, made from the grammars of the verbs.
#pragma once

#include "base/Verb.h"

#include <string>
#include <vector>

/// How a verb is called: "serialcomm i2c get BUS ADDR REG [N]".
std::string callOf(const Verb& verb, const Command& command);

/// The verbs of a bus, or all of them, a line each.
std::string verbList(const std::vector<std::string>& names);

/// The help of the program, a bus or a verb. Throws a Failure for names that there are not.
std::string helpFor(const std::vector<std::string>& names);
