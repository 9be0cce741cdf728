#!/usr/bin/env bash
# `tessera sign --cades` and `tessera verify` over CAdES signatures, judged by
# `openssl cms -verify -cades`, and the public samples of tests/vectors/cades.
# The PKI and a policy its signatures satisfy are made here by the openssl
# command, with pinned validity:
#
#   CLI CAdES Root (--trust, 2024-2044)
#   └── CLI CAdES Signer (RSA-2048, 2024-2034)
#
# policy.der (OID 1.3.6.1.4.1.99999.7.1) may be used during 2024, mandates
# the content type, message digest, signing certificate v2, policy
# identifier and MIME type, and allows SHA-256 and RSA-SHA256 only. Path
# checks run at 2024-06-15 or 2025-06-15 against a CRL valid at both; the
# http fixture serves the policy for --policy-url.
set -uo pipefail
cli=$1
url=$(cat "$TESSERA_TEST_SERVERS/http/url")
served=cli-cades-policy-$$.der
vectors=$(cd "$(dirname "$0")/../vectors" && pwd)
source "$(dirname "$0")/cli_lib.sh"
trap 'rm -rf "$scratch" "$TESSERA_TEST_SERVERS/http/root/$served"' EXIT

rsa_pki "CLI CAdES" 20240601000000Z 20260101000000Z

cat >policy.cnf <<'CNF'
asn1 = SEQUENCE:policy
[policy]
alg = SEQUENCE:sha256
info = SEQUENCE:info
[sha256]
oid = OID:sha256
params = NULL
[info]
id = OID:1.3.6.1.4.1.99999.7.1
issued = GENTIME:20240101000000Z
issuer = SEQUENCE:issuer
application = UTF8:Tessera CLI test signatures
rules = SEQUENCE:validation
[issuer]
name = EXPLICIT:4,SEQUENCE:issuer_name
uri = IMPLICIT:6,IA5STRING:http://127.0.0.1/policy.der
[issuer_name]
o = SET:o
[o]
atv = SEQUENCE:o_value
[o_value]
type = OID:O
value = UTF8:Tessera Test
[validation]
period = SEQUENCE:period
common = SEQUENCE:common
commitments = SEQUENCE:none
[period]
notBefore = GENTIME:20240101000000Z
notAfter = GENTIME:20250101000000Z
[common]
rules = EXPLICIT:0,SEQUENCE:signer_and_verifier
timestamps = EXPLICIT:2,SEQUENCE:none
algorithms = EXPLICIT:4,SEQUENCE:algorithms
[signer_and_verifier]
signer = SEQUENCE:signer_rules
verifier = SEQUENCE:verifier_rules
[signer_rules]
signed = SEQUENCE:mandated
unsigned = SEQUENCE:none
[mandated]
contentType = OID:contentType
messageDigest = OID:messageDigest
signingCertificateV2 = OID:1.2.840.113549.1.9.16.2.47
policyId = OID:1.2.840.113549.1.9.16.2.15
mimeType = OID:0.4.0.1733.2.1
[verifier_rules]
unsigned = SEQUENCE:none
[algorithms]
signer = EXPLICIT:0,SEQUENCE:digests
ee = EXPLICIT:1,SEQUENCE:certificates
ca = EXPLICIT:2,SEQUENCE:certificates
[digests]
sha256 = SEQUENCE:sha256_only
[sha256_only]
oid = OID:sha256
[certificates]
rsa = SEQUENCE:rsa_sha256
[rsa_sha256]
oid = OID:sha256WithRSAEncryption
minKeyLength = INTEGER:2048
[none]
CNF
# The stored hash is the SHA-256 of the two fields: what follows the header
# of the document written without it.
openssl asn1parse -genconf policy.cnf -noout -out fields.der
header=$(openssl asn1parse -inform DER -in fields.der | sed -n '1s/.*hl= *\([0-9]*\).*/\1/p')
hash=$(tail -c +$((header + 1)) fields.der | openssl dgst -sha256 -r | cut -c1-64)
sed "s/^info = SEQUENCE:info\$/&\nhash = FORMAT:HEX,OCTETSTRING:$hash/" policy.cnf >hashed.cnf
openssl asn1parse -genconf hashed.cnf -noout -out policy.der
cp policy.der "$TESSERA_TEST_SERVERS/http/root/$served"

printf 'CAdES content\r\n' >in.txt
key=(--cert signer.pem --key signer.key)
chain=(--trust root.pem --crl crl.pem --time 2024-06-15T12:00:00Z)
verify_cades() {  # SIG [openssl options]
    openssl cms -verify -cades -binary -inform DER -in "$1" -CAfile root.pem -purpose any \
        "${@:2}" -out verified.txt 2>/dev/null && cmp -s verified.txt in.txt
}

ok "sign BES" "$cli" sign "${key[@]}" --cades bes in.txt bes.der
has "sign BES: names what it wrote" -x 'bes.der: 1 signer(s), [0-9]* bytes DER'
verify_cades bes.der; check "BES: openssl -cades verifies it and returns the content" $?
ok "sign EPES" "$cli" sign "${key[@]}" --cades epes --policy policy.der --mime text/plain in.txt epes.der
verify_cades epes.der; check "EPES: openssl -cades verifies it" $?
ok "sign detached BES without signing time, PEM" \
    "$cli" sign "${key[@]}" --cades bes --detached --no-attrs --pem in.txt detached.pem
verify_cades detached.pem -inform PEM -content in.txt; check "detached PEM: openssl verifies it" $?
attrs=$(openssl cms -cmsout -print -inform PEM -in detached.pem)
grep -q 'signingCertificateV2' <<<"$attrs" && ! grep -q 'signingTime' <<<"$attrs"
check "--no-attrs with --cades: the signing certificate stays, the signing time goes" $?

ok "verify BES on its path" "$cli" verify bes.der "${chain[@]}"
has "BES: the form" -x ' *Form: *BES'
has "BES: the levels" -x ' *Levels: *BES, B-B'
! grep -q '^ *Policy:' <<<"$out"; check "BES: no policy line" $?
has "BES: the checks passed" -x ' *Checked: signature, content type, signing certificate, certificate path'
ok "verify EPES against its policy" "$cli" verify epes.der "${chain[@]}" --policy policy.der --check-policy
has "EPES: the form" -x ' *Form: *EPES'
has "EPES: the policy and its hash over the document's fields" \
    -x ' *Policy: *1\.3\.6\.1\.4\.1\.99999\.7\.1 (hash check: fields)'
has "EPES: the MIME type" -x ' *MIME: *text/plain'
ok "verify EPES with the policy from the http fixture" \
    "$cli" verify epes.der "${chain[@]}" --policy-url "$url/file/$served" --check-policy
has "--policy-url: the downloaded policy's hash check" ' *Policy: .*(hash check: fields)$'
ok "detached, with its content" "$cli" verify detached.pem --content in.txt "${chain[@]}"

# invalid DESCRIPTION CODE CMD...: CMD exits 1 with the signer's error CODE on stdout.
invalid() {
    run "${@:3}"
    [ "$rc" -eq 1 ]; check "$1: exit 1 (got $rc)" $?
    grep -q "^ *Error: *$2: " <<<"$out"; check "$1: code $2" $?
}
invalid "policy used after its signing period" 168 \
    "$cli" verify epes.der --trust root.pem --crl crl.pem --time 2025-06-15 --policy policy.der --check-policy
"$cli" sign "${key[@]}" --cades epes --policy policy.der in.txt nomime.der >/dev/null
invalid "mandated MIME type missing" 170 "$cli" verify nomime.der "${chain[@]}" --policy policy.der --check-policy
ok "mandated MIME type ignored" "$cli" verify nomime.der "${chain[@]}" --policy policy.der --check-policy \
    --ignore-signed-attr 0.4.0.1733.2.1
invalid "policy not served" 604 \
    "$cli" verify epes.der "${chain[@]}" --policy-url "$url/file/missing.der" --check-policy
# The public policy's trust point replaces --trust, and does not certify our signer.
icp=$vectors/policies/PA_AD_RB_v2_3.der
"$cli" sign "${key[@]}" --cades epes --policy "$icp" in.txt icp.der >/dev/null
invalid "ICP-Brasil policy: its trust point is the anchor" 146 \
    "$cli" verify icp.der "${chain[@]}" --policy "$icp" --check-policy
"$cli" sign "${key[@]}" in.txt plain.der >/dev/null
invalid "--cades on a plain CMS signer" 134 "$cli" verify plain.der --cades --verify none
ok "plain CMS signer without --cades" "$cli" verify plain.der --verify none
! grep -q '^ *Form:' <<<"$out"; check "plain signer: no form line" $?

ok "EPES as JSON" "$cli" verify epes.der "${chain[@]}" --policy policy.der --json
python3 -c '
import json, sys
signer = json.load(sys.stdin)["signers"][0]
assert signer["cades"] and signer["form"] == "EPES" and signer["levels"] == ["BES", "B-B"]
assert signer["policyOid"] == "1.3.6.1.4.1.99999.7.1" and signer["policyHashCheck"] == "fields"
assert signer["checked"][2] == "signing certificate" and signer["error"] is None
' <<<"$out"
check "JSON: form, levels, policy and checks of the signer" $?

samples=$vectors/cades
ok "public CAdES-B sample" "$cli" verify "$samples/cades-enveloping.pkcs7" --verify none
has "sample: BES" -x ' *Form: *BES'
ok "public EPES sample" "$cli" verify "$samples/cades-extended-epes-sig-pol-store.pkcs7" \
    --verify none --policy "$vectors/policies/signature-policy.der"
has "sample: EPES" -x ' *Form: *EPES'
has "sample: its policy names the fields of the stored policy" \
    -x ' *Policy: *1\.2\.3\.4\.5\.6 (hash check: fields)'
"$cli" verify "$samples/cades-extended-epes-sig-pol-store.pkcs7" --verify none \
    --policy "$vectors/policies/signature-policy-example.der" | grep -q '(hash check: none)$'
check "sample against another policy: no hash match" $?

fails "EPES without --policy" 'error 153: ' "$cli" sign "${key[@]}" --cades epes in.txt x.der
usage "--cades with another form" "$cli" sign "${key[@]}" --cades t in.txt x.der
usage "--policy without --cades epes" "$cli" sign "${key[@]}" --cades bes --policy policy.der in.txt x.der
usage "--mime without --cades" "$cli" sign "${key[@]}" --mime text/plain in.txt x.der
usage "--check-policy without a policy" "$cli" verify epes.der "${chain[@]}" --check-policy
usage "--check-policy without the path" "$cli" verify epes.der --verify signer --policy policy.der --check-policy
usage "--policy with --policy-url" "$cli" verify epes.der --policy policy.der --policy-url "$url/x"
usage "--ignore-signed-attr without an OID" "$cli" verify epes.der "${chain[@]}" --policy policy.der \
    --check-policy --ignore-signed-attr mimeType
exit $fail
