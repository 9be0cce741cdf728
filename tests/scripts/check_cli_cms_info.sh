#!/usr/bin/env bash
# `tessera info` over signatures written by `openssl cms -sign` (attached in
# PEM, detached with two signers, signer by key identifier) and a degenerate
# message with a CRL (`openssl crl2pkcs7`), and a file that is no message.
set -uo pipefail
cli=$1
source "$(dirname "$0")/cli_lib.sh"

openssl req -x509 -new -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -keyout ca.key \
    -subj "/O=Tessera Test/CN=CLI Root" -days 2 -out ca.pem 2>/dev/null
for who in alice bob; do
    openssl req -new -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -keyout $who.key \
        -subj "/CN=CLI $who" -out $who.csr 2>/dev/null
done
echo "subjectKeyIdentifier=hash" >ski.ext
openssl x509 -req -in alice.csr -CA ca.pem -CAkey ca.key -set_serial 0x2A -days 1 \
    -extfile ski.ext -out alice.pem 2>/dev/null
openssl x509 -req -in bob.csr -CA ca.pem -CAkey ca.key -set_serial 0x2B -days 1 \
    -extfile ski.ext -out bob.pem 2>/dev/null
printf 'signed text' >data.txt
: >index.txt
echo 1000 >crlnumber
printf '[ca]\ndefault_ca=t\n[t]\ndatabase=index.txt\ncrlnumber=crlnumber\ndefault_md=sha256\ndefault_crl_days=7\n' >ca.cnf
openssl ca -config ca.cnf -keyfile ca.key -cert ca.pem -gencrl -out crl.pem 2>/dev/null

openssl cms -sign -binary -nodetach -in data.txt -signer alice.pem -inkey alice.key \
    -outform PEM -out attached.pem 2>/dev/null
out=$("$cli" info attached.pem); rc=$?
check "attached PEM: exit 0 (got $rc)" $rc
grep -q '^contentType: *1.2.840.113549.1.7.1 (pkcs7-data)$' <<<"$out"; check "content type" $?
grep -q '^detached: *no$' <<<"$out"; check "attached" $?
grep -q '^content: *11 bytes$' <<<"$out"; check "content size" $?
grep -q '^certificate: *CN=CLI alice (serial 2A)$' <<<"$out"; check "certificate with serial" $?
grep -q '^signers: *1$' <<<"$out"; check "one signer" $?
grep -q '^  digest: *sha256 (2.16.840.1.101.3.4.2.1)$' <<<"$out"; check "digest algorithm" $?
grep -q '^  signature: *ecdsa-with-SHA256$' <<<"$out"; check "signature algorithm" $?
grep -q '^  signedAttr: *1.2.840.113549.1.9.4 (messageDigest)$' <<<"$out"; check "signed attributes" $?
grep -q '^  unsignedAttr: *(none)$' <<<"$out"; check "no unsigned attributes" $?
grep -q '^  signingTime: *[0-9][0-9]\.[0-9][0-9]\.20[0-9][0-9] [0-9:]* UTC$' <<<"$out"
check "signing time" $?

openssl cms -sign -binary -in data.txt -signer alice.pem -inkey alice.key -signer bob.pem \
    -inkey bob.key -keyid -outform DER -out detached.der 2>/dev/null
out=$("$cli" info detached.der); rc=$?
check "detached DER: exit 0 (got $rc)" $rc
grep -q '^detached: *yes$' <<<"$out"; check "detached" $?
grep -q '^signers: *2$' <<<"$out"; check "two signers" $?
grep -q '^signer 2:$' <<<"$out"; check "second signer listed" $?
grep -q '^  certificate: *CN=CLI bob (serial 2B)$' <<<"$out"; check "key-identifier signer's certificate" $?
grep -q '^  version: *3$' <<<"$out"; check "key-identifier signer is version 3" $?

openssl crl2pkcs7 -in crl.pem -certfile ca.pem -outform DER -out crl.p7 2>/dev/null
out=$("$cli" info crl.p7); rc=$?
check "degenerate message: exit 0 (got $rc)" $rc
grep -q '^crl: *O=Tessera Test,CN=CLI Root (thisUpdate [0-9.]* [0-9:]* UTC)$' <<<"$out"
check "CRL issuer and thisUpdate" $?
grep -q '^signers: *0$' <<<"$out"; check "no signers" $?

"$cli" info data.txt >/dev/null 2>err.txt; rc=$?
[ $rc -eq 1 ]; check "no message: exit 1 (got $rc)" $?
grep -q 'error 114' err.txt; check "no message: ErrInvalidMessageFormat" $?
"$cli" info >/dev/null 2>&1; rc=$?
[ $rc -eq 2 ]; check "no file: usage error (got $rc)" $?

exit $fail
