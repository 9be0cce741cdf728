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
verify() {  # SIG [openssl options]: verifies against $CA (the root by default)
    openssl cms -verify -binary -inform "${FORM:-DER}" -in "$1" -CAfile "${CA:-root.pem}" \
        -purpose any "${@:2}" -out verified.bin 2>/dev/null
}
certs_in() { openssl pkcs7 -inform DER -in "$1" -print_certs | grep -c '^subject='; }

ok "sign" "$cli" sign "${key[@]}" in.bin attached.der
has "sign: names what it wrote" -x 'attached.der: 1 signer(s), [0-9]* bytes DER'
verify attached.der; check "attached: openssl verifies" $?
cmp -s verified.bin in.bin; check "attached: the content comes back byte for byte" $?
[ "$("$cli" estimate "${key[@]}" in.bin)" = "$(stat -c %s attached.der)" ]
check "estimate: the size sign wrote" $?

ok "sign --detached --no-attrs" "$cli" sign "${key[@]}" --detached --no-attrs --hash sha512 in.bin detached.der
verify detached.der -content in.bin; check "detached without attributes: openssl verifies" $?
! openssl cms -cmsout -print -inform DER -in detached.der | grep -q signedAttrs:.*messageDigest
check "--no-attrs: no signed attributes" $?
openssl cms -cmsout -print -inform DER -in detached.der | grep -q 'algorithm: sha512'
check "--hash sha512: the digest algorithm" $?
[ "$("$cli" estimate "${key[@]}" --detached --no-attrs --hash sha512 in.bin)" = \
  "$(stat -c %s detached.der)" ]; check "estimate --detached --no-attrs: the size" $?

ok "sign with an encrypted key and --pem" \
    "$cli" sign --cert signer.pem --key signer-enc.key --password s3cret --pem in.bin signed.pem
head -n 1 signed.pem | grep -qx -- '-----BEGIN CMS-----'; check "--pem: labelled CMS" $?
FORM=PEM verify signed.pem; check "--pem: openssl verifies" $?
[ "$("$cli" estimate "${key[@]}" --pem in.bin)" = "$(stat -c %s signed.pem)" ]
check "estimate --pem: the PEM size" $?

ok "sign from PKCS#12 with the whole chain" \
    "$cli" sign --p12 signer.p12 --password p12pass --include whole --trust root.pem in.bin whole.der
[ "$(certs_in whole.der)" -eq 2 ]; check "--include whole: signer and root" $?

# A signer under an intermediate CA, the chain coming with the PKCS#12 file or
# from --extra instead of being looked up in the --trust files alone.
ec_csr sub "/CN=CLI Sub CA"
printf 'basicConstraints=critical,CA:TRUE\nkeyUsage=keyCertSign\n' >ca-ext.cnf
openssl x509 -req -in sub.csr -CA root.pem -CAkey root.key -set_serial 8 -days 30 \
    -extfile ca-ext.cnf -out sub.pem 2>/dev/null
# RSA, as estimate's size is exact only for signatures of fixed length.
openssl req -newkey rsa:2048 -nodes -keyout leaf.key -out leaf.csr -subj "/CN=CLI Sub Signer" \
    2>/dev/null
openssl x509 -req -in leaf.csr -CA sub.pem -CAkey sub.key -set_serial 9 -days 30 \
    -extfile ext.cnf -out leaf.pem 2>/dev/null
cat sub.pem root.pem >cas.pem
p12() { openssl pkcs12 -export -inkey leaf.key -in leaf.pem -certfile "$1" -passout pass:p -out "$2"; }
p12 cas.pem chain.p12
p12 sub.pem sub.p12
names_in() {  # the CNs of a signature's certificates, sorted
    openssl pkcs7 -inform DER -in "$1" -print_certs | sed -n 's/^subject=.*CN *= *//p' | sort |
        paste -sd,
}
ok "--include chain from the PKCS#12 file alone" \
    "$cli" sign --p12 chain.p12 --password p --include chain in.bin p12-chain.der
[ "$(names_in p12-chain.der)" = "CLI Sub CA,CLI Sub Signer" ]; check "p12 chain: signer and CA" $?
verify p12-chain.der; check "p12 chain: openssl verifies up to the root" $?
ok "the PKCS#12 file's CA under a --trust anchor" \
    "$cli" sign --p12 sub.p12 --password p --include whole --trust root.pem in.bin p12-whole.der
[ "$(names_in p12-whole.der)" = "CLI Root,CLI Sub CA,CLI Sub Signer" ]
check "p12 whole: with the anchor" $?
sub=(--cert leaf.pem --key leaf.key --include chain --extra sub.pem)
ok "--extra" "$cli" sign "${sub[@]}" --trust root.pem in.bin extra.der
[ "$(names_in extra.der)" = "CLI Sub CA,CLI Sub Signer" ]; check "--extra: signer and CA" $?
[ "$("$cli" estimate "${sub[@]}" --trust root.pem in.bin)" = "$(stat -c %s extra.der)" ]
check "estimate --extra: the size" $?
usage "--include chain without any anchor" "$cli" sign "${sub[@]}" in.bin x.der
"$cli" sign "${key[@]}" --include none in.bin none.der >/dev/null
[ "$(certs_in none.der)" -eq 0 ]; check "--include none: no certificates" $?
verify none.der -certfile signer.pem; check "--include none: verifies with the signer given" $?

digest=$(openssl dgst -sha256 -r in.bin | cut -c1-64)
ok "sign-digest" "$cli" sign-digest "${key[@]}" --digest "$digest" digest.der
verify digest.der -content in.bin; check "sign-digest: openssl verifies over the content" $?
fails "sign-digest with a SHA-256 digest for SHA-1" '^tessera sign-digest: error 136: ' \
    "$cli" sign-digest "${key[@]}" --hash sha1 --digest "$digest" x.der

openssl cms -sign -binary -nodetach -outform DER -in in.bin -signer other.pem -inkey other.key \
    -out other.der
ok "cosign" "$cli" cosign "${key[@]}" other.der cosigned.der
! verify cosigned.der -certfile other.pem; check "cosign: the other signer is not trusted by itself" $?
cat root.pem other.pem >both.pem
CA=both.pem verify cosigned.der; check "cosign: openssl verifies both signers" $?
"$cli" cosign "${key[@]}" --pem --content in.bin detached.der co-detached.pem >/dev/null
FORM=PEM verify co-detached.pem -content in.bin; check "cosign of a detached signature" $?
printf 'other content' >other.bin
fails "cosign over other content" '^tessera cosign: error 125: ' \
    "$cli" cosign "${key[@]}" --content other.bin attached.der x.der

fails "wrong key password" '^tessera sign: error 132: ' \
    "$cli" sign --cert signer.pem --key signer-enc.key --password wrong in.bin x.der
usage "no key source" "$cli" sign --cert signer.pem in.bin x.der
usage "--include chain without --trust" "$cli" sign "${key[@]}" --include chain in.bin x.der

hsm=$TESSERA_TEST_SERVERS/softhsm
token=(--cert "$hsm/cert.pem" --pkcs11 "$(cat "$hsm/module")" --key-id "$(cat "$hsm/keyid")")
ok "token key" "$cli" sign "${token[@]}" --pin "$(cat "$hsm/pin")" in.bin token.der
CA=$hsm/cert.pem verify token.der; check "token key: openssl verifies" $?
fails "wrong PIN (ErrWrongPin)" '^tessera sign: error 130: ' "$cli" sign "${token[@]}" --pin 0000 in.bin x.der

exit $fail
