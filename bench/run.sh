#!/usr/bin/env bash
# Runs every benchmark program in BUILD/benchmarks.
set -euo pipefail
build=$1
shopt -s nullglob
programs=("$build"/benchmarks/bench_*)
if [ ${#programs[@]} -eq 0 ]; then
    echo "no benchmarks built"
    exit 0
fi
for program in "${programs[@]}"; do
    echo "== $(basename "$program")"
    "$program" --benchmark_min_time=0.5
done
