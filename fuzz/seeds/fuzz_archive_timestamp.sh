#!/usr/bin/env bash
# fuzz_archive_timestamp.sh OUTDIR: the three public LTA samples of
# tests/vectors/cades as whole messages, and the unsigned-attribute set of
# each one's signer (a SET OF Attribute, read from its DER re-encoding by
# `openssl cms -cmsout`), which the fuzzer splices into its fixed message:
#   *.p7m, *.pkcs7      the messages
#   attrs-NAME.der      the signer's unsigned attributes
#   attrs-empty.der     an empty set
set -euo pipefail
mkdir -p "$1"
out=$(cd "$1" && pwd)
here=$(cd "$(dirname "$0")" && pwd)
vectors=$here/../../tests/vectors/cades
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
for sample in Signature-C-HU_POL-3.p7m cades-lta-detached.pkcs7 cades-ats-v3-wrong-cert.p7m; do
    cp "$vectors/$sample" "$out/"
    openssl cms -cmsout -inform DER -outform DER -in "$vectors/$sample" -out "$work/$sample.der"
    PYTHONPATH="$here" /usr/bin/python3 - "$work/$sample.der" "$out/attrs-${sample%.*}.der" <<'PY'
import sys

from der import children

message = open(sys.argv[1], 'rb').read()
signed = children(children(message)[1])[0]
signer = children(children(signed)[-1])[0]
unsigned = children(signer)[-1]
assert unsigned[0] == 0xA1, 'the signer has unsigned attributes'
open(sys.argv[2], 'wb').write(b'\x31' + unsigned[1:])
PY
done
printf '\x31\x00' >"$out/attrs-empty.der"
