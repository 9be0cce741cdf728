#!/usr/bin/env bash
# Stops the processes a start script recorded in DIR/pid and removes DIR.
set -u
dir=$1
if [ -f "$dir/pid" ]; then
    while read -r pid; do
        [ -n "$pid" ] || continue
        kill -TERM "$pid" 2>/dev/null || continue
        for _ in $(seq 50); do
            kill -0 "$pid" 2>/dev/null || break
            sleep 0.1
        done
        kill -KILL "$pid" 2>/dev/null || true
    done <"$dir/pid"
fi
rm -rf "$dir"
exit 0
