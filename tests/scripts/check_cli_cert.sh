#!/usr/bin/env bash
# `tessera cert` over certificates written by the openssl command: PEM and
# DER, text and JSON output, a name that needs JSON escaping, and failures.
set -uo pipefail
cli=$1
source "$(dirname "$0")/cli_lib.sh"

openssl req -x509 -new -newkey rsa:2048 -nodes -keyout key.pem -out cert.pem -days 30 \
    -subj '/C=SK/O=Quote "Co"/CN=Cli Root' -set_serial 0x1F \
    -addext 'keyUsage=critical,keyCertSign,cRLSign,digitalSignature' \
    -addext 'extendedKeyUsage=clientAuth' \
    -addext 'certificatePolicies=1.2.3.4' \
    -addext 'authorityInfoAccess=OCSP;URI:http://ocsp.cli.test' 2>/dev/null
check "openssl req" $?
openssl x509 -in cert.pem -outform DER -out cert.der
fingerprint=$(openssl x509 -in cert.pem -noout -fingerprint -sha1 | sed 's/.*=//; s/://g' | tr 'A-F' 'a-f')

ok "PEM text" "$cli" cert cert.pem
has "subject in X.500 form" '^subject: *C=SK,O=Quote "Co",CN=Cli Root$'
has "serial dec and hex" '^serial: *31 (hex 1F)$'
has "key algorithm and length" '^key: *rsaEncryption 2048 bits$'
has "key usage names" '^key usage: *digitalSignature, keyCertSign, cRLSign$'
has "EKU OID" '^extended key usage: *1.3.6.1.5.5.7.3.2$'
has "policies" '^policies: *1.2.3.4$'
has "OCSP URL" '^ocsp: *http://ocsp.cli.test$'
has "SHA-1 equals openssl's fingerprint" "^sha1: *$fingerprint\$"
has "self-signed" '^self-signed: *yes$'

ok "DER JSON" "$cli" cert cert.der --json
printf '%s' "$out" >out.json
/usr/bin/python3 - "$fingerprint" <<'PY'
import json, sys
doc = json.load(open("out.json"))
assert doc["subject"] == 'C=SK,O=Quote "Co",CN=Cli Root', doc["subject"]
assert doc["serialHex"] == "1F" and doc["serial"] == "31"
assert doc["keyBits"] == 2048 and doc["sha1"] == sys.argv[1]
assert doc["policies"] == ["1.2.3.4"] and doc["selfSigned"] is True
PY
check "JSON parses and carries the values" $?

printf 'not a certificate' >junk.bin
fails "junk" 'error 109' "$cli" cert junk.bin
usage "no FILE" "$cli" cert
exit $fail
