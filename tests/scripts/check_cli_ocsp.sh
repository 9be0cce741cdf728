#!/usr/bin/env bash
# `tessera ocsp` against the ocsp fixture's `openssl ocsp` responders; the
# response it keeps is read back by `openssl ocsp -respin`.
set -uo pipefail
cli=$1
dir=$TESSERA_TEST_SERVERS/ocsp
pki=$dir/pki
url=$(cat "$dir/url")
untrusted=$(cat "$dir/untrusted-url")
source "$(dirname "$0")/cli_lib.sh"
kept_revoked() { openssl ocsp -respin "$1" -resp_text -noverify 2>/dev/null | grep -q 'Cert Status: revoked'; }

ok "revoked certificate" "$cli" ocsp --url "$url" --issuer "$pki/ca.pem" --cert "$pki/revoked.pem" \
    --trust "$pki/ca.pem" --out resp.der
has "prints status revoked" '^status: *revoked$'
has "prints the revocation time" '^revocationTime: *01.06.2024 12:00:00 UTC$'
has "prints the reason" '^reason: *keyCompromise$'
has "prints nextUpdate" '^nextUpdate: *[0-9]'
kept_revoked resp.der; check "openssl reads the kept response" $?

ok "good certificate with SHA-256 identifier" \
    "$cli" ocsp --url "$url" --issuer "$pki/ca.pem" --cert "$pki/good.pem" --hash sha256
has "prints status good" '^status: *good$'

fails "untrusted responder" 'error 141: ' \
    "$cli" ocsp --url "$untrusted" --issuer "$pki/ca.pem" --cert "$pki/good.pem"

# Through X509OcspClientOnline: the URL comes from the certificate's AIA.
ok "--client without --url" \
    "$cli" ocsp --client --issuer "$pki/ca.pem" --cert "$pki/revoked.pem" --out client.der
has "--client prints status revoked" '^status: *revoked$'
has "--client prints the reason" '^reason: *keyCompromise$'
kept_revoked client.der; check "openssl reads the response kept through --client" $?

ok "--client: --trust certificates are the client's trust store" "$cli" ocsp --client \
    --url "$untrusted" --issuer "$pki/ca.pem" --cert "$pki/good.pem" --trust "$pki/untrusted-ocsp.pem"
has "--client asks the --url given" '^responder: *CN=Untrusted OCSP Responder'
fails "--client for a certificate without AIA (no URL at all)" 'error 117: ' \
    "$cli" ocsp --client --issuer "$pki/ca.pem" --cert "$pki/ca.pem"

usage "missing --issuer" "$cli" ocsp --url "$url" --cert "$pki/good.pem"

exit $fail
