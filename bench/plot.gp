# The chart of docs/performance.md from the lines of wide.awk: gnuplot -e "wide='FILE'" bench/plot.gp
set terminal svg size 960,860 font 'sans-serif,14'
set datafile separator '\t'
set datafile missing '-'
set multiplot layout 2,1
set style fill solid noborder
set border 3
set tics nomirror out
set xtics scale 0
set grid y lc rgb '#808080'
set key top left Left reverse

ours = '#1f77b4'; asio = '#9e9e9e'; libserialport = '#e0a030'; vector = '#9ecae1'; bare = '#808080'

set title "UART over a pseudo-terminal: time of one call, the bare system call = 1" font ',16'
set style data histogram
set style histogram clustered gap 1
set boxwidth 0.9
set yrange [0:3.5]
set ylabel 'times the bare system call'
set arrow from graph 0, first 1 to graph 1, first 1 nohead lc rgb bare dt 2
sizes = '< grep -P "^UART (write|read)\t" '.wide
label(name, size) = sprintf("%s\n%s", name[6:], size eq '1' ? '1 byte' : size.' bytes')
plot sizes using ($5/$3):xtic(label(strcol(1), strcol(2))) title 'serialComm' lc rgb ours, \
     sizes using ($6/$3) title 'Boost.Asio' lc rgb asio, \
     sizes using ($7/$3) title 'libserialport' lc rgb libserialport
unset arrow

set title "Instructions of a 16-byte call, logging off: what they are spent on" font ',16'
set style histogram rowstacked
set boxwidth 0.6
set yrange [0:500]
set ylabel 'user-space instructions'
set key top left Left reverse invert
set bmargin 5
rows = '< grep -P "\t16\t" '.wide
split(name) = name[1:4]."\n".(strlen(name) > 14 ? name[5:strlen(name) - 8]."\nRegister" : name[5:])
withVector(c) = valid(c) ? column(c) : column(9)
plot rows using 9:xtic(split(strcol(1))) title 'the bare call' lc rgb bare, \
     rows using (withVector(10) - $9) title 'a fresh, zeroed vector for the bytes' lc rgb vector, \
     rows using ($11 - withVector(10)) title "serialComm's own; but for writeRead and UART, mostly the disabled trace statements" \
          lc rgb ours
