// The line on which the UART contestants talk: a pseudo-terminal of its own for each.
#pragma once

#include "Operation.h"

#include <string>

class PseudoTerminal
{
public:
    PseudoTerminal();
    PseudoTerminal(const PseudoTerminal&) = delete;
    PseudoTerminal& operator=(const PseudoTerminal&) = delete;
    ~PseudoTerminal();

    [[nodiscard]] const char* path() const { return slavePath.c_str(); }

    /// The slave, set as Uart::init() sets it.
    [[nodiscard]] int descriptor() const { return slave; }

    /// Lets `operation` write: what it wrote is taken off the line after every batch.
    void receiveFrom(Operation& operation);

    /// Lets `operation` read: what it will ask for is waiting before every batch.
    void sendTo(Operation& operation);

private:
    int master;
    int slave;
    std::string slavePath;
};
