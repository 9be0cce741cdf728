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
    # Repetitions in random order, so that neither side of a pair always
    # runs first or on a warmer machine; the ratios are of the medians.
    "$program" --benchmark_min_time=0.2 --benchmark_repetitions=5 \
        --benchmark_enable_random_interleaving=true --benchmark_report_aggregates_only=true
done
