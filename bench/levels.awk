# The second table of docs/performance.md from counts.tsv: what serialComm's own 16-byte operations cost by log level,
# each as instructions / heap allocations / system calls.
BEGIN {
    FS = "\t"
    print "| operation, 16 bytes | OFF | ERROR | TRACE into a null appender |"
    print "|---|---|---|---|"
}
$2 == 16 && $3 == "serialComm" {
    if (!($1 in seen)) { seen[$1]; order[++rows] = $1 }
    cost[$1, $4] = sprintf("%d / %d / %d", $5, $6, $7)
}
END {
    for (r = 1; r <= rows; ++r)
        print "| " order[r] " | " cost[order[r], "OFF"] " | " cost[order[r], "ERROR"] " | " cost[order[r], "TRACE"] " |"
}
