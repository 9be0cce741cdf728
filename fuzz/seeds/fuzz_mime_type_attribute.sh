#!/usr/bin/env bash
# fuzz_mime_type_attribute.sh OUTDIR: writes MIME-type attributes made with
# `openssl asn1parse -genconf` — ASCII and non-ASCII UTF-8 types, an empty
# one, invalid UTF-8, a PrintableString value, two values — and broken ones:
# no value, another attribute type, a truncated one, a primitive SET.
set -euo pipefail
out=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$out"

attribute() {  # name type values...: an attribute with the given values
    local name=$1 type=$2
    shift 2
    {
        echo "asn1=SEQUENCE:attr"
        echo "[attr]"
        echo "type=OID:$type"
        echo "values=SET:values"
        echo "[values]"
        local i=0
        for value in "$@"; do
            i=$((i + 1))
            echo "v$i=$value"
        done
    } >"$work/$name.cnf"
    openssl asn1parse -genconf "$work/$name.cnf" -noout -out "$out/seed-$name.der" >/dev/null
}
mime=0.4.0.1733.2.1
attribute pdf $mime "UTF8:application/pdf"
attribute umlaut $mime "FORMAT:UTF8,UTF8:text/x-$(printf '\xc3\xbc')ber"
attribute empty $mime "UTF8:"
attribute printable $mime "PRINTABLESTRING:text/plain"
attribute two $mime "UTF8:text/plain" "UTF8:text/html"
attribute other-type 1.2.840.113549.1.9.3 "UTF8:text/plain"
# What the generator refuses to write: a UTF8String with an invalid byte
# ("text\xff/"), and an attribute without values.
oid='\x06\x06\x04\x00\x8d\x45\x02\x01'
printf "\x30\x12$oid\x31\x08\x0c\x06text\xff/" >"$out/seed-invalid-utf8.der"
printf "\x30\x0a$oid\x31\x00" >"$out/seed-no-value.der"
# A SET in primitive form: OpenSSL reads it, but not its own encoding of it.
printf "\x30\x0e$oid\x11\x04\x20\x02\x30\x00" >"$out/seed-primitive-set.der"
head -c 20 "$out/seed-pdf.der" >"$out/seed-truncated.der"
