#!/usr/bin/env bash
# `tessera hash` prints what sha1sum/sha256sum/sha512sum print, on an empty
# file, small ones and one larger than its read block; `tessera base64`
# writes what `base64 -w 76` writes and decodes what `base64 -d` decodes.
set -uo pipefail
cli=$1
source "$(dirname "$0")/cli_lib.sh"

: >empty.bin
printf abc >abc.txt
head -c 57 /dev/urandom >line.bin
head -c 3000001 /dev/urandom >large.bin  # three read blocks and a bit
printf x >'back\slash'
files=(empty.bin abc.txt line.bin large.bin 'back\slash')

for alg in sha1 sha256 sha512; do
    ok "hash --alg $alg" "$cli" hash --alg "$alg" "${files[@]}"
    [ "$out" = "$("${alg}sum" "${files[@]}")" ]; check "hash --alg $alg is ${alg}sum's output" $?
done
[ "$("$cli" hash large.bin)" = "$(sha256sum large.bin)" ]; check "SHA-256 is the default" $?
[ "$("$cli" hash <large.bin)" = "$(sha256sum <large.bin)" ]; check "no FILE reads stdin" $?

fails "a missing file" 'missing' "$cli" hash missing abc.txt
[ "$out" = "$(sha256sum abc.txt)" ]; check "the files after a missing one are still hashed" $?
fails "an unsupported algorithm" 'error 113: Algorithm not supported.' "$cli" hash --alg md5 abc.txt
usage "an unknown option" "$cli" hash --bogus abc.txt

for f in abc.txt line.bin large.bin; do
    ok "base64 encode $f" "$cli" base64 encode "$f" enc.txt
    cmp -s enc.txt <(base64 -w 76 "$f"); check "encoding $f gives base64 -w 76's text" $?
    "$cli" base64 decode <enc.txt >dec.bin; check "base64 decode of $f's text exits 0" $?
    cmp -s dec.bin "$f"; check "decoding $f's text gives $f back" $?
done
cmp -s <("$cli" base64 encode --none large.bin) <(base64 -w 0 large.bin)
check "--none gives one unbroken line" $?
"$cli" base64 encode --crlf large.bin crlf.txt
cmp -s crlf.txt <(base64 -w 76 large.bin | sed 's/$/\r/'); check "--crlf ends lines with CR LF" $?
"$cli" base64 decode crlf.txt | cmp -s - large.bin; check "CR LF text decodes" $?
"$cli" base64 encode empty.bin | cmp -s - empty.bin; check "empty input gives empty text" $?

printf 'QUJDRE' >short.txt
fails "an incomplete group" 'error 111: Base64 decoding error.' "$cli" base64 decode <short.txt
usage "line-break switches with decode" "$cli" base64 decode --crlf enc.txt
usage "a missing mode" "$cli" base64

exit $fail
