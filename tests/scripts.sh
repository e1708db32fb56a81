#!/usr/bin/env bash
# Tests of scripts/need, build and test, of the session runner and of tests/summary, with stand-ins for apt, cmake and the
# like: tests/scripts.sh
# shellcheck disable=SC2016 # the stand-ins expand
set -uo pipefail
cd "$(dirname "$0")/.." || exit
. tests/support/expect.sh
unset CTEST_INTERACTIVE_DEBUG_MODE

# A clone with its own list of packages, and stand-ins for programs of the system: stand_in NAME, with the script on standard
# input.
clone=$scratch/clone bin=$scratch/bin
mkdir -p "$clone/scripts" "$bin"
cp scripts/{need,build,test} "$clone/scripts/"
stand_in() {
    {
        echo '#!/bin/sh'
        cat
    } >"$bin/$1"
    chmod +x "$bin/$1"
}
export PATH=$bin:$PATH scratch

# scripts/need
printf '# Packages\nbuild: one two\ntest:  three\n' >"$clone/scripts/packages"
need=$clone/scripts/need
echo 'echo 0' | stand_in id
echo '[ -e "$scratch/installed.${4}" ] && echo installed' | stand_in dpkg-query
stand_in apt-get <<'APT'
echo "$*" >>"$scratch/apt.log"
if [ -e "$scratch/locked" ]; then
    rm "$scratch/locked"
    echo "E: Could not get lock /var/lib/apt/lists/lock. It is held by process 7 (apt-get)"
    exit 100
fi
mkdir "$scratch/at-work" || exit 100
sleep 0.2
rmdir "$scratch/at-work"
for word in "$@"; do
    case $word in
    one | two) touch "$scratch/installed.$word" ;;
    three) echo "E: Unable to locate package three"; exit 100 ;;
    esac
done
APT
expect "an unknown purpose" 1 "" "scripts/need: no packages are listed for 'play'; see scripts/packages" "$need" play
expect "need in a test" 1 "" "scripts/need: one two missing, and tests install nothing; run: scripts/need build" \
    env CTEST_INTERACTIVE_DEBUG_MODE=1 "$need" build
gone "$scratch/apt.log" || fail "a test calls apt-get"
touch "$scratch/locked"
"$need" build 2>"$scratch/first" &
first=$!
"$need" build 2>"$scratch/second" || fail "the second of two calls fails: $(cat "$scratch/second")"
wait $first || fail "the first of two calls fails: $(cat "$scratch/first")"
[ "$(grep -c install "$scratch/apt.log")" = 1 ] || fail "two calls install: $(cat "$scratch/apt.log")"
[ "$(cat "$scratch"/{first,second} | grep -c "waiting up to five minutes for another apt: .*process 7 (apt-get)")" = 1 ] ||
    fail "waiting for another apt is not reported once"
expect "nothing is missing" 0 "" "" "$need" build
expect "a package that does not exist" 1 "" \
    $'Installing three\nscripts/need: apt-get install failed: E: Unable to locate package three; as root: apt-get install three' \
    "$need" build test
echo 'echo 1000' | stand_in id
expect "without root" 1 "" "scripts/need: packages are missing; as root: apt-get install three" "$need" test
purposes=$(grep -hoE '^[^#]*scripts/need"? [a-z ]+' scripts/* board/* tests/package/* 2>/dev/null | sed 's/.*need"* //' | xargs)
for purpose in $purposes; do
    grep -q "^$purpose:" scripts/packages || fail "scripts/packages lists nothing for $purpose"
done

# scripts/build
stand_in cmake <<'CMAKE'
mkdir "$scratch/at-work" || exit 1
sleep 0.2
rmdir "$scratch/at-work"
case $* in *broken*) echo "error: broken"; exit 1 ;; esac
CMAKE
"$clone/scripts/build" release all &
first=$!
expect "a second build" 0 "" "*waiting for process $first, which builds in build/release" \
    sh -c "until [ -s '$clone/build/release/lock' ]; do sleep 0.01; done; exec '$clone/scripts/build' release all"
wait $first || fail "the first of two builds fails"
expect "a build that fails" 1 "" $'error: broken\nscripts/build: the build of release failed; see above' \
    "$clone/scripts/build" release broken
expect "nothing to build" 2 "" "scripts/build: build what?*" "$clone/scripts/build" release

# scripts/test
expect "an unknown argument" 2 "" "scripts/test: unknown argument --fast; usage: *" "$clone/scripts/test" --fast
exec 9>"$clone/build/test.lock"
flock 9
echo 4711 >"$clone/build/test.lock"
expect "a second test" 1 "" "scripts/test: process 4711 is testing in this clone; *" "$clone/scripts/test"
exec 9<&-

# The session runner, with a folder for temporary files that has a space in its name.
mkdir "$scratch/a" "$scratch/a b"
printf '$ echo $tmp/file | tee "$tmp/file"\nTMP/file\n' >"$scratch/session"
expect "a session" 0 "1 commands" "" env TMPDIR="$scratch/a b" tests/tool/session "$scratch/session" "$bin"
[ -d "$scratch/a" ] || fail "a session removes a folder that is not its own"
[ -z "$(ls "$scratch/a b")" ] || fail "a session leaves files behind"

# tests/summary
mkdir -p "$scratch/results/build/release"
cat >"$scratch/results/build/release/tests.xml" <<'JUNIT'
<testsuite tests="5">
<testcase name="good" status="run"><system-out>fine</system-out></testcase>
<testcase name="bad" status="fail"><failure message=""/></testcase>
<testcase name="lost" status="notrun"><skipped message="Unable to find executable"/></testcase>
<testcase name="pty" status="notrun"><skipped message="SKIP_REGULAR_EXPRESSION_MATCHED"/>
<system-out>[ RUN      ] Pty
PtyTest.cpp:7: Skipped
no pseudo-terminals here

[  SKIPPED ] Pty (0 ms)</system-out></testcase>
<testcase name="session" status="notrun"><skipped message="SKIP_RETURN_CODE=77"/>
<system-out>skipped: [ -e /dev/i2c-4 ]
</system-out></testcase>
</testsuite>
JUNIT
expect "a summary" 1 "release:    1 passed, 2 failed, 2 skipped
    failed:  bad
    failed:  lost
    skipped: pty: no pseudo-terminals here
    skipped: session: [ -e /dev/i2c-4 ]
arm64:      0 passed, 0 failed, 1 skipped
    skipped: all tests: no network
asan:       0 passed, 1 failed, 0 skipped
    failed:  ctest wrote no results; see build/asan/tests.log
1 passed, 3 failed, 3 skipped" "" env -C "$scratch/results" "$PWD/tests/summary" release "arm64: no network" asan

exit $((failures > 0))
