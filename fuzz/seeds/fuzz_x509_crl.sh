#!/usr/bin/env bash
# fuzz_x509_crl.sh OUTDIR: a v2 CRL with a number and one revoked entry.
set -euo pipefail
out=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
. "$(dirname "$0")/openssl_pki.sh"
make_pki "$work"
mkdir -p "$out"
cp "$work/root.crl.der" "$out/root.crl.der"
