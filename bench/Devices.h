// The nodes of the chips that bus.cpp talks to; the program that it is linked into says which.
#pragma once

extern const char* const i2cDevice;
extern const char* const spiDevice;
