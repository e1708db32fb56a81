#pragma once

#include "Common.h"
#include "Hints.h"

#include <string>
#include <vector>

/// Arguments as they stand on the command line.
struct SpiArguments {
    std::string device;
    std::string count;
    std::vector<std::string> bytes;
    std::string mode = "0";
    std::string speed = "500k";
    bool raw = false;
};

void spiInfo(const Common& common, const SpiArguments& arguments);
void spiRead(const Common& common, const SpiArguments& arguments);
void spiWrite(const Common& common, const SpiArguments& arguments);
void spiTransfer(const Common& common, const SpiArguments& arguments);

/// The nodes that spidev made.
std::vector<Node> spidevNodes();
