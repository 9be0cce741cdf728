#!/usr/bin/env bash
# `tessera hash` prints what sha1sum/sha256sum/sha512sum print, on an empty
# file, small ones and one larger than its read block; `tessera base64`
# writes what `base64 -w 76` writes and decodes what `base64 -d` decodes.
set -uo pipefail
cli=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work" || exit 1
fail=0
check() {  # description, condition result
    if [ "$2" -ne 0 ]; then echo "FAILED: $1"; fail=1; fi
}

: >empty.bin
printf abc >abc.txt
head -c 57 /dev/urandom >line.bin
head -c 3000001 /dev/urandom >large.bin  # three read blocks and a bit
printf x >'back\slash'
files=(empty.bin abc.txt line.bin large.bin 'back\slash')

for alg in sha1 sha256 sha512; do
    ours=$("$cli" hash --alg "$alg" "${files[@]}"); rc=$?
    check "hash --alg $alg exits 0 (got $rc)" $rc
    [ "$ours" = "$("${alg}sum" "${files[@]}")" ]; check "hash --alg $alg is ${alg}sum's output" $?
done
[ "$("$cli" hash large.bin)" = "$(sha256sum large.bin)" ]; check "SHA-256 is the default" $?
[ "$("$cli" hash <large.bin)" = "$(sha256sum <large.bin)" ]; check "no FILE reads stdin" $?

out=$("$cli" hash missing abc.txt 2>err.txt); rc=$?
[ $rc -eq 1 ]; check "a missing file exits 1 (got $rc)" $?
[ "$out" = "$(sha256sum abc.txt)" ]; check "the files after a missing one are still hashed" $?
grep -q 'missing' err.txt; check "the missing file is named on stderr" $?
"$cli" hash --alg md5 abc.txt >/dev/null 2>err.txt; rc=$?
[ $rc -eq 1 ]; check "an unsupported algorithm exits 1 (got $rc)" $?
grep -q 'error 113: Algorithm not supported.' err.txt; check "code and description are printed" $?
"$cli" hash --bogus abc.txt >/dev/null 2>&1; rc=$?
[ $rc -eq 2 ]; check "an unknown option exits 2 (got $rc)" $?

for f in abc.txt line.bin large.bin; do
    "$cli" base64 encode "$f" enc.txt; rc=$?
    check "base64 encode $f exits 0 (got $rc)" $rc
    cmp -s enc.txt <(base64 -w 76 "$f"); check "encoding $f gives base64 -w 76's text" $?
    "$cli" base64 decode <enc.txt >dec.bin; rc=$?
    check "base64 decode of $f's text exits 0 (got $rc)" $rc
    cmp -s dec.bin "$f"; check "decoding $f's text gives $f back" $?
done
cmp -s <("$cli" base64 encode --none large.bin) <(base64 -w 0 large.bin)
check "--none gives one unbroken line" $?
"$cli" base64 encode --crlf large.bin crlf.txt
cmp -s crlf.txt <(base64 -w 76 large.bin | sed 's/$/\r/'); check "--crlf ends lines with CR LF" $?
"$cli" base64 decode crlf.txt | cmp -s - large.bin; check "CR LF text decodes" $?
"$cli" base64 encode empty.bin | cmp -s - empty.bin; check "empty input gives empty text" $?

printf 'QUJDRE' | "$cli" base64 decode >/dev/null 2>err.txt; rc=$?
[ $rc -eq 1 ]; check "an incomplete group exits 1 (got $rc)" $?
grep -q 'error 111: Base64 decoding error.' err.txt; check "the decoding error is printed" $?
"$cli" base64 decode --crlf enc.txt >/dev/null 2>&1; rc=$?
[ $rc -eq 2 ]; check "line-break switches with decode exit 2 (got $rc)" $?
"$cli" base64 >/dev/null 2>&1; rc=$?
[ $rc -eq 2 ]; check "a missing mode exits 2 (got $rc)" $?

exit $fail
