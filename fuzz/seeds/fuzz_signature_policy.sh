#!/usr/bin/env bash
# fuzz_signature_policy.sh OUTDIR: the public policies of tests/vectors, a
# truncated copy, a copy with one bit of the policy information flipped, one
# in indefinite-length form and one whose hash algorithm is MD4, which
# OpenSSL names but its default provider does not implement.
set -euo pipefail
out=$1
vectors=$(cd "$(dirname "$0")/../../tests/vectors/policies" && pwd)
mkdir -p "$out"
cp "$vectors"/*.der "$out/"
example=$vectors/signature-policy-example.der
head -c 1000 "$example" >"$out/truncated.der"
# Offset 200 lies in the issuer's URI ('l' there becomes 'm'): the copy
# still decodes, with a hash that no longer matches.
{ head -c 200 "$example"; printf 'm'; tail -c +202 "$example"; } >"$out/flipped.der"
# The outer header is 4 bytes, the SHA-256 AlgorithmIdentifier after it 13.
{ printf '\x30\x80'; tail -c +5 "$example"; printf '\x00\x00'; } >"$out/indefinite.der"
{
    printf '\x30\x82\x13\xb0\x30\x0a\x06\x08\x2a\x86\x48\x86\xf7\x0d\x02\x04'
    tail -c +18 "$example"
} >"$out/md4.der"
