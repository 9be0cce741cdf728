#!/usr/bin/env bash
# `tessera extend` against the loopback TSA and OCSP responder. A CAdES-T of
# a signer made here is extended to LT with CRLs (its root's, and one made
# here for the TSA's CA) and on to LTA, still accepted by `openssl cms
# -verify` and validated with proofs of existence; a signature of the ocsp
# fixture's good signer takes its status from the responder, as other
# revocation info. The http fixture's /status/500 is a failing authority.
# The fixtures sign at the real time, so everything is checked now.
#
#   CLI Extend Root (--trust, crl.pem)   the tsa fixture's CA (--trust, tsa-crl.pem)
#   └── CLI Extend Signer                └── Tessera Test TSA
#   the ocsp fixture's CA
#   └── Good Signer (OCSP through its AIA)
set -uo pipefail
cli=$1
tsa=$TESSERA_TEST_SERVERS/tsa
ocsp=$TESSERA_TEST_SERVERS/ocsp
url=$(cat "$tsa/url")
failing=$(cat "$TESSERA_TEST_SERVERS/http/url")/status/500
source "$(dirname "$0")/cli_lib.sh"

rsa_pki "CLI Extend" 20240610000000Z 20440101000000Z
mkdir fixture && (
    cd fixture && cp "$tsa/pki/index.txt" index.txt && echo 1000 >crlnumber &&
        write_ca_cnf "$tsa/pki/ca.pem" "$tsa/pki/ca.key.pem" &&
        openssl ca -config ca.cnf -gencrl -crl_lastupdate 20240610000000Z \
            -crl_nextupdate 20440101000000Z -out ../tsa-crl.pem 2>/dev/null
)
printf 'extended content\r\n' >in.txt
paths=(--trust root.pem --trust "$tsa/pki/ca.pem" --crl crl.pem --crl tsa-crl.pem)
openssl_accepts() {  # SIG ANCHOR
    openssl cms -verify -binary -inform DER -in "$1" -CAfile "$2" -purpose any \
        -out verified.txt 2>/dev/null && cmp -s verified.txt in.txt
}
form() { "$cli" info "$1" | sed -n 's/^ *longTermForm: *//p'; }

ok "sign --tsa" "$cli" sign --cert signer.pem --key signer.key --tsa "$url" in.txt t.der
ok "extend --to lt" "$cli" extend t.der --to lt "${paths[@]}" lt.der
has "extend says what it added: both paths and their CRLs" \
    -x 'lt.der: 1 signer(s) extended to LT, 4 certificate(s), 2 revocation item(s), [0-9]* bytes DER'
[ "$(form lt.der)" = LT ]; check "the signer is LT now" $?
openssl_accepts lt.der root.pem
check "openssl cms -verify still accepts the LT signature" $?

ok "extend --to lta" "$cli" extend lt.der --to lta --tsa "$url" "${paths[@]}" lta.der
has "nothing is added twice" \
    -x 'lta.der: 1 signer(s) extended to LTA, 4 certificate(s), 2 revocation item(s), [0-9]* bytes DER'
[ "$(form lta.der)" = LTA ]; check "the signer is LTA now" $?
openssl_accepts lta.der root.pem
check "openssl cms -verify still accepts the LTA signature" $?
ok "validate --poe" "$cli" validate lta.der --trust root.pem --tsa-trust "$tsa/pki/ca.pem" \
    --crl crl.pem --crl tsa-crl.pem --poe

"$cli" sign --cert signer.pem --key signer.key --detached --tsa "$url" in.txt detached.der >/dev/null
fails "LTA of a detached signature without its content" 'error 121: ' \
    "$cli" extend detached.der --to lta --tsa "$url" "${paths[@]}" bad.der
ok "LTA of a detached signature with --content" \
    "$cli" extend detached.der --to lta --tsa "$url" --content in.txt "${paths[@]}" dlta.der
ok "validate --poe --content" "$cli" validate dlta.der --content in.txt --trust root.pem \
    --tsa-trust "$tsa/pki/ca.pem" --crl crl.pem --crl tsa-crl.pem --poe

"$cli" sign --cert "$ocsp/pki/good.pem" --key "$ocsp/pki/good.key.pem" in.txt good.der >/dev/null
ok "extend --mode ocsp --fetch" "$cli" extend good.der --to lt --trust "$ocsp/pki/ca.pem" \
    --mode ocsp --fetch good-lt.der
run "$cli" info good-lt.der
has "the responder's answer is in the message" -E '^ocspResponse: +[^(]'
openssl_accepts good-lt.der "$ocsp/pki/ca.pem"
check "openssl cms -verify accepts a message with other revocation info" $?

fails "LTA at a TSA answering 500" 'error 706: ' \
    "$cli" extend t.der --to lta --tsa "$failing" "${paths[@]}" bad.der
[ ! -e bad.der ]; check "a failed LTA leaves no OUT" $?
fails "LT without a revocation source for the signer" 'error 147: ' \
    "$cli" extend t.der --to lt --trust root.pem --trust "$tsa/pki/ca.pem" --crl tsa-crl.pem bad.der
[ ! -e bad.der ]; check "a failed LT leaves no OUT" $?
usage "extend --to lta without --tsa" "$cli" extend t.der --to lta "${paths[@]}" x.der
exit $fail
