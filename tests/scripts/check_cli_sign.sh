#!/usr/bin/env bash
# `tessera sign`, `sign-digest`, `cosign` and `estimate` as a user meets them,
# with `openssl cms -verify` judging the signatures. Keys and certificates
# come from the openssl command:
#
#   CLI Root ── CLI Signer      (RSA-2048, key PEM, encrypted PEM and PKCS#12)
#   CLI Other                   (self-signed, signs with openssl for cosign)
#
# and the softhsm fixture's token key for --pkcs11.
set -uo pipefail
cli=$1
source "$(dirname "$0")/cli_lib.sh"

openssl req -x509 -newkey rsa:2048 -nodes -keyout root.key -out root.pem -subj "/CN=CLI Root" \
    -days 30 -addext basicConstraints=critical,CA:TRUE -addext keyUsage=keyCertSign 2>/dev/null
openssl req -newkey rsa:2048 -nodes -keyout signer.key -out signer.csr -subj "/CN=CLI Signer" 2>/dev/null
printf 'keyUsage=digitalSignature,nonRepudiation\n' >ext.cnf
openssl x509 -req -in signer.csr -CA root.pem -CAkey root.key -set_serial 7 -days 30 \
    -extfile ext.cnf -out signer.pem 2>/dev/null
openssl pkey -in signer.key -aes128 -passout pass:s3cret -out signer-enc.key
openssl pkcs12 -export -inkey signer.key -in signer.pem -passout pass:p12pass -out signer.p12
openssl req -x509 -newkey rsa:2048 -nodes -keyout other.key -out other.pem -subj "/CN=CLI Other" \
    -days 30 2>/dev/null
printf 'content signed by the CLI\r\n\001\002' >in.bin
key=(--cert signer.pem --key signer.key)
verify() {  # SIG [openssl options]: verifies against the root
    openssl cms -verify -binary -inform "${FORM:-DER}" -in "$1" -CAfile root.pem -purpose any \
        "${@:2}" -out verified.bin 2>/dev/null
}

out=$("$cli" sign "${key[@]}" in.bin attached.der); rc=$?
check "sign: exit 0 (got $rc)" $rc
grep -qx 'attached.der: 1 signer(s), [0-9]* bytes DER' <<<"$out"; check "sign: names what it wrote" $?
verify attached.der; check "attached: openssl verifies" $?
cmp -s verified.bin in.bin; check "attached: the content comes back byte for byte" $?
[ "$("$cli" estimate "${key[@]}" in.bin)" = "$(stat -c %s attached.der)" ]
check "estimate: the size sign wrote" $?

"$cli" sign "${key[@]}" --detached --no-attrs --hash sha512 in.bin detached.der >/dev/null
check "sign --detached --no-attrs: exit 0" $?
verify detached.der -content in.bin; check "detached without attributes: openssl verifies" $?
! openssl cms -cmsout -print -inform DER -in detached.der | grep -q signedAttrs:.*messageDigest
check "--no-attrs: no signed attributes" $?
openssl cms -cmsout -print -inform DER -in detached.der | grep -q 'algorithm: sha512'
check "--hash sha512: the digest algorithm" $?
[ "$("$cli" estimate "${key[@]}" --detached --no-attrs --hash sha512 in.bin)" = \
  "$(stat -c %s detached.der)" ]; check "estimate --detached --no-attrs: the size" $?

"$cli" sign --cert signer.pem --key signer-enc.key --password s3cret --pem in.bin signed.pem >/dev/null
check "sign with an encrypted key and --pem: exit 0" $?
head -n 1 signed.pem | grep -qx -- '-----BEGIN CMS-----'; check "--pem: labelled CMS" $?
FORM=PEM verify signed.pem; check "--pem: openssl verifies" $?
[ "$("$cli" estimate "${key[@]}" --pem in.bin)" = "$(stat -c %s signed.pem)" ]
check "estimate --pem: the PEM size" $?

"$cli" sign --p12 signer.p12 --password p12pass --include whole --trust root.pem in.bin whole.der \
    >/dev/null; check "sign from PKCS#12 with the whole chain: exit 0" $?
[ "$(openssl pkcs7 -inform DER -in whole.der -print_certs | grep -c '^subject=')" -eq 2 ]
check "--include whole: signer and root" $?
"$cli" sign "${key[@]}" --include none in.bin none.der >/dev/null
[ "$(openssl pkcs7 -inform DER -in none.der -print_certs | grep -c '^subject=')" -eq 0 ]
check "--include none: no certificates" $?
verify none.der -certfile signer.pem; check "--include none: verifies with the signer given" $?

digest=$(openssl dgst -sha256 -r in.bin | cut -c1-64)
"$cli" sign-digest "${key[@]}" --digest "$digest" digest.der >/dev/null
check "sign-digest: exit 0" $?
verify digest.der -content in.bin; check "sign-digest: openssl verifies over the content" $?
err=$("$cli" sign-digest "${key[@]}" --hash sha1 --digest "$digest" x.der 2>&1 >/dev/null); rc=$?
[ $rc -eq 1 ]; check "sign-digest with a SHA-256 digest for SHA-1: exit 1 (got $rc)" $?
grep -q '^tessera sign-digest: error 136: ' <<<"$err"; check "digest length mismatch: code 136" $?

openssl cms -sign -binary -nodetach -outform DER -in in.bin -signer other.pem -inkey other.key \
    -out other.der
"$cli" cosign "${key[@]}" other.der cosigned.der >/dev/null; check "cosign: exit 0" $?
openssl cms -verify -binary -inform DER -in cosigned.der -CAfile root.pem -certfile other.pem \
    -purpose any -out /dev/null 2>/dev/null
rc=$?; [ $rc -ne 0 ]; check "cosign: the other signer is not trusted by itself" $?
cat root.pem other.pem >both.pem
openssl cms -verify -binary -inform DER -in cosigned.der -CAfile both.pem -purpose any \
    -out /dev/null 2>/dev/null; check "cosign: openssl verifies both signers" $?
"$cli" cosign "${key[@]}" --pem --content in.bin detached.der co-detached.pem >/dev/null
FORM=PEM verify co-detached.pem -content in.bin; check "cosign of a detached signature" $?
printf 'other content' >other.bin
err=$("$cli" cosign "${key[@]}" --content other.bin attached.der x.der 2>&1 >/dev/null)
grep -q '^tessera cosign: error 125: ' <<<"$err"; check "cosign over other content: code 125" $?

err=$("$cli" sign --cert signer.pem --key signer-enc.key --password wrong in.bin x.der 2>&1 >/dev/null)
rc=$?; [ $rc -eq 1 ]; check "wrong key password: exit 1 (got $rc)" $?
grep -q '^tessera sign: error 132: ' <<<"$err"; check "wrong key password: code 132" $?
"$cli" sign --cert signer.pem in.bin x.der >/dev/null 2>&1; rc=$?
[ $rc -eq 2 ]; check "no key source: usage error (got $rc)" $?
"$cli" sign "${key[@]}" --include chain in.bin x.der >/dev/null 2>&1; rc=$?
[ $rc -eq 2 ]; check "--include chain without --trust: usage error (got $rc)" $?

hsm=$TESSERA_TEST_SERVERS/softhsm
token=(--cert "$hsm/cert.pem" --pkcs11 "$(cat "$hsm/module")" --key-id "$(cat "$hsm/keyid")")
"$cli" sign "${token[@]}" --pin "$(cat "$hsm/pin")" in.bin token.der >/dev/null 2>&1
check "token key: exit 0" $?
openssl cms -verify -binary -inform DER -in token.der -CAfile "$hsm/cert.pem" -purpose any \
    -out /dev/null 2>/dev/null; check "token key: openssl verifies" $?
err=$("$cli" sign "${token[@]}" --pin 0000 in.bin x.der 2>&1 >/dev/null); rc=$?
[ $rc -eq 1 ]; check "wrong PIN: exit 1 (got $rc)" $?
grep -q '^tessera sign: error 130: ' <<<"$err"; check "wrong PIN: code 130 (ErrWrongPin)" $?

exit $fail
