#!/usr/bin/env bash
# `tessera fetch-crl` with certificates made by openssl whose CRL distribution
# points name the http fixture: a CRL that is served, a 503 answer, and a
# certificate without any http:// point.
set -uo pipefail
cli=$1
http_dir=$TESSERA_TEST_SERVERS/http
url=$(cat "$http_dir/url")
name="cli-fetch-crl-$$.crl"
source "$(dirname "$0")/cli_lib.sh"
trap 'rm -rf "$scratch" "$http_dir/root/$name"' EXIT

ec_ca "/O=Tessera Test/CN=Fetch Root"
ec_csr leaf "/CN=Fetch Leaf"
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
write_ca_cnf ca.pem ca.key 'default_crl_days = 7'
openssl ca -config ca.cnf -gencrl -out crl.pem 2>/dev/null
openssl crl -in crl.pem -outform DER -out "$http_dir/root/$name"

ok "served CRL" "$cli" fetch-crl served.pem --out fetched.der --timeout 10
has "prints the URL that delivered" "^url: *$url/file/$name$"
has "prints the issuer" '^issuer: *O=Tessera Test,CN=Fetch Root$'
has "prints the CRL number" '^number: *256$'
has "prints nextUpdate" '^nextUpdate: *[0-9][0-9]\.'
cmp -s fetched.der "$http_dir/root/$name"; check "--out writes the CRL's DER" $?

fails "503 answer" 'error 501: CRL service unavailable.' "$cli" fetch-crl unavailable.pem
fails "no http:// point" 'no http:// CRL distribution point' "$cli" fetch-crl ldap.pem
usage "a bad --timeout" "$cli" fetch-crl served.pem --timeout soon

exit $fail
