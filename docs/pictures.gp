# Draws the pictures of the pages: scripts/pictures calls gnuplot with "folder" set.
# A signal is a string of levels, two for each bit: "0" low, "1" high, "z" not driven.
set terminal svg size 480,300 font 'sans-serif,14' linewidth 1.6
unset key
unset border
unset xtics
unset ytics
set lmargin 0
set rmargin 0
set tmargin 0
set bmargin 0
set style line 1 linecolor rgb '#2f7fc1'
set style line 2 linecolor rgb '#c2571a'
set style line 3 linecolor rgb '#808080' dashtype 3

level(s, i) = substr(s, i, i) eq '1' ? 1 : substr(s, i, i) eq '0' ? 0 : 0.5
at(s, x, base) = base + 0.7 * level(s, floor(x + 0.5))

# The bits of a byte as levels, most significant bit first.
bits(n) = bit(n, 7) . bit(n, 6) . bit(n, 5) . bit(n, 4) . bit(n, 3) . bit(n, 2) . bit(n, 1) . bit(n, 0)
bit(n, i) = (int(n) / int(2 ** i)) % 2 == 1 ? '11' : '00'

# ---- I2C: the address and one byte
set output folder . '/i2c.svg'
address = '110' . bits(0x91) . '00' . '0'
scl1 = '111' . '0101010101010101' . '01' . '0'
data = '0' . bits(0x19) . '11' . '001'
scl2 = '0' . '0101010101010101' . '01' . '011'
set xrange [-2.2:23]
set yrange [-1.2:7]
set label 1 'SDA' at -2, 5.85
set label 2 'SCL' at -2, 4.65
set label 3 'SDA' at -2, 2.05
set label 4 'SCL' at -2, 0.85
set label 11 'start' at 0.6, 3.8 textcolor '#808080'
set label 12 'address 48, the chip acknowledges' at 6, 3.8 textcolor '#808080'
set label 14 'the chip sends 19; no more, stop' at 4.2, -0.1 textcolor '#808080'
set label 15 'S 48 R [1] P' at 2, -0.9 font 'monospace,14'
names1 = '1 0 0 1 0 0 0 R A'
names2 = '0 0 0 1 1 0 0 1 NA'
do for [i = 1:9] {
    set label 20 + i word(names1, i) at 2 * i + 2.5, 6.75 center
    set label 40 + i word(names2, i) at 2 * i + 0.5, 2.95 center
}
set samples 400
plot sample [x=1:strlen(address)] '+' using (x):(at(address, x, 5.5)) with lines linestyle 1, \
     [x=1:strlen(scl1)] '+' using (x):(at(scl1, x, 4.3)) with lines linestyle 2, \
     [x=1:strlen(data)] '+' using (x):(at(data, x, 1.7)) with lines linestyle 1, \
     [x=1:strlen(scl2)] '+' using (x):(at(scl2, x, 0.5)) with lines linestyle 2
unset label

# ---- SPI: a command and the byte that follows, mode 0
set output folder . '/spi.svg'
set xrange [-3.6:36]
set yrange [-1.4:6]
cs = '1' . '0000000000000000' . '0000000000000000' . '00' . '1'
clock = '00' . '01010101010101010101010101010101' . '0'
mosi = 'z' . bits(0x9f) . bits(0x00) . '0' . 'z'
miso = 'z' . 'zzzzzzzzzzzzzzzz' . bits(0xef) . '1' . 'z'
set label 1 'CS' at -3.3, 5.05
set label 2 'SCK' at -3.3, 3.75
set label 3 'MOSI' at -3.3, 2.45
set label 4 'MISO' at -3.3, 1.15
set label 5 '9f' at 6.5, 3.0 center
set label 6 'zeros' at 25.5, 2.5 center
set label 7 'ef' at 25.5, 1.77 center
set label 8 'MOSI 9f 00' at 1.5, -0.2 font 'monospace,14'
set label 9 'MISO -- x 1 [1]' at 1.5, -0.95 font 'monospace,14'
plot sample [x=1:strlen(cs)] '+' using (x):(at(cs, x, 4.7)) with lines linestyle 2, \
     [x=1:strlen(clock)] '+' using (x):(at(clock, x, 3.4)) with lines linestyle 2, \
     [x=1:strlen(mosi)] '+' using (x):(at(mosi, x, 2.1)) with lines linestyle 1, \
     [x=1:strlen(miso)] '+' using (x):(at(miso, x, 0.8)) with lines linestyle 1
unset label

# ---- Serial ports: the letter A without and with parity
set output folder . '/uart.svg'
set xrange [-4.4:27]
set yrange [-1.4:6]
none = '11' . '00' . '1100000000001100' . '11' . '1111'
even = '11' . '00' . '1100000000001100' . '00' . '11' . '11'
set label 1 '8N1' at -4, 4.2
set label 2 '8E1' at -4, 1.4
namesN = 'start D0 D1 D2 D3 D4 D5 D6 D7 stop'
namesE = 'start D0 D1 D2 D3 D4 D5 D6 D7 par. stop'
do for [i = 1:10] { set label 20 + i word(namesN, i) at 2 * i + 1.5, 5.0 center font 'sans-serif,12' }
do for [i = 1:11] { set label 40 + i word(namesE, i) at 2 * i + 1.5, 2.2 center font 'sans-serif,12' }
set label 3 'A: 0x41, lowest bit first' at 3, 0.3 textcolor '#808080'
set label 4 '41  115200 8N1' at 3, -0.9 font 'monospace,14'
plot sample [x=1:strlen(none)] '+' using (x):(at(none, x, 3.85)) with lines linestyle 1, \
     [x=1:strlen(even)] '+' using (x):(at(even, x, 1.05)) with lines linestyle 1
unset label

# ---- RS-485: the pair of wires, and who drives it
set output folder . '/rs485.svg'
set xrange [-5.5:41]
set yrange [-0.8:6.2]
a = 'zz' . '11' . '00110000000000110011' . '1' . 'z' . 'zzzzz' . '00001100110000' . '1' . 'zz'
b = 'zz' . '00' . '11001111111111001100' . '0' . 'z' . 'zzzzz' . '11110011001111' . '0' . 'zz'
driver = '00' . '11' . '11111111111111111111' . '1' . '0' . '00000' . '00000000000000' . '0' . '00'
set label 1 'RTS' at -5.2, 5.05
set label 2 'A' at -5.2, 3.55
set label 3 'B' at -5.2, 2.05
set label 4 'this end sends' at 14, 1.2 center textcolor '#808080'
set label 5 'the other end' at 34, 1.2 center textcolor '#808080'
set label 6 'RTS enables the transmitter; it must be off' at 1, 0.4
set label 7 'before the answer begins.' at 1, -0.3
plot sample [x=1:strlen(driver)] '+' using (x):(at(driver, x, 4.7)) with lines linestyle 2, \
     [x=1:strlen(a)] '+' using (x):(at(a, x, 3.2)) with lines linestyle 1, \
     [x=1:strlen(b)] '+' using (x):(at(b, x, 1.7)) with lines linestyle 1
unset label

# ---- The wiring of the tutorial
set output folder . '/wiring.svg'
set xrange [0:48]
set yrange [0:30]
set label 1 'your board' at 6.5, 28 center
set label 2 'TMP105, A0 to GND' at 39, 28 center
names = '3.3V SDA SCL GND'
pins = 'V+ SDA SCL GND'
do for [i = 1:4] {
    set label 10 + i word(names, i) at 11.5, 29 - 6 * i right
    set label 20 + i word(pins, i) at 36.5, 29 - 6 * i left
    set arrow i from 13, 29 - 6 * i to 35, 29 - 6 * i nohead linestyle (i == 1 || i == 4 ? 2 : 1)
}
set arrow 5 from 20, 23 to 20, 17 nohead linestyle 2
set arrow 6 from 27, 23 to 27, 11 nohead linestyle 2
set object 1 rectangle from 19.2, 18.8 to 20.8, 21.4 fillstyle solid noborder fillcolor rgb '#c2571a'
set object 2 rectangle from 26.2, 18.8 to 27.8, 21.4 fillstyle solid noborder fillcolor rgb '#c2571a'
set label 3 '4.7 kΩ' at 28.4, 20
set label 4 'Many modules have the two resistors already.' at 24, 1.5 center textcolor '#808080'
set arrow 7 from 1, 26 to 13, 26 nohead linestyle 3
set arrow 8 from 13, 26 to 13, 3.5 nohead linestyle 3
set arrow 9 from 13, 3.5 to 1, 3.5 nohead linestyle 3
set arrow 10 from 1, 3.5 to 1, 26 nohead linestyle 3
set arrow 11 from 35, 26 to 47, 26 nohead linestyle 3
set arrow 12 from 47, 26 to 47, 3.5 nohead linestyle 3
set arrow 13 from 47, 3.5 to 35, 3.5 nohead linestyle 3
set arrow 14 from 35, 3.5 to 35, 26 nohead linestyle 3
plot NaN
unset label
unset arrow
unset object

# ---- Levels and pull-ups: how a line of 200 pF rises to 3.3 V
set output folder . '/levels.svg'
set border 3
set lmargin 6
set bmargin 3
set rmargin 2
set tmargin 1
set xrange [0:2.5]
set yrange [0:3.6]
set xtics 0.5 nomirror
set ytics (0, '0.3 Vdd' 0.99, '0.7 Vdd' 2.31, '3.3 V' 3.3) nomirror
set lmargin 9
set xlabel 'microseconds after the line was released'
set label 1 '1 kΩ' at 0.42, 2.75
set label 2 '4.7 kΩ' at 0.95, 2.0
set label 3 '10 kΩ' at 1.95, 1.75
set label 4 'a bit at 400 kHz: 2.5 µs' at 2.45, 0.3 right textcolor '#808080'
rise(r, t) = 3.3 * (1 - exp(-t / (r * 0.2)))
plot rise(1.0, x) linestyle 1, rise(4.7, x) linestyle 1, rise(10.0, x) linestyle 1, \
     0.99 linestyle 3, 2.31 linestyle 3
