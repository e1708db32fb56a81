# The third table of docs/performance.md from the output of wide.awk for the program time_board.
BEGIN {
    FS = "\t"
    print "| on the emulated board | bytes | bare | fresh vector | serialComm |"
    print "|---|---|---|---|---|"
}
{ printf "| %s | %s | %.0f µs | %s | %.2f |\n", $1, ($2 > 0 ? $2 : ""), $3 / 1000, ratio($4), $5 / $3 }
function ratio(nanoseconds) { return nanoseconds == "-" ? "–" : sprintf("%.2f", nanoseconds / $3) }
