#!/usr/bin/env bash
# The tool against servers that fail: a TSA nobody listens for, an OCSP
# responder answering bytes that are no response, a CRL distribution point
# answering 500. Each family of library failures must end in its error line
# and exit status 1, not in an abort.
set -uo pipefail
cli=$1
url=$(cat "$TESSERA_TEST_SERVERS/http/url")
here=$(dirname "$0")
source "$here/cli_lib.sh"

# broken DESCRIPTION PATTERN CMD...: CMD fails as `fails` demands, and its
# one error line reads "tessera COMMAND: error CODE: DESCRIPTION".
broken() {
    fails "$@"
    [ "$rc" -lt 128 ]; check "$1: ends by itself (status $rc)" $?
    grep -qE '^tessera [a-z-]+: error [0-9]+: [A-Z].+' <<<"$err"
    check "$1: an error line with code and description" $?
}

ec_ca "/O=Tessera Test/CN=Broken Root"
ec_csr leaf "/CN=Broken Leaf"
printf 'crlDistributionPoints=URI:%s/status/500\n' "$url" >ext.cnf
openssl x509 -req -in leaf.csr -CA ca.pem -CAkey ca.key -set_serial 0x2C -days 1 \
    -extfile ext.cnf -out leaf.pem 2>/dev/null
printf 'to be stamped' >in.bin

closed=$(python3 "$here/../servers/free_port.py")
broken "unreachable TSA" 'error 703: Cannot connect to the time-stamp authority' \
    timeout 60 "$cli" timestamp --url "http://127.0.0.1:$closed/" in.bin
broken "OCSP garbage" 'error 131: The OCSP response cannot be decoded' \
    timeout 60 "$cli" ocsp --url "$url/garbage" --issuer ca.pem --cert leaf.pem
broken "OCSP garbage through the client" 'error 131: The OCSP response cannot be decoded' \
    timeout 60 "$cli" ocsp --client --url "$url/garbage" --issuer ca.pem --cert leaf.pem
broken "CRL point answering 500" 'error 502: Invalid CRL service response' \
    timeout 60 "$cli" fetch-crl leaf.pem --timeout 10

exit $fail
