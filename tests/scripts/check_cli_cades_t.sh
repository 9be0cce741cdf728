#!/usr/bin/env bash
# Time-stamped CAdES through the tool: `tessera sign --tsa`, `tessera upgrade`
# and what `tessera verify` shows of the signature time-stamps, against the
# loopback TSA; the http fixture's /status/500 is a failing authority. The
# signer's PKI is made here with pinned validity, and both CRLs are valid
# from 2024 to 2044, so that the paths check at the TSA's (real) time:
#
#   CLI CAdES-T Root (--trust)          the tsa fixture's CA (--tsa-trust)
#   └── CLI CAdES-T Signer (RSA-2048)   └── Tessera Test TSA
set -uo pipefail
cli=$1
tsa=$TESSERA_TEST_SERVERS/tsa
url=$(cat "$tsa/url")
failing=$(cat "$TESSERA_TEST_SERVERS/http/url")/status/500
vectors=$(cd "$(dirname "$0")/../vectors" && pwd)
source "$(dirname "$0")/cli_lib.sh"

rsa_pki "CLI CAdES-T" 20240610000000Z 20440101000000Z
mkdir fixture && (
    cd fixture && cp "$tsa/pki/index.txt" index.txt && echo 1000 >crlnumber &&
        write_ca_cnf "$tsa/pki/ca.pem" "$tsa/pki/ca.key.pem" &&
        openssl ca -config ca.cnf -gencrl -crl_lastupdate 20240610000000Z \
            -crl_nextupdate 20440101000000Z -out ../tsa-crl.pem 2>/dev/null
)

printf 'CAdES-T content\r\n' >in.txt
key=(--cert signer.pem --key signer.key)
paths=(--trust root.pem --crl crl.pem --crl tsa-crl.pem)
stamps() { "$cli" info "$1" | grep -c 'unsignedAttr:.*timeStampToken'; }

ok "sign --tsa" "$cli" sign "${key[@]}" --tsa "$url" in.txt t.der
openssl cms -verify -binary -inform DER -in t.der -CAfile root.pem -purpose any \
    -out verified.txt 2>/dev/null && cmp -s verified.txt in.txt
check "openssl cms -verify still accepts the time-stamped signature" $?

ok "verify with --tsa-trust" "$cli" verify t.der "${paths[@]}" --tsa-trust "$tsa/ca.pem"
has "--tsa alone signs BES, now T" -x ' *Form: *T'
has "the time-stamp's time, as the tool prints times" \
    -E '^ +Time-stamp: [0-9]{2}\.[0-9]{2}\.[0-9]{4} [0-9:]{8} UTC$'
has "the TSA's subject" -x ' *TSA: */O=Tessera Test/CN=Tessera Test TSA'
has "the time-stamp's result" -x ' *Result: ok'
has "the time-stamp check is among the checks passed" -E '^ *Checked: .*signature time-stamps'

run "$cli" verify t.der "${paths[@]}"
[ "$rc" -eq 1 ]; check "without the TSA's anchor the signer fails (got $rc)" $?
has "the time-stamp's result is the failing code" -x ' *Result: error 146'

ok "verify --json" "$cli" verify t.der "${paths[@]}" --tsa-trust "$tsa/ca.pem" --json
python3 -c '
import json, sys
stamp = json.load(sys.stdin)["signers"][0]["timeStamp"]
assert stamp["count"] == 1 and stamp["result"] == "ok" and stamp["errorCode"] is None
assert stamp["tsa"].endswith("CN=Tessera Test TSA") and stamp["time"] > 1700000000
' <<<"$out"
check "JSON: count, time, TSA and result of the time-stamp" $?

ok "upgrade --type t" "$cli" upgrade t.der --tsa "$url" --type t t2.der
has "upgrade says what it added" -x 't2.der: 1 signer(s), 1 time-stamp(s) added, [0-9]* bytes DER'
[ "$(stamps t2.der)" -eq 2 ]; check "t adds a second time-stamp attribute" $?
ok "verify the upgraded signature" "$cli" verify t2.der "${paths[@]}" --tsa-trust "$tsa/ca.pem"
has "the latest of the two is checked" -E '^ +Time-stamp: .*, the latest of 2$'
ok "upgrade --type t-if-missing" "$cli" upgrade t2.der --tsa "$url" --type t-if-missing t3.der
[ "$(stamps t3.der)" -eq 2 ]; check "t-if-missing adds none to a time-stamped signer" $?
"$cli" sign "${key[@]}" --cades bes in.txt bes.der >/dev/null
ok "upgrade a BES signature, t-if-missing" "$cli" upgrade bes.der --tsa "$url" --type t-if-missing bes-t.der
[ "$(stamps bes-t.der)" -eq 1 ]; check "t-if-missing adds one to a signer without" $?

icp=$vectors/policies/PA_AD_RB_v2_3.der
ok "sign EPES with --tsa" "$cli" sign "${key[@]}" --cades epes --policy "$icp" --tsa "$url" in.txt epes-t.der
"$cli" verify epes-t.der --verify none | grep -q '^ *Policy: *2\.16\.76\.1\.7\.1\.1\.2\.3'
check "--cades epes with --tsa keeps the policy" $?

fails "upgrade at a TSA answering 500" 'error 706: ' "$cli" upgrade t.der --tsa "$failing" bad.der
[ ! -e bad.der ]; check "a failed upgrade leaves no OUT" $?
fails "sign --tsa at a TSA answering 500" 'error 706: ' "$cli" sign "${key[@]}" --tsa "$failing" in.txt bad.der
[ ! -e bad.der ]; check "a failed time-stamped signing leaves no OUT" $?

usage "upgrade without --tsa" "$cli" upgrade t.der t4.der
usage "upgrade with another --type" "$cli" upgrade t.der --tsa "$url" --type lt t4.der
usage "--cades epes --tsa without --policy" "$cli" sign "${key[@]}" --cades epes --tsa "$url" in.txt x.der
exit $fail
