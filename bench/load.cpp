// Prints how many nanoseconds it takes to load a library, with its relocations, loggers and tables. log4cplus is
// already loaded.
#include <dlfcn.h>
#include <log4cplus/logger.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>

int main(int argc, char** argv)
{
    if (argc != 2) {
        fputs("load: usage: load LIBRARY\n", stderr);
        return 2;
    }
    log4cplus::Logger::getRoot();

    const auto start = std::chrono::steady_clock::now();
    const void* library = dlopen(argv[1], RTLD_NOW);
    const std::chrono::nanoseconds taken = std::chrono::steady_clock::now() - start;
    if (library == nullptr) {
        fprintf(stderr, "load: %s\n", dlerror());
        return EXIT_FAILURE;
    }
    printf("%lld\n", static_cast<long long>(taken.count()));
}
