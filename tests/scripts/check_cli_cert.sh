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

out=$("$cli" cert cert.pem); rc=$?
check "PEM text: exit 0 (got $rc)" $rc
grep -q '^subject: *C=SK,O=Quote "Co",CN=Cli Root$' <<<"$out"; check "subject in X.500 form" $?
grep -q '^serial: *31 (hex 1F)$' <<<"$out"; check "serial dec and hex" $?
grep -q '^key: *rsaEncryption 2048 bits$' <<<"$out"; check "key algorithm and length" $?
grep -q '^key usage: *digitalSignature, keyCertSign, cRLSign$' <<<"$out"; check "key usage names" $?
grep -q '^extended key usage: *1.3.6.1.5.5.7.3.2$' <<<"$out"; check "EKU OID" $?
grep -q '^policies: *1.2.3.4$' <<<"$out"; check "policies" $?
grep -q '^ocsp: *http://ocsp.cli.test$' <<<"$out"; check "OCSP URL" $?
grep -q "^sha1: *$fingerprint\$" <<<"$out"; check "SHA-1 equals openssl's fingerprint" $?
grep -q '^self-signed: *yes$' <<<"$out"; check "self-signed" $?

json=$("$cli" cert cert.der --json); rc=$?
check "DER JSON: exit 0 (got $rc)" $rc
printf '%s' "$json" > out.json
/usr/bin/python3 - "$fingerprint" <<'PY'
import json, sys
doc = json.load(open("out.json"))
assert doc["subject"] == 'C=SK,O=Quote "Co",CN=Cli Root', doc["subject"]
assert doc["serialHex"] == "1F" and doc["serial"] == "31"
assert doc["keyBits"] == 2048 and doc["sha1"] == sys.argv[1]
assert doc["policies"] == ["1.2.3.4"] and doc["selfSigned"] is True
PY
check "JSON parses and carries the values" $?

printf 'not a certificate' > junk.bin
"$cli" cert junk.bin >/dev/null 2>err.txt; rc=$?
[ $rc -eq 1 ]; check "junk: exit 1 (got $rc)" $?
grep -q 'error 109' err.txt; check "junk: ASN.1 decoding error" $?
"$cli" cert >/dev/null 2>&1; rc=$?
[ $rc -eq 2 ]; check "no FILE: usage error (got $rc)" $?
exit $fail
