# bash completion for serialcomm: the program prints the candidates.
# shellcheck shell=bash

_serialcomm() {
    mapfile -t COMPREPLY < <("${COMP_WORDS[0]}" --complete "${COMP_WORDS[@]:1:COMP_CWORD}" 2>/dev/null)
    if [ "${COMPREPLY[0]-}" = --files ]; then
        COMPREPLY=()
        compopt -o default
    fi
}
complete -F _serialcomm serialcomm
