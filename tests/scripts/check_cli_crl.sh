#!/usr/bin/env bash
# `tessera crl` over a CRL written by `openssl ca -gencrl` (PEM and DER), with
# and without a certificate to look up. The revocation line of the CA's index
# is written directly so that its time is fixed.
set -uo pipefail
cli=$1
source "$(dirname "$0")/cli_lib.sh"

ec_ca "/O=Tessera Test/CN=CLI Root"
ec_csr leaf "/CN=CLI Leaf"
openssl x509 -req -in leaf.csr -CA ca.pem -CAkey ca.key -set_serial 0x2A -days 1 \
    -out revoked.pem 2>/dev/null
openssl x509 -req -in leaf.csr -CA ca.pem -CAkey ca.key -set_serial 0x2B -days 1 \
    -outform DER -out good.der 2>/dev/null
printf 'R\t400101000000Z\t240601120000Z,keyCompromise\t2A\tunknown\t/CN=CLI Leaf\n' >index.txt
echo 1000 >crlnumber
write_ca_cnf ca.pem ca.key 'default_crl_days = 7'
openssl ca -config ca.cnf -gencrl -out crl.pem 2>/dev/null
openssl crl -in crl.pem -outform DER -out crl.der

ok "PEM CRL" "$cli" crl crl.pem
has "prints the issuer" '^issuer: *O=Tessera Test,CN=CLI Root$'
has "prints the CRL number in decimal" '^number: *4096$'
has "prints the AKI" '^authorityKeyId: *[0-9a-f]\{40\}$'
has "prints nextUpdate" '^nextUpdate: *[0-9][0-9]\.'
has "prints the signature algorithm" '^signature: *ecdsa-with-SHA256$'

ok "DER CRL with a listed certificate" "$cli" crl crl.der --cert revoked.pem
has "listed certificate: revoked" '^status: *revoked$'
has "revocation time" '^revocationTime: *01.06.2024 12:00:00 UTC$'
has "revocation reason" '^reason: *keyCompromise$'

ok "JSON with an unlisted certificate" "$cli" crl crl.der --cert good.der --json
has "unlisted certificate: not revoked" '"status": "not revoked"'
has "JSON carries the number" '"number": "4096"'
/usr/bin/python3 -c 'import json,sys; json.loads(sys.stdin.read())' <<<"$out"
check "JSON parses" $?

fails "a certificate is no CRL" 'error 109: ' "$cli" crl ca.pem
usage "missing FILE" "$cli" crl

exit $fail
