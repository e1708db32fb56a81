# One line for each operation and size, from times.tsv and counts.tsv: the nanoseconds and then the instructions of every
# contestant, "-" if there is none.
BEGIN {
    FS = OFS = "\t"
    contestants = split("bare,fresh vector,serialComm,Boost.Asio,libserialport,libi2c", contestant, ",")
}
{ key = $1 OFS $2 }
NF == 4 && !(key in seen) { seen[key]; order[++rows] = key }
NF == 4 { nanoseconds[key, $3] = $4 }
NF == 7 && $4 == "OFF" { instructions[key, $3] = $5 }
END {
    for (r = 1; r <= rows; ++r) {
        row = order[r]
        for (c = 1; c <= contestants; ++c) row = row OFS value(nanoseconds, order[r], contestant[c])
        for (c = 1; c <= contestants; ++c) row = row OFS value(instructions, order[r], contestant[c])
        print row
    }
}
function value(table, key, name) { return (key, name) in table ? table[key, name] : "-" }
