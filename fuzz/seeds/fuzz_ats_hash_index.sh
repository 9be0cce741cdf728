#!/usr/bin/env bash
# fuzz_ats_hash_index.sh OUTDIR: writes hash-index attributes made with
# `openssl asn1parse -genconf`, each behind the byte that picks the decoder
# (0 v1, 1 v2, 2 v3): a v1 index with entries in all three lists, v2 and v3
# with SHA-256 and SHA-512, an empty v3, a v3 without its algorithm, one
# with an unknown algorithm, and a v1 attribute offered to the v3 decoder.
set -euo pipefail
out=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$out"

h32=FORMAT:HEX,OCTETSTRING:$(printf '%064d' 7)
h64=FORMAT:HEX,OCTETSTRING:$(printf '%0128d' 9)

index() {  # name pick type algorithm entries: algorithm "" leaves it out
    local name=$1 pick=$2 type=$3 algorithm=$4 entries=$5
    {
        echo "asn1=SEQUENCE:attr"
        echo "[attr]"
        echo "type=OID:$type"
        echo "values=SET:values"
        echo "[values]"
        echo "v=SEQUENCE:index"
        echo "[index]"
        if [ -n "$algorithm" ]; then echo "alg=SEQUENCE:alg"; fi
        echo "certs=SEQUENCE:list"
        echo "crls=SEQUENCE:list"
        echo "attrs=SEQUENCE:list"
        echo "[alg]"
        echo "oid=OID:${algorithm:-sha256}"
        echo "[list]"
        local i
        for ((i = 0; i < entries; i++)); do echo "e$i=${HASH:-$h32}"; done
    } >"$work/$name.cnf"
    openssl asn1parse -genconf "$work/$name.cnf" -noout -out "$work/$name.der" >/dev/null
    { printf "\\x$pick"; cat "$work/$name.der"; } >"$out/seed-$name.bin"
}
index v1 00 0.4.0.1733.2.5 "" 2
index v2-sha256 01 0.4.0.19122.1.4 sha256 1
HASH=$h64 index v3-sha512 02 0.4.0.19122.1.5 sha512 2
index v3-empty 02 0.4.0.19122.1.5 sha256 0
index v3-no-algorithm 02 0.4.0.19122.1.5 "" 1
index v3-unknown-algorithm 02 0.4.0.19122.1.5 1.2.3.4 1
index v1-as-v3 02 0.4.0.1733.2.5 "" 1
