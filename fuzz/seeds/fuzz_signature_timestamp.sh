#!/usr/bin/env bash
# fuzz_signature_timestamp.sh OUTDIR: real time-stamp tokens (those of the
# token fuzzer's seeds), a truncated one and a few non-tokens.
set -euo pipefail
out=$1
here=$(cd "$(dirname "$0")" && pwd)
"$here/fuzz_tsp_timestamp.sh" "$out"
first=$(ls "$out" | head -n 1)
head -c 200 "$out/$first" >"$out/truncated"
printf '\x30\x00' >"$out/empty-sequence"
printf '\x05\x00' >"$out/null"
