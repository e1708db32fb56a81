#!/usr/bin/env bash
# Checks the symbols that a built library exports and imports, and the order of its initialisers: exports.sh LIBRARY
set -euo pipefail

library=$1
status=0

expect() {
    local what=$1 wanted=$2 found=$3
    if ! diff -u --label "$what: wanted" --label "$what: found" <(echo "$wanted") <(echo "$found"); then
        status=1
    fi
}

defined=$(nm -DC --defined-only "$library" | cut -d' ' -f3-)
expect "exports other than the four classes" "" \
    "$(grep -vE '^((SyncSerialBase|I2c|Spi|Uart)::|(vtable|typeinfo|typeinfo name) for (SyncSerialBase|I2c|Spi)$)' <<<"$defined" || true)"
expect "operations" "I2c::I2c I2c::init I2c::read I2c::readRegister I2c::setMaxSpeed I2c::write I2c::writeRead \
I2c::writeRegister I2c::~I2c Spi::Spi Spi::init Spi::read Spi::setMaxSpeed Spi::write Spi::writeRead Spi::~Spi \
SyncSerialBase::~SyncSerialBase Uart::Uart Uart::init Uart::read Uart::write Uart::~Uart" \
    "$(grep '::' <<<"$defined" | sed 's/(.*//' | grep -v ' ' | LC_ALL=C sort -u | xargs)"
expect "tables and type information" "9" "$(grep -cE '^(vtable|typeinfo|typeinfo name) for ' <<<"$defined")"
expect "soname" "libvexo_serialComm.so" "$(readelf -d "$library" | sed -n 's/.*soname: \[\(.*\)\]/\1/p')"
expect "system calls, by these symbols" \
    "cfsetispeed cfsetospeed close grantpt ioctl open ptsname read tcflush tcgetattr tcsetattr unlockpt write" \
    "$(nm -D --undefined-only "$library" | sed 's/.* //; s/@.*//' |
        grep -E '^_*(cfset.*speed|close|grantpt|ioctl|open|ptsname|read|tc[a-z]*|unlockpt|write)[0-9a-z_]*$' | sort | xargs)"
expect "the host's function" "w" "$(nm -DC --undefined-only "$library" | sed -n 's/^ *\(.\) dbglog_scopedFunction(.*/\1/p')"

# The loader runs the functions of .init_array in order; their addresses are in the relocations.
initialisers=$(nm "$library" | sed -n 's/^0*\([0-9a-f]*\) t _GLOBAL__sub_I_\([A-Z].*\.cpp\)$/\1 \2/p')
expect "initialisers, in this order" "I2c.cpp Spi.cpp Uart.cpp" \
    "$(readelf -rW "$library" | awk 'NR == FNR { name[$1] = $2; next } $NF in name { print name[$NF] }' \
        <(echo "$initialisers") - | xargs)"
expect "logger handles, one per source file" "3" "$(nm -C "$library" | grep -c ' b logger$')"
exit $status
