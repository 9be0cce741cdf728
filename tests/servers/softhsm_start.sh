#!/usr/bin/env bash
# A SoftHSM2 token for the PKCS#11 tests, kept entirely in DIR.
#
# SoftHSM runs inside the test process, so there is no server to stop: the
# pid file stays empty. Files left in DIR (one value each unless noted):
#   softhsm2.conf - the configuration SOFTHSM2_CONF must name
#   module        - the PKCS#11 module
#   engine        - the OpenSSL "pkcs11" engine (libp11)
#   label, pin    - the token's label and user PIN
#   slot          - the token's slot id, lower-case hexadecimal
#   keyid         - the key identifier slot_<slot>-id_0102 of the RSA key
#   cert.pem      - the self-signed certificate stored with CKA_ID 01 02
#   cert.der      - the same certificate, DER
set -euo pipefail
dir=$1
module=/usr/lib/softhsm/libsofthsm2.so
engine=/usr/lib/x86_64-linux-gnu/engines-3/libpkcs11.so
label=tessera
pin=1234
so_pin=12345678

rm -rf "$dir"
mkdir -p "$dir/tokens"
: >"$dir/pid"
export SOFTHSM2_CONF=$dir/softhsm2.conf
cat >"$SOFTHSM2_CONF" <<CONF
directories.tokendir = $dir/tokens
objectstore.backend = file
log.level = ERROR
slots.removable = false
CONF

# The token gets a slot id of its own on initialisation (a large decimal).
init_output=$(timeout 30 softhsm2-util --init-token --free --label "$label" \
    --pin "$pin" --so-pin "$so_pin")
slot_decimal=$(sed -n 's/.*reassigned to slot \([0-9][0-9]*\).*/\1/p' <<<"$init_output")
if [ -z "$slot_decimal" ]; then
    echo "cannot read the token's slot from: $init_output" >&2
    exit 1
fi
slot_hex=$(printf '%x' "$slot_decimal")

openssl req -x509 -newkey rsa:2048 -nodes -sha256 -days 3650 \
    -subj "/CN=Tessera PKCS11 Test/O=Tessera" \
    -keyout "$dir/key.pem" -out "$dir/cert.pem" 2>/dev/null
openssl x509 -in "$dir/cert.pem" -outform DER -out "$dir/cert.der"

timeout 30 softhsm2-util --import "$dir/key.pem" --token "$label" --label signing-key \
    --id 0102 --pin "$pin" >/dev/null
timeout 30 pkcs11-tool --module "$module" --token-label "$label" --login --pin "$pin" \
    --write-object "$dir/cert.der" --type cert --id 0102 --label signing-cert >/dev/null
# The key never has to leave the token again.
rm -f "$dir/key.pem"

echo "$module" >"$dir/module"
echo "$engine" >"$dir/engine"
echo "$label" >"$dir/label"
echo "$pin" >"$dir/pin"
echo "$slot_hex" >"$dir/slot"
echo "slot_${slot_hex}-id_0102" >"$dir/keyid"
