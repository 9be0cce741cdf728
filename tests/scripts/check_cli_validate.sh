#!/usr/bin/env bash
# `tessera validate`: the report trees, the JSON array, the exit statuses and
# the input errors. The PKI is made here with openssl; the signers claim
# QcCompliance, which the validation policy asks for. The process with time
# checks the signer now, from what the signature carries or --fetch finds:
# the root's CRL (valid until 2040) is served by the http fixture from the
# signers' distribution point. Times that decide a result are pinned.
#
#   CLI Validate Root (--trust) ── CRL: Revoked since 2024-06-01
#   ├── Good       RSA-2048, QcCompliance
#   ├── Revoked    RSA-2048, QcCompliance
#   └── Second     RSA-2048, QcCompliance (the co-signer)
set -uo pipefail
cli=$1
served=cli-validate-$$.crl
crl_url=$(cat "$TESSERA_TEST_SERVERS/http/url")/file/$served
source "$(dirname "$0")/cli_lib.sh"
trap 'rm -rf "$scratch" "$TESSERA_TEST_SERVERS/http/root/$served"' EXIT
# Reports print times in local time.
export TZ=UTC

rsa_pki "CLI Validate" 20240701000000Z 20400101000000Z
cat >>ca.cnf <<CNF
[qc_ext]
keyUsage = critical,digitalSignature,nonRepudiation
authorityKeyIdentifier = keyid
crlDistributionPoints = URI:$crl_url
# qcStatements: id-etsi-qcs-QcCompliance
1.3.6.1.5.5.7.1.3 = DER:30:0a:30:08:06:06:04:00:8e:46:01:01
CNF
for name in Good Revoked Second; do
    openssl req -new -newkey rsa:2048 -nodes -keyout "$name.key" -out "$name.csr" \
        -subj "/O=Tessera Test/CN=CLI Validate $name" 2>/dev/null
    openssl ca -batch -config ca.cnf -in "$name.csr" -startdate 20240101000000Z \
        -enddate 20340101000000Z -extensions qc_ext -notext -out "$name.pem" -cert root.pem \
        -keyfile root.key 2>/dev/null
done
# Revoked on 2024-06-01, before every time validated (`openssl ca -revoke`
# would take today): the CA's database says so.
sed -i '/CN=CLI Validate Revoked$/s/^V\t\([0-9Z]*\)\t\t/R\t\1\t240601000000Z,keyCompromise\t/' index.txt
openssl ca -config ca.cnf -cert root.pem -keyfile root.key -gencrl \
    -crl_lastupdate 20240701000000Z -crl_nextupdate 20400101000000Z -out root-crl.pem 2>/dev/null
openssl crl -in root-crl.pem -outform DER -out "$TESSERA_TEST_SERVERS/http/root/$served"

printf 'CLI validate content\n' >in.txt
for name in Good Revoked; do
    "$cli" sign --cert "$name.pem" --key "$name.key" --cades bes in.txt "$name.der" >/dev/null
done
openssl cms -resign -cades -binary -inform DER -in Good.der -outform DER -out two.der \
    -signer Second.pem -inkey Second.key -md sha256 2>/dev/null
python3 -c '
data = open("Good.der", "rb").read()
open("tampered.der", "wb").write(data.replace(b"CLI validate content", b"CLI validate c0ntent"))
'
cmp -s Good.der tampered.der
[ $? -eq 1 ]; check "the tampered copy differs from the signature" $?

at=(--time 2024-07-15T12:00:00Z)
fetching=(--trust root.pem --fetch "${at[@]}")

ok "a good signer" "$cli" validate Good.der "${fetching[@]}"
has "the process with time is the default" -x '> Signature With Time Validation Process'
has "it holds the basic process's tree" -x '  > Basic Signature Validation Process'
has "the validation time is --time" -x '  ValidationTime: Mon Jul 15 12:00:00 2024'
[ "$(tail -n 2 <<<"$out" | head -n 1)" = "  Indication: repTotalPassed" ]
check "the whole tree ends total passed" $?
! grep -q '^Signer' <<<"$out"; check "a single signer's report is not headed" $?

ok "--process basic with the CRL as a file" "$cli" validate Good.der --trust root.pem \
    --crl root-crl.pem --process basic "${at[@]}"
has "the basic tree stands alone" -x '> Basic Signature Validation Process'
has "passed" -x '  Indication: repTotalPassed'

ok "--json" "$cli" validate Good.der "${fetching[@]}" --json
python3 -c '
import json, sys
reports = json.load(sys.stdin)
assert isinstance(reports, list) and len(reports) == 1, reports
assert reports[0]["signer"] == 1 and reports[0]["report"]["totalIndication"] == "repTotalPassed"
' <<<"$out"
check "JSON: an array of one {signer, report} for one signer" $?

run "$cli" validate Revoked.der "${fetching[@]}"
[ "$rc" -eq 2 ]; check "a revoked signer without a time-stamp is indeterminate: exit 2 (got $rc)" $?
has "no proof that it signed before the revocation" -x '  SubIndication: repRevokedNoPOE'

run "$cli" validate tampered.der "${fetching[@]}"
[ "$rc" -eq 1 ]; check "changed content fails: exit 1 (got $rc)" $?
has "failed" -x '  Indication: repTotalFailed'

run "$cli" validate two.der "${fetching[@]}"
[ "$(grep -c -x '> Signature With Time Validation Process' <<<"$out")" -eq 2 ]
check "a co-signed signature gives two reports" $?
[ "$(grep -x 'Signer [0-9]:' <<<"$out" | tr '\n' ' ')" = "Signer 1: Signer 2: " ]
check "each report headed by its signer" $?
run "$cli" validate two.der "${fetching[@]}" --json
python3 -c '
import json, sys
assert [r["signer"] for r in json.load(sys.stdin)] == [1, 2]
' <<<"$out"
check "JSON: one array element per signer, in order" $?
ok "--signer 2 alone" "$cli" validate two.der "${fetching[@]}" --signer 2
[ "$(grep -c 'Validation Process$' <<<"$out")" -eq 2 ] && ! grep -q '^Signer' <<<"$out"
check "--signer gives one unheaded report (the process with time and its basic one)" $?

run "$cli" validate Good.der "${fetching[@]}" --signer 5
[ "$rc" -eq 3 ]; check "--signer beyond the signers is an input error: exit 3 (got $rc)" $?
grep -q '^tessera validate: error 103: ' <<<"$err"
check "the library's code, printed as the tool prints failures" $?

for bad in "--process long" "--standard xades" "--signer 0" "--bogus"; do
    # shellcheck disable=SC2086 # each case is an option and its value
    run "$cli" validate Good.der --trust root.pem $bad
    [ "$rc" -eq 3 ]; check "'$bad' is a usage error: exit 3 (got $rc)" $?
done
run "$cli" validate Good.der
[ "$rc" -eq 3 ]; check "--trust is required: exit 3 (got $rc)" $?
run "$cli" validate missing.der --trust root.pem
[ "$rc" -eq 3 ]; check "an unreadable SIG is an input error: exit 3 (got $rc)" $?
exit $fail
