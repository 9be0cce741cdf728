#!/usr/bin/env bash
# fuzz_qor_http.sh OUTDIR: writes raw HTTP responses — a CRL answer with
# Content-Length, an empty 200, 404 and 503 with bodies, header values with
# quotes, blanks and odd case, a first line without a blank, a header without
# its blank line, a lone LF as line end, a long header line and binary body
# bytes.
set -euo pipefail
out=$1
mkdir -p "$out"
printf 'HTTP/1.0 200 OK\r\nContent-Type: application/pkix-crl\r\nContent-Length: 4\r\n\r\n\x30\x02\x05\x00' >"$out/seed-crl"
printf 'HTTP/1.1 200 OK\r\n\r\n' >"$out/seed-empty"
printf 'HTTP/1.1 404 Not Found\r\nContent-Length: 9\r\n\r\nnot found' >"$out/seed-404"
printf 'HTTP/1.1 503 Busy\r\nRetry-After: 5\r\n\r\nlater' >"$out/seed-503"
printf 'HTTP/1.1 301 Moved\r\n  content-LENGTH :  "12" \t\r\n:nameless\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n' >"$out/seed-values"
printf 'garbage\r\n\r\nbody' >"$out/seed-garbage"
printf 'HTTP/1.0 200 OK\r\nContent-Type: x\r\n' >"$out/seed-no-blank"
printf 'HTTP/1.0 200 OK\nContent-Length: 2\n\nab' >"$out/seed-lf"
{ printf 'HTTP/1.0 200 OK\r\nX-Long: '; head -c 9000 /dev/zero | tr '\0' 'a'; printf '\r\n\r\n\x00\xff\r\n'; } >"$out/seed-long-line"
printf 'HTTP/1.0 -7 Odd\r\nContent-Length: 99999999999999999999\r\n\r\n' >"$out/seed-odd-numbers"
