import spidev

spi = spidev.SpiDev()
spi.open(2, 0)
spi.max_speed_hz = 500000
spi.mode = 3
print(spi.xfer2([0x9F, 0, 0, 0]), spi.readbytes(2), spi.mode, spi.max_speed_hz)
spi.writebytes([6])
