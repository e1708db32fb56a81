// Uses the library for serial ports beside the first one, with no header but its own, and needs no port.
#include <serialComm/LineReader.h>

#include <cstdio>

int main()
{
    Uart port{"/dev/no-such-port", 9600, 1, "none", true};
    Line line{"/dev/no-such-port"};
    bool failed = false;
    if (port.init() || line.init() || LineReader{port, line}.until('\n', std::chrono::seconds{1}, &failed) || !failed) {
        std::fputs("lineConsumer: a port that does not exist was opened\n", stderr);
        return 1;
    }
    std::puts("consumer: ok");
}
