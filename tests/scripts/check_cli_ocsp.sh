#!/usr/bin/env bash
# `tessera ocsp` against the ocsp fixture's `openssl ocsp` responders; the
# response it keeps is read back by `openssl ocsp -respin`.
set -uo pipefail
cli=$1
dir=$TESSERA_TEST_SERVERS/ocsp
pki=$dir/pki
url=$(cat "$dir/url")
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
fail=0
check() { if [ "$2" -ne 0 ]; then echo "FAILED: $1"; fail=1; fi; }

out=$("$cli" ocsp --url "$url" --issuer "$pki/ca.pem" --cert "$pki/revoked.pem" \
      --trust "$pki/ca.pem" --out "$scratch/resp.der"); rc=$?
check "revoked certificate: exit 0 (got $rc)" $rc
grep -q '^status: *revoked$' <<<"$out"; check "prints status revoked" $?
grep -q '^revocationTime: *01.06.2024 12:00:00 UTC$' <<<"$out"; check "prints the revocation time" $?
grep -q '^reason: *keyCompromise$' <<<"$out"; check "prints the reason" $?
grep -q '^nextUpdate: *[0-9]' <<<"$out"; check "prints nextUpdate" $?
openssl ocsp -respin "$scratch/resp.der" -resp_text -noverify 2>/dev/null | grep -q 'Cert Status: revoked'
check "openssl reads the kept response" $?

out=$("$cli" ocsp --url "$url" --issuer "$pki/ca.pem" --cert "$pki/good.pem" --hash sha256); rc=$?
check "good certificate with SHA-256 identifier: exit 0" $rc
grep -q '^status: *good$' <<<"$out"; check "prints status good" $?

err=$("$cli" ocsp --url "$(cat "$dir/untrusted-url")" --issuer "$pki/ca.pem" \
      --cert "$pki/good.pem" 2>&1 >/dev/null); rc=$?
[ $rc -eq 1 ]; check "untrusted responder: exit 1 (got $rc)" $?
grep -q 'error 141: ' <<<"$err"; check "untrusted responder: code 141 with its description" $?

# Through X509OcspClientOnline: the URL comes from the certificate's AIA.
out=$("$cli" ocsp --client --issuer "$pki/ca.pem" --cert "$pki/revoked.pem" \
      --out "$scratch/client.der"); rc=$?
check "--client without --url: exit 0 (got $rc)" $rc
grep -q '^status: *revoked$' <<<"$out"; check "--client prints status revoked" $?
grep -q '^reason: *keyCompromise$' <<<"$out"; check "--client prints the reason" $?
openssl ocsp -respin "$scratch/client.der" -resp_text -noverify 2>/dev/null | grep -q 'Cert Status: revoked'
check "openssl reads the response kept through --client" $?

out=$("$cli" ocsp --client --url "$(cat "$dir/untrusted-url")" --issuer "$pki/ca.pem" \
      --cert "$pki/good.pem" --trust "$pki/untrusted-ocsp.pem"); rc=$?
check "--client: --trust certificates are the client's trust store (got $rc)" $rc
grep -q '^responder: *CN=Untrusted OCSP Responder' <<<"$out"; check "--client asks the --url given" $?

err=$("$cli" ocsp --client --issuer "$pki/ca.pem" --cert "$pki/ca.pem" 2>&1 >/dev/null); rc=$?
[ $rc -eq 1 ]; check "--client for a certificate without AIA: exit 1 (got $rc)" $?
grep -q 'error 117: ' <<<"$err"; check "--client without any URL: code 117" $?

"$cli" ocsp --url "$url" --cert "$pki/good.pem" >/dev/null 2>&1; rc=$?
[ $rc -eq 2 ]; check "missing --issuer is a usage error (got $rc)" $?

exit $fail
