import sys

import serial

port = serial.Serial(sys.argv[1], 115200, timeout=5, parity=sys.argv[2])
port.write(b"*IDN?\n")
print(port.readline(), port.parity)
port.write(b"a")
port.write(b"\n")
print(port.read(2))
