#!/usr/bin/env bash
# `tessera policy` over public policies from tests/vectors/policies: text and
# JSON, the stored hash against digests openssl makes of the same bytes,
# copies without a hash or with a broken one, and files that are no policy.
# Expected values were read with `openssl asn1parse -inform DER -i`.
set -uo pipefail
cli=$1
vectors=$(cd "$(dirname "$0")/../vectors/policies" && pwd)
source "$(dirname "$0")/cli_lib.sh"

example=$vectors/signature-policy-example.der
ok "example policy" "$cli" policy "$example"
has "identifier" '^oid: *1\.2\.3\.4\.5\.1$'
has "date of issue 20150530000000Z" '^dateOfIssue: *30\.05\.2015 00:00:00 UTC$'
has "issuer URI" '^issuerUri: *http://www\.nbusr\.sk/archive/20150530000000zsignaturepolicy\.der$'
has "signing period end 20160701000000Z" '^  notAfter: *01\.07\.2016 00:00:00 UTC$'
has "the stored hash is the digest of the first two fields" '^hashCheck: *fields$'
# The stored hash is the OCTET STRING at offset 5011; the two fields run
# from offset 4 up to it.
fields=$(dd if="$example" bs=1 skip=4 count=5007 2>/dev/null | openssl dgst -sha256 -r | cut -c1-64)
whole=$(openssl dgst -sha256 -r "$example" | cut -c1-64)
has "stored hash" '^hash: *fe71e01aedd99f444238602d4e98f47bbab405c58c0e3811b9511dcd58c3c983$'
has "fields digest equals openssl's over the same bytes" "^fieldsDigest: *$fields\$"
has "whole-file digest equals openssl's" "^wholeFileDigest: *$whole\$"
has "mandated signed attribute with its short name" \
    '^    signedAttr: *1\.2\.840\.113549\.1\.9\.5 (signingTime)$'
has "mandated certificate info 2" '^    mandatedCertificateInfo: *fullPath$'
has "second trust point's subject" \
    '^      subject: *C=SK,L=Bratislava,O=Narodny bezpecnostny urad,OU=SIBEP,CN=KCA NBU SR 3$'
has "acceptable policy of the trust point" '^      acceptablePolicy: *1\.3\.158\.36061701\.0\.0\.0\.1\.2\.2$'
has "requireExplicitPolicy 0" '^      requireExplicitPolicy: *0$'
has "revocation requirement 3" '^    endCertRevocation: *eitherCheck$'
has "caution period (0, 0, 0, 1)" '^    cautionPeriod: *1d 0h 0m 0s$'
has "algorithm constraint with minKeyLength 0x0800" \
    '^    signer: *1\.2\.840\.113549\.1\.1\.1 (rsaEncryption), minKeyLength 2048$'
has "commitment rule for an empty commitment type" '^  commitmentType: *empty$'

ok "ICP-Brasil AD-RB" "$cli" policy "$vectors/PA_AD_RB_v2_3.der"
has "identifier" '^oid: *2\.16\.76\.1\.7\.1\.1\.2\.3$'
has "hash check" '^hashCheck: *fields$'
has "signature policy identifier is mandated" \
    '^    signedAttr: *1\.2\.840\.113549\.1\.9\.16\.2\.15 (id-smime-aa-ets-sigPolicyId)$'
has "trust point subject" \
    '^      subject: *C=BR,O=ICP-Brasil,OU=Instituto Nacional de Tecnologia da Informacao - ITI,CN=Autoridade Certificadora Raiz Brasileira v5$'
has "signer algorithm" '^    signer: *1\.2\.840\.113549\.1\.1\.13 (RSA-SHA512), minKeyLength 2048$'

ok "ICP-Brasil PDF policy" "$cli" policy "$vectors/signature-policy.der"
has "external signed data TRUE" '^    externalSignedData: *yes$'
has "signer rules extension and its size" '^    extension: *2\.16\.76\.1\.8\.1 (93 bytes)$'

for file in signature-policy-example.der PA_AD_RB_v2_3.der signature-policy.der; do
    ok "$file as JSON" "$cli" policy "$vectors/$file" --json
    python3 -m json.tool <<<"$out" >/dev/null
    check "$file: JSON parses" $?
done
ok "example as JSON" "$cli" policy "$example" --json
python3 -c '
import json, sys
doc = json.load(sys.stdin)
rules = doc["commonRules"]
assert doc["hashCheck"] == "fields" and doc["hashAlgorithm"]["oid"] == "2.16.840.1.101.3.4.2.1"
assert rules["signerRules"]["externalSignedData"] is None
assert rules["signingCertTrust"]["trustPoints"][1]["requireExplicitPolicy"] == 0
assert rules["algorithmConstraints"]["signer"][4] == {
    "oid": "1.2.840.113549.1.1.1", "name": "rsaEncryption", "minKeyLength": 2048}
' <<<"$out"
check "JSON carries the values the text shows" $?

# The same document without its hash (a new outer header over the fields),
# and with the last byte of the hash flipped.
{ printf '\x30\x82\x13\x8f'; dd if="$example" bs=1 skip=4 count=5007 2>/dev/null; } >nohash.der
ok "policy without a hash" "$cli" policy nohash.der
has "no hash stored" '^hashCheck: *absent$'
has "the digest is still shown" "^fieldsDigest: *$fields\$"
{ head -c 5044 "$example"; printf '\x00'; } >badhash.der
ok "policy with a wrong hash" "$cli" policy badhash.der
has "matches no convention" '^hashCheck: *none$'
# Decodable, but with no fields digest (indefinite-length form) or no digest
# at all (MD4, which the default provider lacks): no match, not a failure.
{ printf '\x30\x80'; tail -c +5 "$example"; printf '\x00\x00'; } >indefinite.der
ok "policy in indefinite-length form" "$cli" policy indefinite.der
has "indefinite length: no match" '^hashCheck: *none$'
has "indefinite length: whole-file digest still made" '^wholeFileDigest: *[0-9a-f]\{64\}$'
{ printf '\x30\x82\x13\xb0\x30\x0a\x06\x08\x2a\x86\x48\x86\xf7\x0d\x02\x04'; tail -c +18 "$example"; } >md4.der
ok "policy hashed with MD4" "$cli" policy md4.der
has "MD4: no match" '^hashCheck: *none$'

head -c 2000 "$example" >truncated.der
fails "truncated policy" 'error 109' "$cli" policy truncated.der
# The first trust point's certificate: DER, but no policy.
dd if="$example" bs=1 skip=434 count=878 of=cert.der 2>/dev/null
fails "a certificate" 'error 109' "$cli" policy cert.der
usage "no FILE" "$cli" policy
exit $fail
