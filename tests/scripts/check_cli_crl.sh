#!/usr/bin/env bash
# `tessera crl` over a CRL written by `openssl ca -gencrl` (PEM and DER), with
# and without a certificate to look up. The revocation line of the CA's index
# is written directly so that its time is fixed.
set -uo pipefail
cli=$1
source "$(dirname "$0")/cli_lib.sh"

openssl req -x509 -new -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -keyout ca.key \
    -subj "/O=Tessera Test/CN=CLI Root" -days 2 -out ca.pem 2>/dev/null
openssl req -new -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -keyout leaf.key \
    -subj "/CN=CLI Leaf" -out leaf.csr 2>/dev/null
openssl x509 -req -in leaf.csr -CA ca.pem -CAkey ca.key -set_serial 0x2A -days 1 \
    -out revoked.pem 2>/dev/null
openssl x509 -req -in leaf.csr -CA ca.pem -CAkey ca.key -set_serial 0x2B -days 1 \
    -outform DER -out good.der 2>/dev/null
printf 'R\t400101000000Z\t240601120000Z,keyCompromise\t2A\tunknown\t/CN=CLI Leaf\n' >index.txt
echo 1000 >crlnumber
write_ca_cnf ca.pem ca.key 'default_crl_days = 7'
openssl ca -config ca.cnf -gencrl -out crl.pem 2>/dev/null
openssl crl -in crl.pem -outform DER -out crl.der

out=$("$cli" crl crl.pem); rc=$?
check "PEM CRL: exit 0 (got $rc)" $rc
grep -q '^issuer: *O=Tessera Test,CN=CLI Root$' <<<"$out"; check "prints the issuer" $?
grep -q '^number: *4096$' <<<"$out"; check "prints the CRL number in decimal" $?
grep -q '^authorityKeyId: *[0-9a-f]\{40\}$' <<<"$out"; check "prints the AKI" $?
grep -q '^nextUpdate: *[0-9][0-9]\.' <<<"$out"; check "prints nextUpdate" $?
grep -q '^signature: *ecdsa-with-SHA256$' <<<"$out"; check "prints the signature algorithm" $?

out=$("$cli" crl crl.der --cert revoked.pem); rc=$?
check "DER CRL with a listed certificate: exit 0 (got $rc)" $rc
grep -q '^status: *revoked$' <<<"$out"; check "listed certificate: revoked" $?
grep -q '^revocationTime: *01.06.2024 12:00:00 UTC$' <<<"$out"; check "revocation time" $?
grep -q '^reason: *keyCompromise$' <<<"$out"; check "revocation reason" $?

out=$("$cli" crl crl.der --cert good.der --json); rc=$?
check "JSON with an unlisted certificate: exit 0 (got $rc)" $rc
grep -q '"status": "not revoked"' <<<"$out"; check "unlisted certificate: not revoked" $?
grep -q '"number": "4096"' <<<"$out"; check "JSON carries the number" $?
/usr/bin/python3 -c 'import json,sys; json.loads(sys.stdin.read())' <<<"$out"
check "JSON parses" $?

err=$("$cli" crl ca.pem 2>&1 >/dev/null); rc=$?
[ $rc -eq 1 ]; check "a certificate is no CRL: exit 1 (got $rc)" $?
grep -q 'error 109: ' <<<"$err"; check "a certificate is no CRL: code 109" $?

"$cli" crl >/dev/null 2>&1; rc=$?
[ $rc -eq 2 ]; check "missing FILE is a usage error (got $rc)" $?

exit $fail
