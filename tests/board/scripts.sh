#!/usr/bin/env bash
# Tests of scripts/board and the scripts that it calls: tests/board/scripts.sh
# Exit status: 0, 1 after failures, 77 if the board is not available on this system.
# shellcheck disable=SC2317 # functions that are passed to expect
set -uo pipefail
cd "$(dirname "$0")/../.." || exit
project=$(pwd -P)

. tests/support/expect.sh
one=test-$$-one two=test-$$-two
cleanup() {
    for name in $one $two; do
        BOARD=$name scripts/board stop
    done
    rm -rf "$scratch"
}
trap cleanup EXIT

board() {
    scripts/board "$@"
}
run() {
    scripts/board run "$@"
}
merged() {
    scripts/board run "$@" 2>&1
}
piped() {
    echo unread | scripts/board run "$@"
}

expect "an unknown option" 2 "" "scripts/board: no option --colour*" run --colour red true
expect "an option without its value" 2 "" "scripts/board: --timeout needs a value" run --timeout
expect "an owner that does not run" 2 "" "*--owner takes the id of a running process, not '0'*" board start --owner 0
expect "an invalid timeout" 2 "" "*takes seconds, not 'soon'" run --timeout soon true
expect "nothing to run" 2 "" "scripts/board: run what?*" run
expect "a shell without a terminal" 2 "" "*needs a terminal*" board
expect "a board name with slashes" 2 "" "*BOARD='../x' is not a name*" env BOARD=../x scripts/board start
expect "a name as argument of stop" 2 "" "scripts/board: stop takes no argument $one*" board stop $one
expect "the temperature of a stopped board" 2 "" "*no board $one is started*" env BOARD=$one scripts/board temperature 20

# Two boards at once.
export BOARD=$one
scripts/board start --owner $$ >"$scratch/started" 2>"$scratch/err"
status=$?
cat "$scratch/err" >&2
[ $status -ne 69 ] || exit 77
[ $status -eq 0 ] || fail "start: exit status $status"
export BOARD=$two
scripts/board start --owner $$ >"$scratch/two" 2>"$scratch/err" &
first=$!
expect "a second start at the same time" 2 "" "scripts/board: $two is started already*" \
    sh -c "until [ -e build/board/run/$two ]; do sleep 0.01; done; exec scripts/board start"
wait $first || fail "a second board does not start: $(cat "$scratch/err")"
export BOARD=$one
grep -qx "uart: /dev/pts/[0-9]* is the other end of /dev/ttymxc0" "$scratch/started" || fail "start names no pseudo-terminal"
expect "a second start" 2 "" "*$one is started already*" board start
expect "options for a started board" 2 "" "*started already, without these options*" run --device x true

# What a program receives, and what it returns.
# shellcheck disable=SC2016
printf '#!/bin/sh\necho "from elsewhere: $1"\n' >"$scratch/program"
chmod +x "$scratch/program"
shared=build/board/run/$one/shared
mkdir "$shared"
ln -s "$scratch/program" "$shared/link"
expect "it runs there" 0 "board aarch64" "" run uname -nm
arguments=('a b' "it's" $'two\nlines' '' "\$HOME \`id\`" \\ '"' '*' '--help' 'ü')
# shellcheck disable=SC2016
expect "arguments arrive intact" 0 "$(printf '<%s>' "${arguments[@]}")" "" \
    run sh -c 'printf "<%s>" "$@"; echo' sh "${arguments[@]}"
expect "exit status" 7 "" "" run sh -c 'exit 7'
expect "ended by a signal" 137 "" "*" run sh -c 'kill -KILL $$'
expect "Ctrl-C's signal is not ignored" 130 "" "*" run sh -c 'kill -INT $$; echo ignored'
expect "no such command of the guest" 127 "" "*not found*" run no-such-command
expect "no such file of the host" 127 "" "board/run: there is no program ./no-such-file" run ./no-such-file
expect "a program from outside the project" 0 "from elsewhere: x" "" run "$scratch/program" x
expect "a program behind a symbolic link" 0 "from elsewhere: x" "" run "$shared/link" x
expect "devices and permissions stay in the guest" 0 "-rwsr-xr-x crw-r--r--" "" \
    run sh -c "cd $shared; cp /bin/busybox setuid; chmod 4755 setuid; mknod node c 1 3; ls -l setuid node | cut -c1-10 | sort | xargs"
[ "$(stat -c %F:%a "$shared/node" "$shared/setuid" | xargs)" = "regular empty file:600 regular file:600" ] ||
    fail "the guest made a device node or a setuid file on the host: $(ls -l "$shared")"
expect "streams stay apart" 0 "out" "err" run sh -c 'echo out; echo err >&2'
expect "output to one file keeps its order" 0 $'1\n2\n3' "" merged sh -c 'echo 1; echo 2 >&2; echo 3'
expect "standard input is empty" 0 "" "" piped cat
expect "the working directory is the host's" 0 "$project/tests" "" env -C tests ../scripts/board run pwd
expect "large output" 0 "$(seq 100000)" "" run seq 100000
expect "output without a final newline" 0 "ab" "" run sh -c 'printf a; echo b'
expect "the drivers are there" 0 $'/dev/i2c-4\n/dev/spidev2.0\n/dev/spidev2.1\n/dev/ttymxc0' "" \
    run sh -c 'ls /dev/i2c-4 /dev/spidev2.* /dev/ttymxc0'

# The board's sensor and UART.
expect "a temperature" 0 "" "" board temperature 25.5
expect "a temperature below 0" 0 "" "" env BOARD=$two scripts/board temperature -10
expect "the first sensor measures its temperature" 0 "0x8019" "" run i2cget -y 4 0x48 0 w
expect "the second sensor measures its own" 0 "0x00f6" "" env BOARD=$two scripts/board run i2cget -y 4 0x48 0 w
expect "a temperature beyond the sensor" 1 "" "*out of range" board temperature 200
expect "an invalid temperature" 2 "" "*'1e3' is not a temperature*" board temperature 1e3

uart=build/board/run/$one/uart
run sh -c 'stty -F /dev/ttymxc0 raw -echo; echo written before anyone listens >/dev/ttymxc0'
expect "the board speaks before the host listens" 0 "written before anyone listens" "" timeout 60 head -n 1 "$uart"
run sh -c 'seq 100000 | head -c 65536 >/dev/ttymxc0'
expect "nothing of 64 KiB is lost" 0 "" "" cmp <(timeout 60 head -c 65536 "$uart") <(seq 100000 | head -c 65536)
echo "the host answers" >"$uart"
expect "the board listens" 0 "the host answers" "" run sh -c 'head -n 1 </dev/ttymxc0'
[ "$(stat -c %s "build/board/run/$one/flash.bin")" = 1048576 ] || fail "the flash's file has another size than the flash"

# A program that is interrupted leaves the board to the next one.
setsid scripts/board run sh -c 'echo here; sleep 61' >"$scratch/out" 2>&1 &
interrupted=$!
eventually grep -q here "$scratch/out" || fail "output does not come while the program runs"
kill -TERM $interrupted
wait $interrupted
[ $? -eq 130 ] || fail "interrupted: another exit status"
expect "after an interrupted program" 0 "0" "" run sh -c 'ps | grep -c "[s]leep 61"; true'

scripts/board run sh -c 'while echo again; true; do sleep 0.05; done' 2>"$scratch/err" | head -n 1 >"$scratch/out"
expect "after a program whose reader ended" 0 "" "" run sh -c 'while ps | grep -q "[e]cho again"; do sleep 0.1; done'

scripts/board run sh -c 'echo started; sleep 62' >"$scratch/out" 2>&1 &
killed=$!
eventually grep -q started "$scratch/out" || fail "the program to be killed did not start"
kill -KILL $killed
wait $killed 2>/dev/null
expect "after a call that was killed" 0 "0" "" run sh -c 'ps | grep -c "[s]leep 62"; true'
expect "the files of a killed call" 0 "0" "" sh -c "ls build/board/run/$one/jobs | wc -l"

# What ends a board, and that the other one is not affected.
state=build/board/run/$one
qemu=$(cat "$state/pid") socat=$(cat "$state/uart.pid")
expect "a program that hangs" 124 "before" "*ran longer than 5 seconds*psci*" \
    run --timeout 5 sh -c 'echo before; head -c 200k /dev/zero >/dev/ttymxc0'
gone "/proc/$qemu/cwd" || fail "the board that hung still runs"
gone "/proc/$socat/cwd" || fail "the pseudo-terminal of the board that hung is still there"
gone "$state" || fail "the board that hung left its state"
expect "the other board" 0 "board" "" env BOARD=$two scripts/board run hostname
expect "a board that ends by itself" 70 "" "*ended by itself*Power down*" env BOARD=$two scripts/board run poweroff -f
expect "stop after the end" 0 "" "" board stop

# A board for one command, with another chip on it.
expect "one command, another chip" 0 "0x00" "" run --device tmp105,bus=i2c-bus.4,address=0x49 i2cget -y 4 0x49 0
expect "a chip that QEMU does not know" 70 "" "*QEMU did not start*no-such-chip*" run --device no-such-chip true
expect "options that QEMU refuses" 70 "" "*QEMU did not start*bogus*" run --machine-args -bogus true
expect "a program that hangs, alone" 124 "" "*ran longer than 1 seconds*" run --timeout 1 sleep 61
scripts/board run sleep 61 &
killed=$!
eventually sh -c "ls build/board/run/once.$killed/jobs/*/command" >/dev/null || fail "no job of a single command"
left=$(cat "build/board/run/once.$killed/pid")
kill -KILL $killed
wait $killed 2>/dev/null
eventually gone "build/board/run/once.$killed" || fail "the state of a call that was killed is still there"
gone "/proc/$left/cwd" || fail "the board of a call that was killed still runs"

# A board whose watcher was killed, and whose owner is that call.
dead=build/board/run/test-$$-dead
mkdir "$dead"
echo $killed >"$dead/owner"
env -C "$dead" sleep 1000 &
left=$!
echo $left >"$dead/pid"
scripts/board run true &
next=$!
wait $next || fail "after a board without an owner: exit status $?"
gone "$dead" || fail "the state of a board without an owner is still there"
! kill -0 $left 2>/dev/null || fail "a board without an owner still runs"
gone "build/board/run/once.$next" || fail "a single command leaves something behind"

# The tool is built again when its sources have changed: the build decides.
mkdir -p "$scratch/tool/board" "$scratch/tool/scripts" "$scratch/tool/build/arm64/bin"
cp board/tool "$scratch/tool/board/"
# shellcheck disable=SC2016
printf '#!/bin/sh\necho "${0##*/} $*"\n' >"$scratch/tool/scripts/build"
printf '#!/bin/sh\n' >"$scratch/tool/scripts/need"
cp "$scratch/tool/scripts/need" "$scratch/tool/board/compiler"
cp "$scratch/tool/scripts/need" "$scratch/tool/build/arm64/bin/serialcomm"
chmod +x "$scratch"/tool/*/* "$scratch"/tool/build/arm64/bin/*
expect "a tool that exists" 0 "build arm64 serialcomm" "" "$scratch/tool/board/tool"

# The set-up of parts, with one that is made quickly.
mkdir -p "$scratch/project/board" "$scratch/project/scripts" "$scratch/bin"
cp board/have board/supported board/apt "$scratch/project/board/"
cp scripts/need scripts/packages "$scratch/project/scripts/"
made=$scratch/project/build/board/part maker=$scratch/project/board/make-part have=$scratch/project/board/have
cat >"$maker" <<'MAKER'
#!/usr/bin/env bash
echo making
echo half >"$1/half"
[ -e "$(dirname "$0")/whole" ] || kill -KILL $PPID
echo whole >"$1/whole"
MAKER
chmod +x "$maker"
expect "a set-up in a test" 69 "" "board/have: *tests download nothing; run: board/have part" \
    env CTEST_INTERACTIVE_DEBUG_MODE=1 "$have" part
unset CTEST_INTERACTIVE_DEBUG_MODE
expect "an interrupted set-up" 137 "making" "*" "$have" part
gone "$made" || fail "what was broken off is in place"
touch "$scratch/project/board/whole"
"$have" part >"$scratch/out" 2>&1 &
"$have" part >>"$scratch/out" 2>&1 &
wait
[ "$(grep -c making "$scratch/out")" = 1 ] || fail "two calls at once: not made by exactly one of them"
[ -e "$made/whole" ] || fail "the next call does not repair what was broken off"
expect "a part that exists" 0 "" "" "$have" part
sed -i 's/echo making/echo making anew/' "$maker"
expect "a part whose script has changed" 0 "making anew" "*" "$have" part

# shellcheck disable=SC2016
printf '#!/usr/bin/env bash\n"$(dirname "$0")/apt" "$1" trixie arm64 apt-get indextargets\n' >"$maker"
# Stands in for apt without network, which fails only with --error-on=any.
cat >"$scratch/bin/apt-get" <<'APT'
#!/bin/sh
case "$*" in
indextargets*) echo "trixie http://mirror.example/debian" ;;
*update*) echo "W: Failed to fetch http://mirror.example/debian"; case "$*" in *--error-on=any*) exit 100 ;; esac ;;
esac
APT
printf '#!/bin/sh\necho "Acquire::Retries \\"3\\";"\n' >"$scratch/bin/apt-config"
chmod +x "$scratch"/bin/*
expect "without network" 69 "" "*board/apt: no package lists of Debian trixie arm64: W: Failed to fetch*" \
    env PATH="$scratch/bin:$PATH" "$have" part
gone "$made.part" || fail "without network: something is half installed"
printf '#!/bin/sh\necho riscv64\n' >"$scratch/bin/dpkg"
chmod +x "$scratch/bin/dpkg"
expect "a host of another architecture" 69 "" "board/supported: *not riscv64" env PATH="$scratch/bin:$PATH" "$have" part

[ $failures -eq 0 ] && echo "scripts/board: all as expected"
exit $((failures > 0))
