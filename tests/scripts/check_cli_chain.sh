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

out=$("$cli" chain good.der --trust "$pki/ca.pem" --crl crl.pem "${at[@]}"); rc=$?
check "good path with a CRL: exit 0 (got $rc)" $rc
grep -qx 'Verification time: 15.06.2024 12:00:00 UTC' <<<"$out"; check "prints the pinned time" $?
grep -qx '\[0\] Subject: *O=Tessera Test,CN=Good Signer' <<<"$out"; check "the checked certificate comes first" $?
grep -qx ' *Serial: *1001' <<<"$out"; check "prints the serial in hex" $?
grep -qx ' *Revocation: CRL issued 10.06.2024 00:00:00 UTC by O=Tessera Test,CN=Tessera Test CA' <<<"$out"
check "names the CRL that decided" $?
grep -qx '\[1\] Subject: *O=Tessera Test,CN=Tessera Test CA' <<<"$out"; check "the anchor comes last" $?
[ "$(grep -c '^ *Revocation: none$' <<<"$out")" -eq 1 ]; check "the self-signed anchor is not checked" $?
[ "$(tail -n 1 <<<"$out")" = "Result: valid" ]; check "ends with the result" $?

err=$("$cli" chain "$pki/revoked.pem" --trust "$pki/ca.pem" --crl crl.der "${at[@]}" 2>&1 >/dev/null); rc=$?
[ $rc -eq 1 ]; check "revoked on the CRL: exit 1 (got $rc)" $?
grep -q '^tessera chain: error 149: ' <<<"$err"; check "revoked on the CRL: code 149" $?

out=$("$cli" chain "$pki/revoked.pem" --trust "$pki/ca.pem" --crl crl.der --time 2024-06-01T11:59:59Z)
check "revoked only after the verification time: exit 0" $?

err=$("$cli" chain good.der --trust "$pki/untrusted-ca.pem" --extra "$pki/ocsp.pem" --crl crl.pem \
      "${at[@]}" 2>&1 >/dev/null); rc=$?
[ $rc -eq 1 ]; check "missing anchor: exit 1 (got $rc)" $?
grep -q '^tessera chain: error 146: .*(unable to get local issuer certificate)$' <<<"$err"
check "missing anchor: code 146 with OpenSSL's text" $?

err=$("$cli" chain good.der --trust "$pki/ca.pem" "${at[@]}" 2>&1 >/dev/null); rc=$?
[ $rc -eq 1 ]; check "no CRL at all: exit 1 (got $rc)" $?
grep -q '^tessera chain: error 147: ' <<<"$err"; check "no CRL at all: code 147" $?

# OCSP through the responder named in the AIA, at the current time.
out=$("$cli" chain "$pki/good.pem" --trust "$pki/ca.pem" --mode ocsp --fetch); rc=$?
check "good path over OCSP: exit 0 (got $rc)" $rc
grep -q '^ *Revocation: OCSP response produced .* by .*CN=Tessera Test OCSP Responder' <<<"$out"
check "names the OCSP response that decided" $?
err=$("$cli" chain "$pki/revoked.pem" --trust "$pki/ca.pem" --mode ocsp --fetch 2>&1 >/dev/null)
rc=$?
[ $rc -eq 1 ]; check "revoked over OCSP: exit 1 (got $rc)" $?
grep -q '^tessera chain: error 149: ' <<<"$err"; check "revoked over OCSP: code 149" $?

"$cli" chain good.der --crl crl.pem >/dev/null 2>&1; rc=$?
[ $rc -eq 2 ]; check "no --trust is a usage error (got $rc)" $?
"$cli" chain good.der --trust "$pki/ca.pem" --time 2024-02-30T00:00:00Z >/dev/null 2>&1; rc=$?
[ $rc -eq 2 ]; check "an impossible --time is a usage error (got $rc)" $?
"$cli" chain good.der --trust "$pki/ca.pem" --mode sometimes >/dev/null 2>&1; rc=$?
[ $rc -eq 2 ]; check "an unknown --mode is a usage error (got $rc)" $?

exit $fail
