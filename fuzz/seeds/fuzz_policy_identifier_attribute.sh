#!/usr/bin/env bash
# fuzz_policy_identifier_attribute.sh OUTDIR: whole signature-policy-identifier
# attributes written by `openssl asn1parse -genconf`: with SPuri and
# SPUserNotice qualifiers, without qualifiers, with an unknown qualifier, an
# implied policy (NULL) and the same identifier under another attribute type.
set -euo pipefail
out=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$out"

# attribute NAME TYPE VALUE-LINE [SECTION-LINE...]: NAME.der, the attribute of
# type TYPE whose one value is VALUE-LINE, with further config sections.
attribute() {
    local name=$1 type=$2 value=$3
    shift 3
    {
        printf 'asn1 = SEQUENCE:attribute\n[attribute]\ntype = OID:%s\nvalues = SET:values\n' "$type"
        printf '[values]\nvalue = %s\n' "$value"
        printf '[hash]\nalgorithm = SEQUENCE:sha256\n'
        printf 'value = FORMAT:HEX,OCTETSTRING:%s\n' \
            fe71e01aedd99f444238602d4e98f47bbab405c58c0e3811b9511dcd58c3c983
        printf '[sha256]\noid = OID:sha256\n'
        printf '%s\n' "$@"
    } >"$work/$name.cnf"
    openssl asn1parse -genconf "$work/$name.cnf" -out "$out/$name.der" >/dev/null
}
id=1.2.840.113549.1.9.16.2.15
attribute qualified $id SEQUENCE:policy \
    '[policy]' 'oid = OID:1.2.3.4.5.1' 'hash = SEQUENCE:hash' 'qualifiers = SEQUENCE:qualifiers' \
    '[qualifiers]' 'uri = SEQUENCE:spuri' 'notice = SEQUENCE:spnotice' \
    '[spuri]' 'id = OID:1.2.840.113549.1.9.16.5.1' \
    'uri = IA5STRING:http://policy.test/signature-policy.der' \
    '[spnotice]' 'id = OID:1.2.840.113549.1.9.16.5.2' 'notice = SEQUENCE:notice' \
    '[notice]' 'reference = SEQUENCE:reference' 'text = UTF8:Signed under the test policy' \
    '[reference]' 'organization = UTF8:Tessera Test' 'numbers = SEQUENCE:numbers' \
    '[numbers]' 'n = INT:1'
attribute plain $id SEQUENCE:policy \
    '[policy]' 'oid = OID:1.2.3.4.5.1' 'hash = SEQUENCE:hash'
attribute unknown-qualifier $id SEQUENCE:policy \
    '[policy]' 'oid = OID:1.2.3.4.5.1' 'hash = SEQUENCE:hash' 'qualifiers = SEQUENCE:qualifiers' \
    '[qualifiers]' 'other = SEQUENCE:other' \
    '[other]' 'id = OID:1.2.3.4.99' 'value = UTF8:an unknown qualifier'
attribute implied $id NULL
attribute other-type 1.2.840.113549.1.9.16.2.16 SEQUENCE:policy \
    '[policy]' 'oid = OID:1.2.3.4.5.1' 'hash = SEQUENCE:hash'
