# The third table of docs/performance.md, from the lines of the program application.
BEGIN {
    FS = "\t"
    print "| on the emulated board | bare | serialComm |"
    print "|---|---|---|"
}
$2 == "bare" { bare = $3 }
$2 == "serialComm" { printf "| %s | %.0f µs | %.2f |\n", $1, bare / 1000, $3 / bare }
