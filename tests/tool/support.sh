# shellcheck shell=sh disable=SC2016,SC2034,SC2154
# Functions for the commands of a session. $tmp is a folder for one command.

# Waits until the command succeeds, for about half a minute at most.
await() {
    tries=0
    until eval "$1" 2>/dev/null; do
        tries=$((tries + 1))
        if [ $tries -ge 1500 ]; then
            echo "timed out: $1" >&2
            return 1
        fi
        sleep 0.02
    done
}

# Runs the command while another program is the other end of $SLAVE; its standard output, from the second line on, is then
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

# Runs the command while /dev/ttyUSB0 is a port that sends back what it receives.
at_ttyUSB0() {
    other_end "exec $(example_of uart echo)" "(ln -s \$SLAVE /dev/ttyUSB0 && trap 'rm /dev/ttyUSB0' EXIT; $1)"
}

# The verbs that help lists, one per line: "i2c get".
verbs() {
    serialcomm | sed -nE 's/^serialcomm ((i2c|spi|uart) [a-z]+|list|doctor|batch) .*/\1/p'
}

# Runs the example of each help, as a dry run if it would open something.
try_examples() {
    cd "$tmp" && touch request.bin setup.txt
    verbs | while read -r verb; do
        case $verb in list) run='2>&1' ;; batch | doctor | 'spi info' | 'uart info' | 'uart set') run= ;; *) run=--dry-run ;; esac
        # shellcheck disable=SC2086 # a verb is words
        line=$(example_of $verb)
        case $verb in doctor | 'spi info' | 'uart info' | 'uart set') line="$line --help" ;; esac
        eval "$line $run" >/dev/null || echo "wrong: $line"
    done
}

# Runs the command and prints "same" if it has not changed the settings of a port: keeps_settings $SLAVE 'serialcomm ...'
keeps_settings() {
    settings=$(stty -F "$1" -g)
    kept=0
    eval "$2" || kept=$?
    [ "$(stty -F "$1" -g)" != "$settings" ] || echo same
    return "$kept"
}

# Writes $tmp/properties: a log in $tmp/log, with the arguments as further properties.
log_to_file() {
    printf 'log4cplus.%s\n' appender.F=log4cplus::FileAppender "appender.F.File=$tmp/log" \
        appender.F.layout=log4cplus::SimpleLayout "$@" >"$tmp/properties"
}

# A line of uart info of the board's port: uart_info settings
uart_info() {
    serialcomm uart info ttymxc0 | sed -n "/^$1:/p"
}

# Unbinds the driver of /dev/ttymxc0, and binds it again.
unplug() {
    echo 30860000.serial >/sys/bus/platform/drivers/imx-uart/unbind
}

plug() {
    echo 30860000.serial >/sys/bus/platform/drivers/imx-uart/bind
}

# Runs the commands, which start a process with a pipe as its input, and ends that process; descriptor 8 is the other end
# of the pipe.
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

# Prints the example in the help of a verb, and runs it.
example() {
    line=$(example_of "$@")
    echo "> $line"
    eval "$line"
}

# Changes to a folder with a program ./thermometer.
make_thermometer() {
    cd "$tmp" || return
    printf '#!/bin/sh\nserialcomm i2c get 4 0x48 0x00 2\n' >thermometer
    chmod +x thermometer
}

# Runs the command while the kernel driver at24 uses the EEPROM at 0x50 of bus 4.
with_at24() {
    bus=/sys/bus/i2c/devices/i2c-4
    insmod /lib/modules/at24.ko 2>/dev/null
    echo 24c02 0x50 >$bus/new_device
    result=0
    eval "$1" || result=$?
    echo 0x50 >$bus/delete_device
    return "$result"
}

# Starts the command with its output in $tmp/out, and waits until the process, $process, handles signals and has
# the file open.
start() {
    eval "exec $2" >"$tmp/out" 2>"$tmp/err" <"${input:-/dev/null}" &
    process=$!
    await "grep -q 'SigCgt:.*[ef]$' /proc/$process/status && ls -l /proc/$process/fd | grep -q -e '$1'"
}

# As start, and waits until the program has set up the port $SLAVE: it sets CLOCAL last.
start_on_port() {
    stty -F "$SLAVE" -clocal
    start "$SLAVE" "$1"
    await "stty -F $SLAVE -a | grep -q ' clocal'"
}

# Sends the signal and prints how the process ended within a second.
ends_on() {
    kill -s "$1" "$process"
    tries=0
    while kill -0 "$process" 2>/dev/null && [ "$(sed 's/.*) //; s/ .*//' "/proc/$process/stat" 2>/dev/null)" != Z ]; do
        tries=$((tries + 1))
        if [ $tries -ge 100 ]; then
            echo "still running after a second"
            kill -s KILL "$process"
        fi
        sleep 0.01
    done
    end_status=0
    { wait "$process" || end_status=$?; } 2>/dev/null
    echo "ended: $end_status"
    cat "$tmp/err" >&2
}

# 5000 bytes of text that begin with a number of four digits.
image() {
    seq "$1" $(($1 + 1249)) | tr -d '\n'
}

# Prints "the image" if standard input is this image.
is_image() {
    image "$1" >"$tmp/image"
    cmp - "$tmp/image" && echo "the image"
}

# Unbinds the spidev driver of a device, such as 2.1, and binds it again.
unbind() {
    echo "spi$1" >/sys/bus/spi/drivers/spidev/unbind
}

bind() {
    echo "spi$1" >/sys/bus/spi/drivers/spidev/bind
}

# Unbinds a device while the command has it open, and prints how the command ends.
unbound_during() {
    start "spidev$1\$" "$2"
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

# What the doctor finds on the words' bus, without what is no fault.
faults() {
    serialcomm doctor "$@" | sed '1d; /: disabled: /d; / in use by /d; s/kill [0-9]*/kill N/'
}

# Runs the commands that the doctor printed. On the board modules are files, and there is no usermod.
# shellcheck disable=SC1091,SC2317
repair() {
    sudo() { "$@"; }
    modprobe() { insmod "/lib/modules/$1.ko" 2>/dev/null || true; }
    usermod() { sed -i "s/^$2:.*/&$3/" /etc/group; }
    newgrp() { :; }
    sed -n 's/^  //p' >"$tmp/commands"
    . "$tmp/commands"
}

# Does the words as a user who is in no group but the own.
as_alice() {
    [ -e /etc/passwd ] || {
        mkdir -p /etc
        printf '%s\n' root:x:0:0::/:/bin/sh alice:x:1000:1000::/:/bin/sh >/etc/passwd
        printf '%s\n' root:x:0: alice:x:1000: dialout:x:20: >/etc/group
    }
    su alice -c "$1"
}

# What the doctor says to alice, who is in the group, in a session that began before.
session_before_group() {
    sed -i 's/^dialout:.*/dialout:x:20:/' /etc/group
    chmod 777 "$tmp"
    as_alice "touch $tmp/begun; until [ -e $tmp/member ]; do sleep 0.1; done; serialcomm doctor uart" >"$tmp/out" &
    await '[ -e $tmp/begun ]'
    sed -i 's/^dialout:.*/&alice/' /etc/group
    touch "$tmp/member"
    wait
    cat "$tmp/out"
}

# Does the words while a getty has /dev/ttymxc0.
with_getty() {
    setsid getty -L 115200 ttymxc0 vt100 </dev/null >/dev/null 2>&1 &
    await 'serialcomm doctor uart | grep -q getty'
    eval "$1"
}

# Does the words where device rules forbid a device: with_device_rule 'c 89:4 rw' 'serialcomm doctor'
with_device_rule() {
    mkdir -p /tmp/rules
    [ -e /tmp/rules/cgroup.procs ] || mount -t cgroup -o devices none /tmp/rules
    mkdir -p /tmp/rules/test
    echo "$1" >/tmp/rules/test/devices.deny
    (echo 0 >/tmp/rules/test/cgroup.procs && eval "$2") || true
    echo "$1" >/tmp/rules/test/devices.allow
}

# Does the words with an empty /dev, as a user without rights where the system permits that (not in a chroot).
with_empty_dev() {
    if unshare -Urm true 2>/dev/null; then
        unshare -Urm sh -c "mount -t tmpfs none /dev && $1"
    else
        unshare -m --propagation unchanged sh -c "mount --make-rprivate /dev && mount -t tmpfs none /dev && $1"
    fi
}

instances=/sys/kernel/tracing/instances

with_tracefs() {
    mount -t tracefs tracefs /sys/kernel/tracing 2>/dev/null || true
}

# What a watch prints, without times, process numbers and durations.
steady() {
    sed -E 's/^ *[0-9]+\.[0-9]{6}  //; s/\[[0-9]+\] +/[N]  /; s/  +[0-9.]+ (us|ms|s)(  \(.*|)$/\2/'
}

# watched ARGS...: the lines of serialcomm watch. Standard output of its program is dropped.
watched() {
    with_tracefs
    result=0
    serialcomm watch "$@" >"$tmp/lines" || result=$?
    grep -E '^ *[0-9]+\.[0-9]{6}  ' "$tmp/lines" | steady
    return "$result"
}

# Starts serialcomm watch with these arguments, as start does, and waits until it records.
start_watch() {
    with_tracefs
    start trace_pipe_raw "serialcomm watch $1" && await "[ \$(cat $instances/serialcomm-$process/events/spi/spi_message_done/enable) = 1 ]"
}

# Two watches at the same time: what each of them saw of the command.
watched_twice() {
    start_watch '--count 1'
    watched --count 1 -- sh -c "$1"
    wait "$process"
    steady <"$tmp/out"
}

# Watches with a buffer for few events, while the watch cannot read them.
watched_too_slowly() {
    start_watch ''
    echo 4 >"$instances/serialcomm-$process/buffer_size_kb"
    kill -s STOP "$process"
    serialcomm i2c get 4 0x48 0x00 2 --count 100 >/dev/null
    kill -s CONT "$process"
    await "grep -q lost $tmp/out"
    ends_on INT 2>"$tmp/ended"
    grep -o 'events of the kernel were lost here' "$tmp/out"
    sed 's/lost [0-9]* /lost N /' "$tmp/ended"
}

# Watches the EEPROM's kernel driver: which process read, how many bytes one message brought, and the first of them.
watched_eeprom() {
    with_tracefs
    with_at24 'serialcomm watch i2c 4 --json -- head -c 128 /sys/bus/i2c/devices/4-0050/eeprom >$tmp/out'
    tr -d '\0' <"$tmp/out" >"$tmp/objects"
    grep -o '"process":"head"' "$tmp/objects" | head -n 1
    grep -o '"length":128,"bytes":[^]]*]' "$tmp/objects" | head -n 1 | tr , '\n' | grep -c -v length
    grep -o '"bytes":.1,2,3,' "$tmp/objects"
}

# takes MILLISECONDS COMMAND...: fails if the command ends earlier.
takes() {
    milliseconds=$1
    shift
    begun=$(date +%s%3N)
    "$@"
    [ $(($(date +%s%3N) - begun)) -ge "$milliseconds" ]
}

# Recordings with a peer on a pseudo-terminal, in $tmp/s.
pyserial='/usr/bin/python3 programs/use_pyserial.py'
with_peer() {
    /usr/bin/python3 programs/with_peer.py "$@"
}
recorded() {
    sed '1,2d; s@pts/[0-9]*@PORT@; s/+[0-9.]*/+TIME/' "$tmp/s"
}
recorded_port() {
    echo "/dev/$(grep -o 'pts/[0-9]*' "$tmp/s" | head -n 1)"
}
