#!/usr/bin/env bash
# `tessera timestamp` against the loopback TSA: the printed fields, and the
# token it writes read and verified by `openssl ts`.
set -uo pipefail
cli=$1
dir=$TESSERA_TEST_SERVERS/tsa
url=$(cat "$dir/url")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail=0
check() {  # description, condition result
    if [ "$2" -ne 0 ]; then echo "FAILED: $1"; fail=1; fi
}

head -c 300000 /dev/urandom >"$work/data.bin"
expected=$(openssl dgst -sha384 -r "$work/data.bin" | cut -d' ' -f1)

out=$("$cli" timestamp --url "$url" --hash sha384 --out "$work/token.der" "$work/data.bin"); rc=$?
check "timestamp exits 0 (got $rc)" $rc
grep -qE '^genTime: [0-9]{14}Z$' <<<"$out"; check "genTime is printed: $out" $?
grep -qx "imprint: sha384 $expected" <<<"$out"; check "the imprint is the file's SHA-384" $?
grep -qE '^serial: +[0-9A-F]+$' <<<"$out"; check "the serial is printed" $?
grep -qx 'policy:  1.2.3.4.1' <<<"$out"; check "the policy is printed" $?

text=$(openssl ts -reply -token_in -in "$work/token.der" -text 2>&1); rc=$?
check "openssl reads the token" $rc
grep -q 'Hash Algorithm: sha384' <<<"$text"; check "openssl sees the SHA-384 imprint" $?
openssl ts -verify -token_in -in "$work/token.der" -data "$work/data.bin" \
    -CAfile "$dir/ca.pem" -untrusted "$dir/tsa.pem" >/dev/null 2>&1
check "openssl verifies the token over the file" $?

err=$("$cli" timestamp --url "http://127.0.0.1:1/tsa" "$work/data.bin" 2>&1 >/dev/null); rc=$?
[ $rc -eq 1 ]; check "an unreachable TSA exits 1 (got $rc)" $?
grep -q 'error 703: Cannot connect' <<<"$err"; check "code and description are printed: $err" $?

"$cli" timestamp "$work/data.bin" >/dev/null 2>&1; rc=$?
[ $rc -eq 2 ]; check "a missing --url exits 2 (got $rc)" $?
"$cli" timestamp --url "$url" --hash md5 "$work/data.bin" >/dev/null 2>&1; rc=$?
[ $rc -eq 2 ]; check "an unknown hash exits 2 (got $rc)" $?
"$cli" timestamp --url "$url" "$work/missing" >/dev/null 2>&1; rc=$?
[ $rc -eq 1 ]; check "an unreadable file exits 1 (got $rc)" $?

exit $fail
