#!/usr/bin/env bash
# `tessera info` over signatures written by `openssl cms -sign` (attached in
# PEM, detached with two signers, signer by key identifier) and a degenerate
# message with a CRL (`openssl crl2pkcs7`), and a file that is no message.
set -uo pipefail
cli=$1
source "$(dirname "$0")/cli_lib.sh"

ec_ca "/O=Tessera Test/CN=CLI Root"
echo "subjectKeyIdentifier=hash" >ski.ext
serial=0x2A
for who in alice bob; do
    ec_csr $who "/CN=CLI $who"
    openssl x509 -req -in $who.csr -CA ca.pem -CAkey ca.key -set_serial $serial -days 1 \
        -extfile ski.ext -out $who.pem 2>/dev/null
    serial=0x2B
done
printf 'signed text' >data.txt
: >index.txt
echo 1000 >crlnumber
write_ca_cnf ca.pem ca.key 'default_crl_days = 7'
openssl ca -config ca.cnf -gencrl -out crl.pem 2>/dev/null

openssl cms -sign -binary -nodetach -in data.txt -signer alice.pem -inkey alice.key \
    -outform PEM -out attached.pem 2>/dev/null
ok "attached PEM" "$cli" info attached.pem
has "content type" '^contentType: *1.2.840.113549.1.7.1 (pkcs7-data)$'
has "attached" '^detached: *no$'
has "content size" '^content: *11 bytes$'
has "certificate with serial" '^certificate: *CN=CLI alice (serial 2A)$'
has "one signer" '^signers: *1$'
has "digest algorithm" '^  digest: *sha256 (2.16.840.1.101.3.4.2.1)$'
has "signature algorithm" '^  signature: *ecdsa-with-SHA256$'
has "signed attributes" '^  signedAttr: *1.2.840.113549.1.9.4 (messageDigest)$'
has "no unsigned attributes" '^  unsignedAttr: *(none)$'
has "signing time" '^  signingTime: *[0-9][0-9]\.[0-9][0-9]\.20[0-9][0-9] [0-9:]* UTC$'

openssl cms -sign -binary -in data.txt -signer alice.pem -inkey alice.key -signer bob.pem \
    -inkey bob.key -keyid -outform DER -out detached.der 2>/dev/null
ok "detached DER" "$cli" info detached.der
has "detached" '^detached: *yes$'
has "two signers" '^signers: *2$'
has "second signer listed" '^signer 2:$'
has "key-identifier signer's certificate" '^  certificate: *CN=CLI bob (serial 2B)$'
has "key-identifier signer is version 3" '^  version: *3$'

openssl crl2pkcs7 -in crl.pem -certfile ca.pem -outform DER -out crl.p7 2>/dev/null
ok "degenerate message" "$cli" info crl.p7
has "CRL issuer and thisUpdate" '^crl: *O=Tessera Test,CN=CLI Root (thisUpdate [0-9.]* [0-9:]* UTC)$'
has "no signers" '^signers: *0$'

fails "no message (ErrInvalidMessageFormat)" 'error 114' "$cli" info data.txt
usage "no file" "$cli" info

exit $fail
