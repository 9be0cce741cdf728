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

out=$("$cli" verify attached.der "${chain[@]}"); rc=$?
check "attached, path with a CRL: exit 0 (got $rc)" $rc
grep -qx 'Verification time: 15.06.2024 12:00:00 UTC' <<<"$out"; check "prints the pinned time" $?
grep -qx 'Signer 1: O=Tessera Test,CN=Good Signer' <<<"$out"; check "names the signer" $?
grep -qx ' *Checked: signature, content type, certificate path' <<<"$out"
check "lists the checks passed" $?
[ "$(tail -n 1 <<<"$out")" = "Result: valid (1 of 1 signers valid)" ]; check "ends with the result" $?

"$cli" verify attached.pem --verify none >/dev/null; check "PEM input, no certificate check" $?
out=$("$cli" verify attached.pem); rc=$?
check "without --trust the signer certificate alone is checked (got $rc)" $rc
grep -qx ' *Checked: signature, content type, signer certificate' <<<"$out"
check "names the signer-certificate check" $?

"$cli" verify detached.der --content content.txt "${chain[@]}" >/dev/null
check "detached without attributes, with its content" $?
out=$("$cli" verify detached.der "${chain[@]}"); rc=$?
[ $rc -eq 1 ]; check "detached without content: exit 1 (got $rc)" $?
grep -q '^ *Error: *121: ' <<<"$out"; check "detached without content: code 121" $?
out=$("$cli" verify detached.der --content other.txt --verify none); rc=$?
[ $rc -eq 1 ]; check "other content: exit 1 (got $rc)" $?
grep -q '^ *Error: *122: ' <<<"$out"; check "other content: code 122" $?
digest=$(openssl dgst -sha256 -r content.txt | cut -d' ' -f1)
"$cli" verify detached.der --digest "$digest" --verify none >/dev/null
check "detached, verified against the content's digest" $?

out=$("$cli" verify both.der --content content.txt "${chain[@]}"); rc=$?
[ $rc -eq 1 ]; check "one of two signers revoked: exit 1 (got $rc)" $?
# DER sorts the signer infos, so either may come first.
grep -A3 -x 'Signer [12]: O=Tessera Test,CN=Revoked Signer' <<<"$out" | grep -q '^ *Error: *149: '
check "the revoked signer: code 149" $?
grep -A1 -x 'Signer [12]: O=Tessera Test,CN=Good Signer' <<<"$out" | grep -qx ' *Result: *valid'
check "the good signer still passes" $?
[ "$(tail -n 1 <<<"$out")" = "Result: invalid (1 of 2 signers valid)" ]; check "overall result" $?

"$cli" verify detached.der --content content.txt --digest "$digest" >/dev/null 2>&1
[ $? -eq 2 ]; check "--content with --digest is a usage error" $?
"$cli" verify attached.der --verify chain >/dev/null 2>&1
[ $? -eq 2 ]; check "--verify chain without --trust is a usage error" $?
err=$("$cli" verify content.txt 2>&1 >/dev/null); rc=$?
[ $rc -eq 1 ]; check "not a signature: exit 1 (got $rc)" $?
grep -q '^tessera verify: error 114: ' <<<"$err"; check "not a signature: code 114" $?
exit $fail
