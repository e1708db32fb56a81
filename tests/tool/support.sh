# shellcheck shell=sh disable=SC2016,SC2034,SC2154
# For the commands of a session. $tmp is a folder of the command's own.

# Waits until the words, a command, succeed; at most half a minute or so.
await() {
    tries=0
    until eval "$1" 2>/dev/null; do
        tries=$((tries + 1))
        if [ $tries -ge 1500 ]; then
            echo "waited in vain: $1" >&2
            return 1
        fi
        sleep 0.02
    done
}

# Does the words while a program of ours is the other end of $SLAVE; its standard output, from the second line on, is then
# in $tmp/other. other_end 'serialcomm uart echo pty' 'serialcomm uart ask $SLAVE hi'
other_end() {
    eval "$1" >"$tmp/pty" 2>"$tmp/pty.err" &
    other=$!
    await '[ -s "$tmp/pty" ]' || return
    SLAVE=$(head -n 1 "$tmp/pty")
    result=0
    eval "$2" || result=$?
    other_status=0
    {
        kill "$other"
        wait "$other" || other_status=$?
    } 2>/dev/null
    tail -n +2 "$tmp/pty" >"$tmp/other"
    return "$result"
}

with_echo() {
    other_end 'exec serialcomm uart echo pty' "$1"
}

# Does the words while /dev/ttyUSB0 leads to a port that sends back what comes.
at_ttyUSB0() {
    other_end "exec $(example_of uart echo)" "(ln -s \$SLAVE /dev/ttyUSB0 && trap 'rm /dev/ttyUSB0' EXIT; $1)"
}

# The verbs that help lists, a line each: "i2c get".
verbs() {
    serialcomm | sed -nE 's/^serialcomm ((i2c|spi|uart) [a-z]+|list|batch) .*/\1/p'
}

# Tries what each help gives as its example, as a dry run where something would be opened.
try_examples() {
    cd "$tmp" && touch request.bin setup.txt
    verbs | while read -r verb; do
        case $verb in list) run='2>&1' ;; batch | 'spi info') run= ;; *) run=--dry-run ;; esac
        # shellcheck disable=SC2086 # a verb is words
        line=$(example_of $verb)
        case $verb in 'spi info') line="$line --help" ;; esac
        eval "$line $run" >/dev/null || echo "wrong: $line"
    done
}

# Does the words and says whether the settings of a port are then as before: keeps_settings $SLAVE 'serialcomm ...'
keeps_settings() {
    settings=$(stty -F "$1" -g)
    kept=0
    eval "$2" || kept=$?
    [ "$(stty -F "$1" -g)" != "$settings" ] || echo same
    return "$kept"
}

# Writes $tmp/properties: a log in $tmp/log, with the words as further properties.
log_to_file() {
    printf 'log4cplus.%s\n' appender.F=log4cplus::FileAppender "appender.F.File=$tmp/log" \
        appender.F.layout=log4cplus::SimpleLayout "$@" >"$tmp/properties"
}

# Takes the driver from /dev/ttymxc0, and gives it back.
unplug() {
    echo 30860000.serial >/sys/bus/platform/drivers/imx-uart/unbind
}

plug() {
    echo 30860000.serial >/sys/bus/platform/drivers/imx-uart/bind
}

# Does the words, which start a process with a pipe as its input, and ends it; what is written to descriptor 8 comes
# through the pipe.
with_keys() {
    mkfifo "$tmp/keys"
    exec 8<>"$tmp/keys"
    input=$tmp/keys
    eval "$1"
    kill "$process"
}

example_of() {
    serialcomm "$@" --help | sed -n 's/^Example: //p'
}

# Does what the help of a verb gives as its example, under the line itself.
example() {
    line=$(example_of "$@")
    echo "> $line"
    eval "$line"
}

# Does the words while the kernel driver at24 has the EEPROM at 0x50 of bus 4.
with_at24() {
    bus=/sys/bus/i2c/devices/i2c-4
    insmod /lib/modules/at24.ko 2>/dev/null
    echo 24c02 0x50 >$bus/new_device
    result=0
    eval "$1" || result=$?
    echo 0x50 >$bus/delete_device
    return "$result"
}

# Starts the words with their output in $tmp/out, and waits until the process, $process, heeds signals and has
# the file open.
start() {
    eval "exec $2" >"$tmp/out" 2>"$tmp/err" <"${input:-/dev/null}" &
    process=$!
    await "grep -q 'SigCgt:.*[ef]$' /proc/$process/status && ls -l /proc/$process/fd | grep -q -e '$1'"
}

# Sends the signal and says how the process ended, within a second.
ends_on() {
    kill -s "$1" "$process"
    tries=0
    while kill -0 "$process" 2>/dev/null && [ "$(sed 's/.*) //; s/ .*//' "/proc/$process/stat" 2>/dev/null)" != Z ]; do
        tries=$((tries + 1))
        if [ $tries -ge 100 ]; then
            echo "still there after a second"
            kill -s KILL "$process"
        fi
        sleep 0.01
    done
    end_status=0
    { wait "$process" || end_status=$?; } 2>/dev/null
    echo "ended: $end_status"
    cat "$tmp/err" >&2
}

# 5000 bytes of text, which begin with a number of four digits.
image() {
    seq "$1" $(($1 + 1249)) | tr -d '\n'
}

# Says whether standard input is this image.
is_image() {
    image "$1" >"$tmp/image"
    cmp - "$tmp/image" && echo "the image"
}

# Takes spidev's driver away from a device, 2.1, and gives it back.
unbind() {
    echo "spi$1" >/sys/bus/spi/drivers/spidev/unbind
}

bind() {
    echo "spi$1" >/sys/bus/spi/drivers/spidev/bind
}

# Unbinds a device while the words have it open, and prints how they end.
unbound_during() {
    start "$1" "$2"
    unbind "$1"
    wait "$process"
    echo "ended: $?"
    cat "$tmp/err" >&2
    bind "$1"
}

# node NAME MAJOR MINOR MODE [GROUP]: makes a character device in $tmp, which everybody may enter.
node() {
    chmod 755 "$tmp"
    mknod "$tmp/$1" c "$2" "$3"
    chgrp "${5-root}" "$tmp/$1"
    chmod "$4" "$tmp/$1"
}

# as_nobody ARGS...: serialcomm as a user without groups.
as_nobody() {
    setpriv --reuid=nobody --regid=nogroup --clear-groups serialcomm "$@"
}
