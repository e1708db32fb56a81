// The nodes of the chips that bus.cpp uses; each program that links it defines them.
#pragma once

extern const char* const i2cDevice;
extern const char* const spiDevice;
