#!/usr/bin/env bash
# fuzz_ocsp_response.sh OUTDIR: writes real OCSP responses made offline by
# `openssl ocsp` (good, revoked with reason, unknown; SHA-1 and SHA-256
# identifiers; with and without nextUpdate and certificates; responder by
# name and by key hash) with throw-away EC keys.
set -euo pipefail
out=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$out"
ec() { openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 3650 "$@" 2>/dev/null; }
ec -subj "/CN=Seed CA" -keyout "$work/ca.key" -out "$work/ca.pem"
issue() {  # name serial extension
    openssl req -new -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -subj "/CN=$1" \
        -keyout "$work/$1.key" -out "$work/$1.csr" 2>/dev/null
    printf '%s\n' "$3" >"$work/$1.ext"
    openssl x509 -req -in "$work/$1.csr" -CA "$work/ca.pem" -CAkey "$work/ca.key" -set_serial "$2" \
        -days 3650 -extfile "$work/$1.ext" -out "$work/$1.pem" 2>/dev/null
}
issue responder 2 "extendedKeyUsage=OCSPSigning"
issue good 0x1001 "keyUsage=digitalSignature"
issue revoked 0x1002 "keyUsage=digitalSignature"
issue unknown 0x1003 "keyUsage=digitalSignature"
subject() { openssl x509 -in "$work/$1.pem" -noout -subject -nameopt compat | sed 's/^subject=//'; }
printf 'V\t400101000000Z\t\t1001\tunknown\t%s\nR\t400101000000Z\t240601120000Z,keyCompromise\t1002\tunknown\t%s\n' \
    "$(subject good)" "$(subject revoked)" >"$work/index.txt"
n=0
for cert in good revoked unknown; do
    for digest in -sha1 -sha256; do
        openssl ocsp -issuer "$work/ca.pem" $digest -cert "$work/$cert.pem" -reqout "$work/req.der" 2>/dev/null
        for extra in "" "-nmin 60" "-resp_no_certs" "-resp_key_id"; do
            n=$((n + 1))
            # shellcheck disable=SC2086
            openssl ocsp -index "$work/index.txt" -rsigner "$work/responder.pem" \
                -rkey "$work/responder.key" -CA "$work/ca.pem" -reqin "$work/req.der" \
                -respout "$out/seed-$n.der" $extra 2>/dev/null
        done
    done
done
