# The first table of docs/performance.md from the lines of wide.awk: times relative to the bare call, instructions in
# brackets.
BEGIN {
    FS = "\t"
    print "| operation | bytes | bare | fresh vector | serialComm | Boost.Asio | libserialport | libi2c |"
    print "|---|---|---|---|---|---|---|---|"
}
{
    row = "| " $1 " | " ($2 > 0 ? $2 : "") " | " sprintf($3 < 100 ? "%.1f ns (%d)" : "%.0f ns (%d)", $3, $9)
    for (c = 4; c <= 8; ++c) row = row " | " cell($3, $c, $(c + 6))
    print row " |"
}
function cell(bare, nanoseconds, instructions) {
    if (nanoseconds == "-") return "–"
    if ($1 ~ /^UART/) return sprintf("%.2f (%d)", nanoseconds / bare, instructions)
    return sprintf("%+.0f ns (%d)", nanoseconds - bare, instructions)
}
