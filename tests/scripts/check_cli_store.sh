#!/usr/bin/env bash
# `tessera store list` and `tessera sign --store-dir / --pkcs11 ... --subject`
# as a user meets them, with `openssl cms -verify` judging the signatures.
#
#   CLI Store Root ── CLI Store Signer   (key beside it in the directory,
#                 └── CLI Store Other     and on token store-a; Other's key
#                                         file holds the root's key)
#
# The directory store d/ holds root.pem, signer.pem + signer.key,
# other.crt + other.key and broken.cer (no certificate). Two SoftHSM2 tokens
# of this script's own: store-a with the signer's certificate and key,
# store-b with the root's certificate alone.
set -uo pipefail
cli=$1
source "$(dirname "$0")/cli_lib.sh"
module=/usr/lib/softhsm/libsofthsm2.so

rsa_pki "CLI Store" 20240101000000Z 20240201000000Z
openssl req -new -newkey rsa:2048 -nodes -keyout other.key -out other.csr \
    -subj "/O=Tessera Test/CN=CLI Store Other" 2>/dev/null
openssl ca -batch -config ca.cnf -in other.csr -startdate 20240101000000Z \
    -enddate 20340101000000Z -extensions signer_ext -notext -out other.pem -cert root.pem \
    -keyfile root.key 2>/dev/null
mkdir d
cp root.pem signer.pem signer.key d/
cp other.pem d/other.crt
cp root.key d/other.key
echo "no certificate" >d/broken.cer
printf 'content signed from a store\r\n' >in.bin
verify() {  # SIG: verifies against the root
    openssl cms -verify -binary -inform DER -in "$1" -CAfile root.pem -purpose any \
        -out verified.bin 2>/dev/null && cmp -s verified.bin in.bin
}
# field JSON SUBJECT-PART KEY: the value of KEY of the certificate whose subject has SUBJECT-PART.
field() {
    /usr/bin/python3 -c 'import json,sys
certs = json.loads(sys.argv[1])["certificates"]
hits = [c for c in certs if sys.argv[2] in c["subject"]]
print(json.dumps(hits[0].get(sys.argv[3])) if len(hits) == 1 else "no single match")' "$@"
}

ok "store list --dir" "$cli" store list --dir d
has "store list --dir: the readable certificates" -x '3 certificate(s)'
has "store list --dir: the signer's key file" -x '  key identifier: d/signer.key'
has "store list --dir: a key file of another key" -x '  has key:        no (error 107 reading it)'
ok "store list --dir --json" "$cli" store list --dir d --json
json=$out
[ "$(field "$json" "Store Signer" hasKey)" = true ]; check "json: the signer has its key" $?
[ "$(field "$json" "Store Root" hasKey)" = false ]; check "json: the root has none" $?
[ "$(field "$json" "Store Other" keyError)" = 107 ]; check "json: Other's key is refused" $?

ok "sign --store-dir" "$cli" sign --store-dir d --subject "Store Signer" --cades bes in.bin dir.der
verify dir.der; check "sign --store-dir: openssl verifies the CAdES signature" $?
fails "several matches" "3 certificates of the store have a subject containing 'CLI Store'" \
    "$cli" sign --store-dir d --subject "CLI Store" in.bin x.der
fails "no key for the match" "the store has no private key for" \
    "$cli" sign --store-dir d --subject "Store Root" in.bin x.der
usage "--store-dir without --subject" "$cli" sign --store-dir d in.bin x.der
usage "--subject with --cert" "$cli" sign --store-dir d --subject S --cert signer.pem in.bin x.der
usage "store list without a store" "$cli" store list
usage "store list with two stores" "$cli" store list --dir d --pkcs11 "$module"
fails "store list of a missing directory" "cannot read the directory" "$cli" store list --dir nope

mkdir -p hsm/tokens
export SOFTHSM2_CONF=$scratch/hsm/softhsm2.conf
printf 'directories.tokendir = %s\nobjectstore.backend = file\nlog.level = ERROR\n' \
    "$scratch/hsm/tokens" >"$SOFTHSM2_CONF"
slot_a=$(timeout 30 softhsm2-util --init-token --free --label store-a --pin 1234 \
    --so-pin 12345678 | sed -n 's/.*reassigned to slot \([0-9][0-9]*\).*/\1/p')
timeout 30 softhsm2-util --init-token --free --label store-b --pin 1234 --so-pin 12345678 >/dev/null
timeout 30 softhsm2-util --import signer.key --token store-a --label key --id 0a01 --pin 1234 >/dev/null
openssl x509 -in signer.pem -outform DER -out signer.der
openssl x509 -in root.pem -outform DER -out root.der
for object in "store-a signer.der 0a01" "store-b root.der 0b01"; do
    set -- $object
    timeout 30 pkcs11-tool --module "$module" --token-label "$1" --login --pin 1234 \
        --write-object "$2" --type cert --id "$3" >/dev/null 2>&1
    check "token $1 gets $2" $?
done

ok "store list --pkcs11" "$cli" store list --pkcs11 "$module" --pin 1234 --json
json=$out
[ "$(field "$json" "Store Signer" hasKey)" = true ]; check "pkcs11 json: the signer has its key" $?
[ "$(field "$json" "Store Root" hasKey)" = false ]; check "pkcs11 json: the root has none" $?
[ "$(field "$json" "Store Signer" keyIdentifier)" = "\"slot_$(printf %x "$slot_a")-id_0a01\"" ]
check "pkcs11 json: the key identifier has the slot in hexadecimal" $?
ok "store list --pkcs11 without PIN" "$cli" store list --pkcs11 "$module"
has "without a PIN the key stays unknown" -x '  has key:        unknown'
fails "store list with a wrong PIN" '^tessera store: error 130: ' \
    "$cli" store list --pkcs11 "$module" --pin 0000

ok "sign --pkcs11 --subject" "$cli" sign --pkcs11 "$module" --subject "Store Signer" --pin 1234 \
    --cades bes in.bin token.der
verify token.der; check "sign --pkcs11 --subject: openssl verifies the CAdES signature" $?
fails "sign with a wrong PIN" '^tessera sign: error 130: ' \
    "$cli" sign --pkcs11 "$module" --subject "Store Signer" --pin 0000 in.bin x.der
usage "--pkcs11 --subject without --pin" "$cli" sign --pkcs11 "$module" --subject S in.bin x.der
# A test machine has no card reader: the card store says which thing is missing.
fails "store list --card without a reader" '^tessera store: error 126: ' "$cli" store list --card

exit $fail
