#!/usr/bin/env bash
# `tessera verify` over signatures made by `openssl cms -sign` with the ocsp
# fixture's test PKI (written by tessera_testpki):
#
#   Tessera Test CA (--trust)
#   ├── Good Signer      serial 1001
#   └── Revoked Signer   serial 1002, revoked 2024-06-01 12:00:00 UTC
#
# The CA's CRL is signed by `openssl ca -gencrl` with pinned times, and every
# path check runs at 2024-06-15 12:00 UTC.
set -uo pipefail
cli=$1
pki=$TESSERA_TEST_SERVERS/ocsp/pki
source "$(dirname "$0")/cli_lib.sh"

fixture_crl "$pki"
printf 'signed by openssl, verified by tessera\n' >content.txt
printf 'signed by openssl, verified by tessera?\n' >other.txt
good=(-signer "$pki/good.pem" -inkey "$pki/good.key.pem")
revoked=(-signer "$pki/revoked.pem" -inkey "$pki/revoked.key.pem")
sign() { timeout 30 openssl cms -sign -binary -in content.txt "$@" 2>/dev/null; }
sign "${good[@]}" -nodetach -outform DER -out attached.der
sign "${good[@]}" -nodetach -outform PEM -out attached.pem
sign "${good[@]}" -noattr -outform DER -out detached.der
sign "${good[@]}" "${revoked[@]}" -outform DER -out both.der
chain=(--trust "$pki/ca.pem" --crl crl.pem --time 2024-06-15T12:00:00Z)

ok "attached, path with a CRL" "$cli" verify attached.der "${chain[@]}"
has "prints the pinned time" -x 'Verification time: 15.06.2024 12:00:00 UTC'
has "names the signer" -x 'Signer 1: O=Tessera Test,CN=Good Signer'
has "lists the checks passed" -x ' *Checked: signature, content type, certificate path'
[ "$(tail -n 1 <<<"$out")" = "Result: valid (1 of 1 signers valid)" ]; check "ends with the result" $?

"$cli" verify attached.pem --verify none >/dev/null; check "PEM input, no certificate check" $?
ok "without --trust the signer certificate alone is checked" "$cli" verify attached.pem
has "names the signer-certificate check" -x ' *Checked: signature, content type, signer certificate'

"$cli" verify detached.der --content content.txt "${chain[@]}" >/dev/null
check "detached without attributes, with its content" $?
# invalid DESCRIPTION CMD...: CMD exits 1 with its verdict on stdout.
invalid() { run "${@:2}"; [ "$rc" -eq 1 ]; check "$1: exit 1 (got $rc)" $?; }
invalid "detached without content" "$cli" verify detached.der "${chain[@]}"
has "detached without content: code 121" '^ *Error: *121: '
invalid "other content" "$cli" verify detached.der --content other.txt --verify none
has "other content: code 122" '^ *Error: *122: '
digest=$(openssl dgst -sha256 -r content.txt | cut -d' ' -f1)
"$cli" verify detached.der --digest "$digest" --verify none >/dev/null
check "detached, verified against the content's digest" $?

invalid "one of two signers revoked" "$cli" verify both.der --content content.txt "${chain[@]}"
# DER sorts the signer infos, so either may come first.
grep -A3 -x 'Signer [12]: O=Tessera Test,CN=Revoked Signer' <<<"$out" | grep -q '^ *Error: *149: '
check "the revoked signer: code 149" $?
grep -A1 -x 'Signer [12]: O=Tessera Test,CN=Good Signer' <<<"$out" | grep -qx ' *Result: *valid'
check "the good signer still passes" $?
[ "$(tail -n 1 <<<"$out")" = "Result: invalid (1 of 2 signers valid)" ]; check "overall result" $?

usage "--content with --digest" "$cli" verify detached.der --content content.txt --digest "$digest"
usage "--verify chain without --trust" "$cli" verify attached.der --verify chain
fails "not a signature" '^tessera verify: error 114: ' "$cli" verify content.txt
exit $fail
