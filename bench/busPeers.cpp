// The same I2C operations by libi2c, which has SMBus commands: single bytes, and registers of up to 32 bytes.
#include "Devices.h"
#include "Operation.h"

#include <fcntl.h>

extern "C" {
#include <i2c/smbus.h>
}

static const uint8_t chipRegister = 0x10;

void addPeers(Operations& operations)
{
    const int fd = ::open(i2cDevice, O_RDWR);

    add(operations, "I2C write", 1, "libi2c", [=] { return i2c_smbus_write_byte(fd, 'U') == 0; });
    add(operations, "I2C read", 1, "libi2c", [=] { return i2c_smbus_read_byte(fd) >= 0; });

    for (const uint8_t size : {uint8_t{1}, uint8_t{16}}) {
        add(operations, "I2C readRegister", size, "libi2c", [=, buffer = ByteArray(size)]() mutable {
            return i2c_smbus_read_i2c_block_data(fd, chipRegister, size, buffer.data()) == size;
        });
        add(operations, "I2C writeRegister", size, "libi2c", [=, data = ByteArray(size, 'U')] {
            return i2c_smbus_write_i2c_block_data(fd, chipRegister, size, data.data()) == 0;
        });
    }
}
