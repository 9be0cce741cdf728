#!/usr/bin/env bash
# Runs every fuzzer in BUILD/fuzzers for SECONDS each; fails on any finding.
# A seed script fuzz/seeds/<fuzzer>.sh OUTDIR, when present, fills the corpus.
set -euo pipefail
build=$1
seconds=${2:-60}
here=$(cd "$(dirname "$0")" && pwd)
shopt -s nullglob
fuzzers=("$build"/fuzzers/fuzz_*)
if [ ${#fuzzers[@]} -eq 0 ]; then
    echo "no fuzz targets built"
    exit 0
fi
for fuzzer in "${fuzzers[@]}"; do
    name=$(basename "$fuzzer")
    corpus="$build/corpus/$name"
    mkdir -p "$corpus" "$build/findings"
    if [ -x "$here/seeds/$name.sh" ]; then
        "$here/seeds/$name.sh" "$corpus"
    fi
    echo "== $name for ${seconds}s"
    "$fuzzer" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
        -artifact_prefix="$build/findings/$name-" -print_final_stats=1 "$corpus"
done
echo "fuzzing finished without findings"
