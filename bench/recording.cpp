// Writes bytes one by one to a pseudo-terminal, and prints the microseconds that one write takes. scripts/bench
// compares a run that is recorded with one that is not.
#include <fcntl.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <vector>

int main()
{
    constexpr int rounds = 200;
    constexpr int transfers = 200;
    const int master = posix_openpt(O_RDWR | O_NOCTTY);
    if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0)
        return 1;
    const int port = open(ptsname(master), O_RDWR | O_NOCTTY);
    struct termios settings = {};
    tcgetattr(port, &settings);
    cfmakeraw(&settings);
    if (tcsetattr(port, TCSANOW, &settings) != 0)
        return 1;

    std::vector<double> times;
    for (int round = 0; round < rounds; ++round) {
        const auto start = std::chrono::steady_clock::now();
        for (int i = 0; i < transfers; ++i) {
            if (write(port, "x", 1) != 1)
                return 1;
        }
        const std::chrono::duration<double, std::micro> taken = std::chrono::steady_clock::now() - start;
        times.push_back(taken.count() / transfers);
        char buffer[transfers];
        for (int left = transfers; left > 0;)
            left -= static_cast<int>(read(master, buffer, sizeof buffer));
    }
    std::sort(times.begin(), times.end());
    std::printf("%.2f\n", times[rounds / 2]);
}
