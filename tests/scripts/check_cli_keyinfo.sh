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

out=$("$cli" keyinfo rsa.pem); rc=$?
check "plain RSA PKCS#8: exit 0 (got $rc)" $rc
grep -q '^type: *cptKeyRsaPublicPrivate$' <<<"$out"; check "plain RSA: type" $?
grep -q '^modulus: *2048 bits (256 bytes)$' <<<"$out"; check "plain RSA: modulus length" $?

out=$("$cli" keyinfo ec.pem); rc=$?
check "plain EC: exit 0 (got $rc)" $rc
grep -q '^type: *cptKeyEcPublicPrivate$' <<<"$out"; check "plain EC: type" $?
! grep -q '^modulus' <<<"$out"; check "EC: no modulus line" $?

for file in rsa-p8-enc.pem rsa-trad-enc.pem; do
    out=$("$cli" keyinfo "$file" --password s3cret); rc=$?
    check "$file with its password: exit 0 (got $rc)" $rc
    grep -q '^modulus: *2048 bits' <<<"$out"; check "$file: modulus length" $?
done
"$cli" keyinfo ec-trad-enc.pem --password s3cret | grep -q '^type: *cptKeyEcPublicPrivate$'
check "encrypted traditional EC key" $?

for file in rsa-p8-enc.pem rsa-trad-enc.pem rsa.p12; do
    err=$("$cli" keyinfo "$file" --password wrong 2>&1 >/dev/null); rc=$?
    [ $rc -eq 1 ]; check "$file, wrong password: exit 1 (got $rc)" $?
    grep -q 'error 132: ' <<<"$err"; check "$file, wrong password: code 132" $?
done

out=$("$cli" keyinfo rsa.p12 --password p12pass); rc=$?
check "PKCS#12: exit 0 (got $rc)" $rc
grep -q '^type: *cptKeyRsaPublicPrivate$' <<<"$out"; check "PKCS#12: type" $?

err=$("$cli" keyinfo cert.pem 2>&1 >/dev/null); rc=$?
[ $rc -eq 1 ]; check "a certificate is no key: exit 1 (got $rc)" $?
grep -q 'error 107: ' <<<"$err"; check "a certificate is no key: code 107" $?

"$cli" keyinfo >/dev/null 2>&1; rc=$?
[ $rc -eq 2 ]; check "missing KEYFILE is a usage error (got $rc)" $?

exit $fail
