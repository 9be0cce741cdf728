#!/usr/bin/env bash
# `tessera fetch-crl` with certificates made by openssl whose CRL distribution
# points name the http fixture: a CRL that is served, a 503 answer, and a
# certificate without any http:// point.
set -uo pipefail
cli=$1
http_dir=$TESSERA_TEST_SERVERS/http
url=$(cat "$http_dir/url")
scratch=$(mktemp -d)
name="cli-fetch-crl-$$.crl"
trap 'rm -rf "$scratch" "$http_dir/root/$name"' EXIT
fail=0
check() { if [ "$2" -ne 0 ]; then echo "FAILED: $1"; fail=1; fi; }
cd "$scratch" || exit 1

openssl req -x509 -new -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -keyout ca.key \
    -subj "/O=Tessera Test/CN=Fetch Root" -days 2 -out ca.pem 2>/dev/null
openssl req -new -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -keyout leaf.key \
    -subj "/CN=Fetch Leaf" -out leaf.csr 2>/dev/null
leaf() {  # leaf OUT CDP-VALUE
    printf 'crlDistributionPoints=%s\n' "$2" >ext.cnf
    openssl x509 -req -in leaf.csr -CA ca.pem -CAkey ca.key -set_serial 0x2B -days 1 \
        -extfile ext.cnf -out "$1" 2>/dev/null
}
leaf served.pem "URI:$url/file/$name"
leaf unavailable.pem "URI:$url/status/503"
leaf ldap.pem "URI:ldap://127.0.0.1/cn=Fetch%20Root"

: >index.txt
echo 0100 >crlnumber
cat >ca.cnf <<CNF
[ca]
default_ca = test
[test]
database = index.txt
crlnumber = crlnumber
certificate = ca.pem
private_key = ca.key
default_md = sha256
default_crl_days = 7
CNF
openssl ca -config ca.cnf -gencrl -out crl.pem 2>/dev/null
openssl crl -in crl.pem -outform DER -out "$http_dir/root/$name"

out=$("$cli" fetch-crl served.pem --out fetched.der --timeout 10); rc=$?
check "served CRL: exit 0 (got $rc)" $rc
grep -q "^url: *$url/file/$name$" <<<"$out"; check "prints the URL that delivered" $?
grep -q '^issuer: *O=Tessera Test,CN=Fetch Root$' <<<"$out"; check "prints the issuer" $?
grep -q '^number: *256$' <<<"$out"; check "prints the CRL number" $?
grep -q '^nextUpdate: *[0-9][0-9]\.' <<<"$out"; check "prints nextUpdate" $?
cmp -s fetched.der "$http_dir/root/$name"; check "--out writes the CRL's DER" $?

err=$("$cli" fetch-crl unavailable.pem 2>&1 >/dev/null); rc=$?
[ "$rc" -eq 1 ]; check "503 answer: exit 1 (got $rc)" $?
grep -q 'error 501: CRL service unavailable.' <<<"$err"; check "prints code 501 and its description" $?

err=$("$cli" fetch-crl ldap.pem 2>&1 >/dev/null); rc=$?
[ "$rc" -eq 1 ]; check "no http:// point: exit 1 (got $rc)" $?
grep -q 'no http:// CRL distribution point' <<<"$err"; check "says that no point was usable" $?

"$cli" fetch-crl served.pem --timeout soon >/dev/null 2>&1; rc=$?
[ "$rc" -eq 2 ]; check "a bad --timeout is a usage error (got $rc)" $?

exit $fail
