// Reads the 1 MiB of the board's flash by the fewest ioctls that spidev allows, and writes it to standard output: what
// "serialcomm spi flash read" is compared with.
#include <fcntl.h>
#include <linux/spi/spidev.h>
#include <stdint.h>
#include <stdio.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

int main()
{
    const size_t size = 1 << 20;
    const size_t header = 4;    // the command and three bytes of address
    const size_t limit = 4096;  // spidev's buffer
    const int fd = ::open("/dev/spidev2.0", O_RDWR);
    std::vector<uint8_t> tx(limit);
    std::vector<uint8_t> rx(limit);
    for (size_t address = 0; address < size;) {
        const size_t length = std::min(size - address, limit - header);
        tx[0] = 0x03;
        tx[1] = static_cast<uint8_t>(address >> 16);
        tx[2] = static_cast<uint8_t>(address >> 8);
        tx[3] = static_cast<uint8_t>(address);
        spi_ioc_transfer transfer{};
        transfer.tx_buf = reinterpret_cast<uintptr_t>(tx.data());
        transfer.rx_buf = reinterpret_cast<uintptr_t>(rx.data());
        transfer.len = static_cast<uint32_t>(header + length);
        transfer.speed_hz = 10000000;
        transfer.bits_per_word = 8;
        if (::ioctl(fd, SPI_IOC_MESSAGE(1), &transfer) < 0) {
            perror("flash_read: /dev/spidev2.0");
            return 1;
        }
        fwrite(rx.data() + header, 1, length, stdout);
        address += length;
    }
    return 0;
}
