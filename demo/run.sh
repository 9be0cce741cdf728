#!/usr/bin/env bash
# End-to-end demo of what Tessera does so far, through its command-line tool.
set -euo pipefail
build=${1:-build}
tessera="$build/bin/tessera"

step() { printf '\n== %s\n$ %s\n' "$1" "${*:2}"; "${@:2}"; }

step "The library's version text" "$tessera" version
step "The error codes every failure carries (first ten)" bash -c "'$tessera' errors | head -n 10"
step "A mistyped command is refused with usage and exit code 2" \
    bash -c "'$tessera' sgin 2>&1 | head -n 3; exit \${PIPESTATUS[0]}" || echo "(exit code $?)"
printf '\nDemo finished.\n'
