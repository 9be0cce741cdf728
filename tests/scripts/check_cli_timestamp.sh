#!/usr/bin/env bash
# `tessera timestamp` against the loopback TSA: the printed fields, and the
# token it writes read and verified by `openssl ts`.
set -uo pipefail
cli=$1
dir=$TESSERA_TEST_SERVERS/tsa
url=$(cat "$dir/url")
source "$(dirname "$0")/cli_lib.sh"

head -c 300000 /dev/urandom >data.bin
expected=$(openssl dgst -sha384 -r data.bin | cut -d' ' -f1)

ok "timestamp" "$cli" timestamp --url "$url" --hash sha384 --out token.der data.bin
has "genTime is printed: $out" -E '^genTime: [0-9]{14}Z$'
has "the imprint is the file's SHA-384" -x "imprint: sha384 $expected"
has "the serial is printed" -E '^serial: +[0-9A-F]+$'
has "the policy is printed" -x 'policy:  1.2.3.4.1'

ok "openssl reads the token" openssl ts -reply -token_in -in token.der -text
has "openssl sees the SHA-384 imprint" 'Hash Algorithm: sha384'
openssl ts -verify -token_in -in token.der -data data.bin \
    -CAfile "$dir/ca.pem" -untrusted "$dir/tsa.pem" >/dev/null 2>&1
check "openssl verifies the token over the file" $?

fails "an unreachable TSA" 'error 703: Cannot connect' "$cli" timestamp --url "http://127.0.0.1:1/tsa" data.bin
usage "a missing --url" "$cli" timestamp data.bin
usage "an unknown hash" "$cli" timestamp --url "$url" --hash md5 data.bin
run "$cli" timestamp --url "$url" missing
[ "$rc" -eq 1 ]; check "an unreadable file exits 1 (got $rc)" $?

exit $fail
