#!/usr/bin/env bash
# `tessera keyinfo` over private keys written by the openssl command: RSA and
# EC, PKCS#8 and traditional, encrypted or not, and PKCS#12.
set -uo pipefail
cli=$1
source "$(dirname "$0")/cli_lib.sh"

openssl genpkey -algorithm RSA -pkeyopt rsa_keygen_bits:2048 -out rsa.pem 2>/dev/null
openssl genpkey -algorithm EC -pkeyopt ec_paramgen_curve:P-256 -out ec.pem 2>/dev/null
openssl pkcs8 -topk8 -in rsa.pem -out rsa-p8-enc.pem -passout pass:s3cret -v2 aes-256-cbc
openssl rsa -in rsa.pem -traditional -aes128 -passout pass:s3cret -out rsa-trad-enc.pem 2>/dev/null
openssl ec -in ec.pem -aes256 -passout pass:s3cret -out ec-trad-enc.pem 2>/dev/null
openssl req -x509 -new -key rsa.pem -subj /CN=keyinfo -days 1 -out cert.pem 2>/dev/null
openssl pkcs12 -export -inkey rsa.pem -in cert.pem -passout pass:p12pass -out rsa.p12

for args in "rsa.pem" "rsa-p8-enc.pem --password s3cret" "rsa-trad-enc.pem --password s3cret" \
            "rsa.p12 --password p12pass"; do
    ok "RSA key $args" "$cli" keyinfo $args
    has "RSA key $args: type" '^type: *cptKeyRsaPublicPrivate$'
    has "RSA key $args: modulus length" '^modulus: *2048 bits (256 bytes)$'
done
for args in "ec.pem" "ec-trad-enc.pem --password s3cret"; do
    ok "EC key $args" "$cli" keyinfo $args
    has "EC key $args: type" '^type: *cptKeyEcPublicPrivate$'
    ! grep -q '^modulus' <<<"$out"; check "EC key $args: no modulus line" $?
done

for file in rsa-p8-enc.pem rsa-trad-enc.pem rsa.p12; do
    fails "$file, wrong password" 'error 132: ' "$cli" keyinfo "$file" --password wrong
done
fails "a certificate is no key" 'error 107: ' "$cli" keyinfo cert.pem
usage "missing KEYFILE" "$cli" keyinfo

exit $fail
