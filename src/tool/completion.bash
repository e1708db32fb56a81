# bash completion for serialcomm. Verbs, options and what options take are read from the program's own help, devices from
# "serialcomm list"; only the baud rates stand here.
# shellcheck shell=bash disable=SC2207 # no candidate holds a blank

_serialcomm() {
    local program=${COMP_WORDS[0]} current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
    local words=() word help value=""
    help=$("$program" --help 2>/dev/null)
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        if [ -n "$value" ]; then
            value=""
        elif [[ $word == -* ]]; then
            value=$(grep -E "^  (-.,)?$word(,--[a-z-]+)? [A-Z]" <<<"$help")
        else
            words+=("$word")
            [ ${#words[@]} -gt 2 ] || help=$("$program" "${words[@]}" --help 2>/dev/null)
        fi
    done

    local call=("${words[@]:0:2}") candidates="" values=""  # bus and verb, or list

    # "  --parity P   none, even or odd; none when left out": the words in front of the semicolon
    if [[ $previous == --* ]]; then
        values=$(sed -nE "s/^  (-.,)?$previous [A-Z]+ +([^;]*: )?([^;]*).*/\3/p" <<<"$help")
    fi
    case $previous in
        -b | --baud)
            candidates="110 150 200 300 600 1200 2400 4800 9600 19200 38400 57600 115200 230400 460800 500000 576000
                921600 1000000 1152000 1500000 2000000 2500000 3000000 3500000 4000000"
            ;;
        --log | --log-config)
            compopt -o default
            ;;
        *)
            if [[ $values =~ ^[a-z0-9]+(,\ [a-z0-9]+)*\ or\ [a-z0-9]+$ ]]; then
                values=${values//,/}
                candidates=${values/ or / }
            elif [ -n "$values" ]; then
                : # a number, or a text of the user's
            elif [[ $current == -* ]]; then
                candidates=$(sed -nE 's/^  (-[^ ]+) .*/\1/p' <<<"$help" | tr , '\n')
            elif [ ${#words[@]} -eq 0 ]; then
                candidates=$(sed -nE 's/^serialcomm ([a-z0-9]+) .*/\1/p' <<<"$help" | uniq)
            elif [ ${#words[@]} -eq 1 ] && [ "${call[0]}" = list ]; then
                candidates=$(sed -nE 's/^Usage: [^[]*\[([^]]*\|[^]]*)\].*/\1/p' <<<"$help" | tr '|' '\n')
            elif [ ${#words[@]} -eq 1 ]; then
                candidates=$(sed -nE "s/^serialcomm ${call[0]} ([a-z]+) .*/\1/p" <<<"$help")
            elif [ ${#words[@]} -eq 2 ] && [ "${call[0]}" != list ]; then
                candidates=$("$program" list "${call[0]}" 2>/dev/null | cut -d ' ' -f 1)
                [ "${call[0]}" != uart ] || candidates+=" pty"
            fi
            ;;
    esac
    COMPREPLY=($(compgen -W "$candidates" -- "$current"))
}
complete -F _serialcomm serialcomm
