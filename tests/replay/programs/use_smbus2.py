import smbus2

bus = smbus2.SMBus(4)
print(hex(bus.read_byte_data(0x48, 1)))
bus.write_byte_data(0x48, 1, 0x60)
print(bus.read_i2c_block_data(0x48, 0, 2))
print(bus.read_block_data(0x50, 0x10))
answer = smbus2.i2c_msg.read(0x50, 4)
bus.i2c_rdwr(smbus2.i2c_msg.write(0x50, [0]), answer)
print(list(answer))
try:
    bus.read_byte(0x51)
except OSError as error:
    print(error.strerror)
