# shellcheck shell=bash
# For tests of scripts: a scratch folder, and comparison of what commands print. The test ends with: exit $((failures > 0))

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

failures=0
fail() {
    failures=$((failures + 1))
    printf 'FAILED: %s\n' "$@" >&2
}

# expect TITLE STATUS STDOUT STDERR COMMAND...: STDOUT is compared as a whole, STDERR is a pattern that must match.
expect() {
    local title=$1 status=$2 out=$3 err=$4 got_out got_status=0
    shift 4
    got_out=$("$@" 2>"$scratch/err" </dev/null; echo "exit $?")
    got_status=${got_out##*exit }
    got_out=${got_out%exit *}
    [ "$got_status" = "$status" ] || fail "$title: exit status $got_status, not $status: $(cat "$scratch/err")"
    [ "$got_out" = "${out:+$out$'\n'}" ] || fail "$title: output <$got_out>, not <$out>"
    # shellcheck disable=SC2053
    [[ $(cat "$scratch/err") == $err ]] || fail "$title: on standard error <$(cat "$scratch/err")>, not <$err>"
}

# Waits until the command succeeds, at most half a minute.
eventually() {
    for _ in {1..300}; do
        ! "$@" 2>/dev/null || return 0
        sleep 0.1
    done
    return 1
}

gone() {
    [ ! -e "$1" ]
}
