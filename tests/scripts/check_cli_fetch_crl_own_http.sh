#!/usr/bin/env bash
# `tessera fetch-crl --own-http` against the rawhttp fixture: a distribution
# point on the plain server, an https --url through tinyproxy's CONNECT
# tunnel, a wrong proxy password, and options that need --own-http.
set -uo pipefail
cli=$1
dir=$TESSERA_TEST_SERVERS/rawhttp
plain=$(cat "$dir/plain/url")
tls=$(cat "$dir/tls/url")
proxy=$(cat "$dir/proxy_url")
name="cli-own-http-$$.crl"
source "$(dirname "$0")/cli_lib.sh"
trap 'rm -rf "$scratch" "$dir"/*/responses/"$name" "$dir"/*/requests/"$name"' EXIT

ec_ca "/O=Tessera Test/CN=Own HTTP Root"
ec_csr leaf "/CN=Own HTTP Leaf"
printf 'crlDistributionPoints=URI:%s\n' "$plain/crl/$name" >ext.cnf
openssl x509 -req -in leaf.csr -CA ca.pem -CAkey ca.key -set_serial 0x2C -days 1 \
    -extfile ext.cnf -out leaf.pem 2>/dev/null
: >index.txt
echo 0100 >crlnumber
write_ca_cnf ca.pem ca.key 'default_crl_days = 7'
openssl ca -config ca.cnf -gencrl -out crl.pem 2>/dev/null
openssl crl -in crl.pem -outform DER -out crl.der
for server in plain tls; do
    { printf 'HTTP/1.0 200 OK\r\nContent-Length: %d\r\n\r\n' "$(stat -c %s crl.der)"; cat crl.der; } \
        >"$dir/$server/responses/$name"
done

ok "own client over a distribution point" "$cli" fetch-crl leaf.pem --own-http --out fetched.der
has "prints the URL that delivered" "^url: *$plain/crl/$name$"
cmp -s fetched.der crl.der; check "--out writes the CRL's DER" $?
ok "https --url through the proxy" "$cli" fetch-crl leaf.pem --own-http --proxy "$proxy" \
    --proxy-user user --proxy-password pass --url "$tls/crl/$name"
has "the https URL delivered" "^url: *$tls/crl/$name$"
has "prints the issuer" '^issuer: *O=Tessera Test,CN=Own HTTP Root$'
fails "a wrong proxy password" 'error 502' "$cli" fetch-crl leaf.pem --own-http \
    --proxy "$proxy" --proxy-user user --proxy-password wrong --url "$plain/crl/$name"
usage "--proxy without --own-http" "$cli" fetch-crl leaf.pem --proxy "$proxy"
usage "--timeout with --own-http" "$cli" fetch-crl leaf.pem --own-http --timeout 5

exit $fail
