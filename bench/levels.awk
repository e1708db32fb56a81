# The second table of docs/performance.md from counts.tsv and counts-arm64.tsv: the cost of serialComm's 16-byte operations,
# by log level, as instructions / heap allocations / system calls, and for AArch64.
BEGIN {
    FS = "\t"
    print "| operation, 16 bytes | OFF | ERROR | TRACE into a null appender | AArch64, OFF: bare | fresh vector | serialComm |"
    print "|---|---|---|---|---|---|---|"
}
$2 != 16 { next }
FNR != NR { if ($4 == "OFF") arm64[$1, $3] = $5; next }
$3 == "serialComm" {
    if (!($1 in seen)) { seen[$1]; order[++rows] = $1 }
    cost[$1, $4] = sprintf("%d / %d / %d", $5, $6, $7)
}
END {
    for (r = 1; r <= rows; ++r) {
        o = order[r]
        print "| " o " | " cost[o, "OFF"] " | " cost[o, "ERROR"] " | " cost[o, "TRACE"] " | " known(arm64[o, "bare"]) " | " \
              known(arm64[o, "fresh vector"]) " | " known(arm64[o, "serialComm"]) " |"
    }
}
function known(value) { return value == "" ? "–" : value }
