#!/usr/bin/env bash
# tsa_start.sh DIR TESTPKI [rsa]: starts tsa_server.py, a time-stamp authority
# on 127.0.0.1 signing with the test PKI's TSA certificate (P-256 keys,
# RSA-2048 with `rsa`; the CA's key is DIR/pki/ca.key.pem). Leaves DIR/pid,
# DIR/port, DIR/url (http://127.0.0.1:PORT/tsa; .../auth wants Basic
# credentials tsa-user:tsa-pass), DIR/ca.pem and DIR/tsa.pem (the chain that
# verifies its tokens), and DIR/tsa.cnf. Tokens carry policy 1.2.3.4.1
# (1.2.3.4.5 on request) and accuracy 1 s 500 ms 100 us.
set -euo pipefail
dir=$1
testpki=$2
keys=()
case ${3:-} in
    "") ;;
    rsa) keys=(--rsa) ;;
    *) echo "tsa_start.sh: unknown key kind '$3' (only rsa)" >&2; exit 2 ;;
esac
here=$(cd "$(dirname "$0")" && pwd)
rm -rf "$dir" && mkdir -p "$dir/pki"
"$testpki" "${keys[@]}" "$dir/pki"
cp "$dir/pki/ca.pem" "$dir/pki/tsa.pem" "$dir/pki/tsa.key.pem" "$dir/"
echo 01 >"$dir/serial"
cat >"$dir/tsa.cnf" <<CNF
[ tsa ]
default_tsa = tsa_config

[ tsa_config ]
dir = $dir
serial = \$dir/serial
crypto_device = builtin
signer_digest = sha256
default_policy = 1.2.3.4.1
other_policies = 1.2.3.4.5
digests = sha1, sha224, sha256, sha384, sha512
accuracy = secs:1, millisecs:500, microsecs:100
clock_precision_digits = 0
ordering = no
tsa_name = yes
ess_cert_id_chain = no
ess_cert_id_alg = sha256
CNF
. "$here/start_python.sh"
start_python "$dir" "$here/tsa_server.py" "$dir" "$dir/port" 900
echo "http://127.0.0.1:$port/tsa" >"$dir/url"
