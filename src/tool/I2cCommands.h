#pragma once

#include "Common.h"
#include "Hints.h"

#include <string>
#include <vector>

/// Arguments as they stand on the command line.
struct I2cArguments {
    std::string bus;
    std::string address;
    std::string reg;
    std::string count = "1";
    std::vector<std::string> bytes;
    bool raw = false;
    bool stop = false;
};

void i2cScan(const Common& common, const I2cArguments& arguments);
void i2cGet(const Common& common, const I2cArguments& arguments);
void i2cSet(const Common& common, const I2cArguments& arguments);
void i2cDump(const Common& common, const I2cArguments& arguments);
void i2cRead(const Common& common, const I2cArguments& arguments);
void i2cWrite(const Common& common, const I2cArguments& arguments);
void i2cTransfer(const Common& common, const I2cArguments& arguments);

/// The buses that have a node.
std::vector<Node> i2cBuses();
