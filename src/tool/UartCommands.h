#pragma once

#include "Common.h"
#include "UartPort.h"

#include <string>
#include <vector>

/// Arguments as they stand on the command line.
struct UartArguments {
    std::string port;
    std::vector<std::string> text;
    std::string count;
    std::string baudRate = "115200";
    std::string parity = "none";
    std::string stopBits = "1";
    std::string lineEnd = "cr";
    std::string timeout;
    std::string until;
    std::string logFile;
    bool hex = false;
    bool localEcho = false;
    bool times = false;
};

Line lineOf(const UartArguments& arguments);

/// Prints the name of a pseudo-terminal's slave; nothing on a tty.
void announceSlave(const Common& common, const Port& port);

void uartRead(const Common& common, const UartArguments& arguments);
void uartWrite(const Common& common, const UartArguments& arguments);
void uartAsk(const Common& common, const UartArguments& arguments);
void uartEcho(const Common& common, const UartArguments& arguments);
void uartTerm(const Common& common, const UartArguments& arguments);
