#!/usr/bin/env bash
# fuzz_x509_store.sh OUTDIR: a PKCS#12 (password "fuzz") and PEM text with
# certificates followed by a key block.
set -euo pipefail
out=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
. "$(dirname "$0")/openssl_pki.sh"
make_pki "$work"
mkdir -p "$out"
cp "$work/leaf.p12" "$out/leaf.p12"
cat "$work/leaf.pem" "$work/root.pem" "$work/leaf.key" >"$out/chain.pem"
