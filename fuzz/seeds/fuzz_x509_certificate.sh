#!/usr/bin/env bash
# fuzz_x509_certificate.sh OUTDIR: certificates in DER and PEM and a PKCS#12.
set -euo pipefail
out=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
. "$(dirname "$0")/openssl_pki.sh"
make_pki "$work"
mkdir -p "$out"
for c in root leaf; do
    cp "$work/$c.pem" "$out/$c.pem"
    openssl x509 -in "$work/$c.pem" -outform DER -out "$out/$c.der"
done
cp "$work/leaf.p12" "$out/leaf.p12"
