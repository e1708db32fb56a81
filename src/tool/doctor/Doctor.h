#pragma once

#include "base/Verb.h"

void addDoctorVerb(Verbs& verbs);
