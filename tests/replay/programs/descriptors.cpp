// Reads an I2C chip, SPI and a serial port through descriptors of every origin, as
// tests/replay/sessions/descriptors.session has it: descriptors, and as descriptors inherited N for the part behind
// exec.
#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <linux/spi/spidev.h>
#include <poll.h>
#include <pthread.h>
#include <stdint.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>

static void require(bool holds, const char* what)
{
    if (!holds) {
        std::printf("descriptors: %s (%s)\n", what, std::strerror(errno));
        std::exit(1);
    }
}

static bool answers(int bus, uint8_t wanted)
{
    uint8_t value = 0;
    return read(bus, &value, 1) == 1 && value == wanted;
}

static int ended(pid_t process)
{
    int status = 0;
    waitpid(process, &status, 0);
    return WEXITSTATUS(status);
}

static void looksLikeADevice(const char* path, int bus)
{
    struct stat status = {};
    require(stat(path, &status) == 0 && S_ISCHR(status.st_mode) && major(status.st_rdev) == 89, "stat");
    require(access(path, R_OK | W_OK) == 0, "access");
    require(fstat(bus, &status) == 0 && S_ISCHR(status.st_mode), "fstat");
    require(access("/dev/i2c-77", F_OK) != 0 && open("/dev/i2c-77", O_RDWR) < 0 && errno == ENOENT, "an absent node");
    struct pollfd ready = {bus, POLLIN | POLLOUT, 0};
    require(poll(&ready, 1, 0) == 1, "poll");
}

static void inheritsThroughExec(const char* self, int bus)
{
    const std::string number = std::to_string(bus);
    const pid_t process = fork();
    if (process == 0) {
        execl(self, self, "inherited", number.c_str(), nullptr);
        _exit(99);
    }
    require(ended(process) == 0, "a program that inherits the descriptor");
}

static void usesCopies(int bus)
{
    const int copies[] = {dup(bus), dup2(bus, 100), dup3(bus, 101, O_CLOEXEC), fcntl(bus, F_DUPFD, 102)};
    for (const int copy : copies) {
        require(answers(copy, 0x02), "a duplicate");
        close(copy);
    }
    require(open("/", O_RDONLY | O_DIRECTORY) < 100 && read(100, nullptr, 0) < 0 && errno == EBADF,
            "a closed duplicate");
}

static void usesChildrenAndThreads(int bus)
{
    const pid_t process = fork();
    if (process == 0)
        _exit(answers(bus, 0x03) ? 0 : 1);
    require(ended(process) == 0, "a child");
    // NOLINTBEGIN(clang-analyzer-security.insecureAPI.vfork,clang-analyzer-unix.Vfork): what programs do
    const pid_t quick = vfork();
    if (quick == 0) {
        close(bus);
        _exit(0);
    }
    // NOLINTEND(clang-analyzer-security.insecureAPI.vfork,clang-analyzer-unix.Vfork)
    ended(quick);
    require(answers(bus, 0x04), "the parent after its child closed the descriptor");
    bool answered = false;
    std::thread{[&] { answered = answers(bus, 0x05); }}.join();
    require(answered, "a thread");
    for (int other = 3; other < 1024; ++other) {  // as daemons do
        if (other != bus)
            close(other);
    }
    require(answers(bus, 0x06), "after all descriptors were closed");
}

static void usesParts(int bus)
{
    uint8_t first[] = {0x10};
    uint8_t second[] = {0x20, 0x30};
    const struct iovec parts[] = {{first, 1}, {second, 2}};
    require(writev(bus, parts, 2) == 3, "writev");
    require(readv(bus, parts, 2) == 3 && first[0] == 0x07 && second[1] == 0x09, "readv");

    uint8_t shared[] = {0x00, 0x00};  // the answer takes the request's place
    i2c_msg messages[] = {{0x48, 0, 1, shared}, {0x48, I2C_M_RD, 2, shared}};
    i2c_rdwr_ioctl_data request = {messages, 2};
    void* null = nullptr;
    void* const volatile* nowhere = &null;
    i2c_msg missing = {0x48, 0, 1, nullptr};
    i2c_rdwr_ioctl_data wrong = {&missing, 1};
    require(ioctl(bus, I2C_RDWR, &wrong) == -1 && errno == EFAULT && write(bus, *nowhere, 1) == -1 && errno == EFAULT,
            "memory that is missing");
    require(ioctl(bus, I2C_RDWR, &request) == 2 && shared[0] == 0x19 && shared[1] == 0x80, "one buffer for both");
}

static void usesSpi()
{
    const int bus = open64("/dev/spidev0.0", O_RDWR | O_CLOEXEC);
    require(bus >= 0, "open64");
    uint8_t mode = 0;
    uint32_t speed = 0;
    require(ioctl(bus, SPI_IOC_RD_MODE, &mode) == 0 && mode == 1, "the mode it was opened with");
    require(ioctl(bus, SPI_IOC_RD_MAX_SPEED_HZ, &speed) == 0 && speed == 1'000'000, "the clock it was opened with");
    mode = 9;
    require(ioctl(bus, SPI_IOC_WR_MODE, &mode) == -1 && errno == EINVAL, "a mode that is refused");
    uint8_t bytes[] = {0x9f, 0x00, 0x00};
    spi_ioc_transfer segments[2] = {};
    segments[0].tx_buf = reinterpret_cast<uintptr_t>(bytes);
    segments[0].len = 1;
    segments[0].cs_change = 1;
    segments[1].rx_buf = reinterpret_cast<uintptr_t>(bytes + 1);
    segments[1].len = 2;
    segments[1].speed_hz = 250'000;
    require(ioctl(bus, SPI_IOC_MESSAGE(2), segments) == 3 && bytes[1] == 0xef && bytes[2] == 0x40, "two segments");
    require(ioctl(bus, TCGETS, bytes) == -1 && errno == ENOTTY, "no terminal");
}

static void usesSerialPort()
{
    const int port = openat(AT_FDCWD, "/dev/ttyS7", O_RDWR | O_NOCTTY | O_NONBLOCK);
    require(port >= 0 && isatty(port) == 1, "openat");
    struct termios settings = {};
    require(tcgetattr(port, &settings) == 0 && (settings.c_cflag & PARENB) != 0, "the parity it was opened with");
    settings.c_cflag &= ~static_cast<tcflag_t>(PARENB);
    settings.c_lflag |= ECHO;
    settings.c_oflag |= OPOST | ONLCR;
    require(tcsetattr(port, TCSAFLUSH, &settings) == 0 && tcflush(port, TCIOFLUSH) == 0, "tcsetattr");
    char text[8] = {};
    struct pollfd ready = {port, POLLIN, 0};
    require(poll(&ready, 1, 5000) == 1 && read(port, text, 5) == 5 && std::strcmp(text, "hello") == 0,
            "what is sent without being asked for");
    FILE* stream = fdopen(dup(port), "w");
    std::fprintf(stream, "a\n");
    std::fclose(stream);
    require(poll(&ready, 1, 5000) == 1 && read(port, text, 1) == 1 && text[0] == 'A', "an answer to a stream");
    require(poll(&ready, 1, 5000) == 1 && (ready.revents & POLLHUP) != 0 && write(port, "x", 1) == -1 && errno == EIO,
            "a port that is gone");
}

static void usesStreams()
{
    FILE* stream = fopen("/dev/ttyS6", "r+");
    require(stream != nullptr && isatty(fileno(stream)) == 1, "fopen and fileno");
    std::fputs("id?\n", stream);
    char line[16] = {};
    require(std::fgets(line, sizeof line, stream) != nullptr && std::strcmp(line, "7\n") == 0, "fgets");
    require(std::fclose(stream) == 0, "fclose");

    std::fstream chip{"/dev/i2c-5"};  // whose address is still to be set: the session does not ask for it
    chip << '\x10' << std::flush;
    require(chip.good(), "a stream of C++");
}

int main(int argc, char* argv[])
{
    if (argc == 3)
        return answers(std::atoi(argv[2]), 0x01) ? 0 : 1;
    require(chdir("/dev/..") == 0, "chdir");
    const int bus = open("dev//./i2c-4", O_RDWR);
    require(bus >= 0 && ioctl(bus, I2C_SLAVE, 0x48) == 0, "open");
    looksLikeADevice("/dev/i2c-4", bus);
    inheritsThroughExec("/proc/self/exe", bus);
    usesCopies(bus);
    usesChildrenAndThreads(bus);
    usesParts(bus);
    usesSpi();
    usesSerialPort();
    usesStreams();
    std::puts("descriptors: ok");
}
