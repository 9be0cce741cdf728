#!/usr/bin/env bash
# fuzz_signed_cms.sh OUTDIR: writes real signed-data messages made by
# `openssl cms -sign` with throw-away keys (attached, detached, without signed
# attributes, signer by key identifier, two signers, without certificates,
# RSA and EC), a degenerate message with a CRL (`openssl crl2pkcs7`), one with
# an OCSP response spliced in as other revocation info, and a time-stamp token
# (`openssl ts -reply`).
set -euo pipefail
out=$1
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$out"
# shellcheck source=openssl_pki.sh
. "$here/openssl_pki.sh"
make_pki "$work"
openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 3650 \
    -subj "/CN=Seed TSA" -keyout "$work/tsa.key" -out "$work/tsa.pem" \
    -addext "extendedKeyUsage=critical,timeStamping" 2>/dev/null
printf 'seed content' >"$work/data"

sign() {  # name signer-args...
    local name=$1
    shift
    openssl cms -sign -binary -in "$work/data" -outform DER -out "$out/seed-$name.der" "$@" \
        2>/dev/null
}
leaf=(-signer "$work/leaf.pem" -inkey "$work/leaf.key")
root=(-signer "$work/root.pem" -inkey "$work/root.key")
sign attached "${leaf[@]}" -nodetach
sign detached "${leaf[@]}"
sign noattr "${leaf[@]}" -nodetach -noattr
sign keyid "${leaf[@]}" -nodetach -keyid
sign nocerts "${leaf[@]}" -nodetach -nocerts
sign two "${leaf[@]}" "${root[@]}" -nodetach -md sha384
sign chain "${leaf[@]}" -certfile "$work/root.pem"

openssl crl2pkcs7 -in "$work/root.crl.pem" -certfile "$work/root.pem" -outform DER \
    -out "$out/seed-crl.der" 2>/dev/null

# An OCSP response about the leaf, carried as other revocation info
# (id-ri-ocsp-response) in the revocation set of the attached message.
printf 'V\t400101000000Z\t\t1001\tunknown\t/CN=Seed Leaf\n' >"$work/index.txt"
openssl ocsp -issuer "$work/root.pem" -cert "$work/leaf.pem" -reqout "$work/req.der" 2>/dev/null
openssl ocsp -index "$work/index.txt" -rsigner "$work/root.pem" -rkey "$work/root.key" \
    -CA "$work/root.pem" -reqin "$work/req.der" -respout "$work/ocsp.der" 2>/dev/null
PYTHONPATH="$here" /usr/bin/python3 - "$out/seed-attached.der" "$work/ocsp.der" "$out/seed-ocsp.der" <<'PY'
import sys

from der import children, tlv

message = open(sys.argv[1], 'rb').read()
ocsp = open(sys.argv[2], 'rb').read()
oid, explicit = children(message)
fields = children(children(explicit)[0])
other = tlv(0xA1, bytes.fromhex('06082b06010505071002') + ocsp)
fields.insert(len(fields) - 1, tlv(0xA1, other))
signed = tlv(0x30, b''.join(fields))
open(sys.argv[3], 'wb').write(tlv(0x30, oid + tlv(0xA0, signed)))
PY

echo 01 >"$work/serial"
cat >"$work/tsa.cnf" <<CNF
[ tsa ]
default_tsa = seed
[ seed ]
serial = $work/serial
crypto_device = builtin
signer_digest = sha256
default_policy = 1.2.3.4.1
digests = sha256
ess_cert_id_alg = sha1
CNF
openssl ts -query -data "$work/data" -sha256 -cert -out "$work/q.tsq" 2>/dev/null
openssl ts -reply -config "$work/tsa.cnf" -queryfile "$work/q.tsq" -signer "$work/tsa.pem" \
    -inkey "$work/tsa.key" -token_out -out "$out/seed-token.der" 2>/dev/null
