// Line settings of a serial port, by the kernel's own termios records: <termios.h> has others. Shared by the preloaded
// library and the process that records or replays.
#pragma once

#include "Protocol.h"

#include <stddef.h>

#pragma GCC visibility push(hidden)
namespace replay
{

/// What all three kinds of termios records begin with.
struct TermiosFlags {
    uint32_t input;
    uint32_t output;
    uint32_t control;
    uint32_t local;
};

/// False where the descriptor is no terminal.
bool readLine(int descriptor, LineState& line);

/// Makes a terminal raw, with these settings as far as it keeps them.
bool makeRaw(int descriptor, const LineState& line);

/// What a program asks for, with the rate that the port then has.
LineState askedLine(int descriptor, const TermiosFlags& flags);

/// Leaves what is received and sent as it is: the session has what the program itself saw.
void makeTransparent(TermiosFlags& flags);

/// Puts the frame in that a pseudo-terminal does not keep.
void showFrame(TermiosFlags& flags, const LineState& line);

/// The size of the record that an ioctl request sets or gets; 0 for other requests.
size_t setSize(unsigned long request);
size_t getSize(unsigned long request);

/// The same request, without dropping what is waiting.
unsigned long withoutFlush(unsigned long request);
bool isFlush(unsigned long request);

}  // namespace replay
#pragma GCC visibility pop
