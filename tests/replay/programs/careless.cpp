// A driver whose error paths are wrong: careless ignore|crash|hang DEVICE
#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <stdint.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

int main(int argc, char* argv[])
{
    if (argc != 3)
        return 2;
    const std::string fault = argv[1];
    const int bus = open(argv[2], O_RDWR);
    if (bus < 0)
        return 1;
    uint8_t reg = 0;
    uint8_t value[2] = {};
    i2c_msg messages[] = {{0x48, 0, 1, &reg}, {0x48, I2C_M_RD, 2, value}};
    i2c_rdwr_ioctl_data request = {messages, 2};
    const int result = ioctl(bus, I2C_RDWR, &request);
    if (result < 0 && fault == "crash")
        std::abort();
    while (result < 0 && fault == "hang")
        pause();
    std::printf("%02x %02x\n", value[0], value[1]);
}
