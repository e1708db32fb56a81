#pragma once

#include "base/Failure.h"

#include <string>
#include <vector>

/// The known word that was probably meant, or nothing.
std::string suggestion(const std::string& word, const std::vector<std::string>& known);

/// Words that name no verb; the hint is the whole command line that was probably meant.
Failure unknownVerb(const std::vector<std::string>& words);
