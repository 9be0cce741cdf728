#!/usr/bin/env bash
# `tessera chain` over the ocsp fixture's test PKI (written by tessera_testpki):
#
#   Tessera Test CA (--trust)
#   ├── Good Signer      serial 1001
#   └── Revoked Signer   serial 1002, revoked 2024-06-01 12:00:00 UTC
#
# The CA's CRL is signed by `openssl ca -gencrl` from the fixture's own index
# with pinned times; the OCSP answers come from the fixture's responder, which
# the certificates name in their AIA.
set -uo pipefail
cli=$1
pki=$TESSERA_TEST_SERVERS/ocsp/pki
source "$(dirname "$0")/cli_lib.sh"

fixture_crl "$pki"
openssl crl -in crl.pem -outform DER -out crl.der
openssl x509 -in "$pki/good.pem" -outform DER -out good.der
at=(--time 2024-06-15T12:00:00Z)

ok "good path with a CRL" "$cli" chain good.der --trust "$pki/ca.pem" --crl crl.pem "${at[@]}"
has "prints the pinned time" -x 'Verification time: 15.06.2024 12:00:00 UTC'
has "the checked certificate comes first" -x '\[0\] Subject: *O=Tessera Test,CN=Good Signer'
has "prints the serial in hex" -x ' *Serial: *1001'
has "names the CRL that decided" \
    -x ' *Revocation: CRL issued 10.06.2024 00:00:00 UTC by O=Tessera Test,CN=Tessera Test CA'
has "the anchor comes last" -x '\[1\] Subject: *O=Tessera Test,CN=Tessera Test CA'
[ "$(grep -c '^ *Revocation: none$' <<<"$out")" -eq 1 ]; check "the self-signed anchor is not checked" $?
[ "$(tail -n 1 <<<"$out")" = "Result: valid" ]; check "ends with the result" $?

fails "revoked on the CRL" '^tessera chain: error 149: ' \
    "$cli" chain "$pki/revoked.pem" --trust "$pki/ca.pem" --crl crl.der "${at[@]}"
ok "revoked only after the verification time" \
    "$cli" chain "$pki/revoked.pem" --trust "$pki/ca.pem" --crl crl.der --time 2024-06-01T11:59:59Z
fails "missing anchor" '^tessera chain: error 146: .*(unable to get local issuer certificate)$' \
    "$cli" chain good.der --trust "$pki/untrusted-ca.pem" --extra "$pki/ocsp.pem" --crl crl.pem "${at[@]}"
fails "no CRL at all" '^tessera chain: error 147: ' \
    "$cli" chain good.der --trust "$pki/ca.pem" "${at[@]}"

# OCSP through the responder named in the AIA, at the current time.
ok "good path over OCSP" "$cli" chain "$pki/good.pem" --trust "$pki/ca.pem" --mode ocsp --fetch
has "names the OCSP response that decided" \
    '^ *Revocation: OCSP response produced .* by .*CN=Tessera Test OCSP Responder'
fails "revoked over OCSP" '^tessera chain: error 149: ' \
    "$cli" chain "$pki/revoked.pem" --trust "$pki/ca.pem" --mode ocsp --fetch

usage "no --trust" "$cli" chain good.der --crl crl.pem
usage "an impossible --time" "$cli" chain good.der --trust "$pki/ca.pem" --time 2024-02-30T00:00:00Z
usage "an unknown --mode" "$cli" chain good.der --trust "$pki/ca.pem" --mode sometimes

exit $fail
