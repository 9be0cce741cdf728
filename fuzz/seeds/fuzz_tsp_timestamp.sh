#!/usr/bin/env bash
# fuzz_tsp_timestamp.sh OUTDIR: writes a few real time-stamp tokens (with and
# without the TSA certificate, with and without nonce, SHA-1 and SHA-512
# imprints, fractional genTime) made by `openssl ts -reply` with a throw-away
# EC key.
set -euo pipefail
out=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$out"
openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 3650 \
    -subj "/CN=Fuzz Seed TSA" -keyout "$work/tsa.key" -out "$work/tsa.pem" \
    -addext "keyUsage=critical,digitalSignature" \
    -addext "extendedKeyUsage=critical,timeStamping" 2>/dev/null
echo 01 >"$work/serial"
write_config() {  # precision digits
    cat >"$work/tsa.cnf" <<CNF
[ tsa ]
default_tsa = seed
[ seed ]
dir = $work
serial = \$dir/serial
crypto_device = builtin
signer_digest = sha256
default_policy = 1.2.3.4.1
digests = sha1, sha256, sha512
accuracy = secs:1, millisecs:500
clock_precision_digits = $1
ordering = yes
tsa_name = yes
ess_cert_id_alg = sha1
CNF
}
printf 'seed data' >"$work/data"
n=0
for digits in 0 3; do
    write_config "$digits"
    for hash in sha1 sha256 sha512; do
        for cert in -cert -no_nonce; do
            n=$((n + 1))
            openssl ts -query -data "$work/data" "-$hash" $cert -out "$work/q.tsq" 2>/dev/null
            openssl ts -reply -config "$work/tsa.cnf" -queryfile "$work/q.tsq" \
                -signer "$work/tsa.pem" -inkey "$work/tsa.key" -token_out \
                -out "$out/seed-token-$n.der" 2>/dev/null
        done
    done
done
