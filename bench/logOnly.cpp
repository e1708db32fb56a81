// What every program with log4cplus needs to start: it links to it and obtains a logger.
#include <log4cplus/logger.h>

int main()
{
    return log4cplus::Logger::getRoot().getName() == "root" ? 0 : 1;
}
