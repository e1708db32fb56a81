#pragma once

inline const char* const suppliedDevice = "/dev/supplied";
