#!/usr/bin/env bash
# End-to-end demo of what Tessera does so far, through its command-line tool.
set -uo pipefail
build=${1:-build}
export PATH="$PWD/$build/bin:$PATH"

# Shows a command line, then runs it.
step() {
    printf '\n== %s\n$ %s\n' "$1" "$2"
    bash -o pipefail -c "$2"
    local rc=$?
    [ "$rc" -eq 0 ] || printf '(exit code %d)\n' "$rc"
}

step "The library's version text" "tessera version"
step "The error codes every failure carries (the first ten of $(tessera errors | wc -l))" \
     "tessera errors | head -n 10"
step "A mistyped command is refused with the usage text and exit code 2" "tessera sgin"
printf '\nDemo finished.\n'
