// The line of one UART contestant: a pseudo-terminal.
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

    /// Prepares the line for an `operation` that writes: its bytes are read after every batch.
    void receiveFrom(Operation& operation);

    /// Prepares the line for an `operation` that reads: its bytes are written before every batch.
    void sendTo(Operation& operation);

private:
    int master;
    int slave;
    std::string slavePath;
};
