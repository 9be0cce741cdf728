#!/usr/bin/env bash
# ocsp_start.sh DIR TESTPKI [rsa]: mints the test PKI into DIR/pki (end
# entities carry the responder's URL in their AIA; P-256 keys, RSA-2048 with
# `rsa`) and starts two `openssl ocsp` responders on 127.0.0.1:
#   DIR/url            signed by "Tessera Test OCSP Responder" (delegated by the CA),
#                      nextUpdate one hour after thisUpdate
#   DIR/untrusted-url  signed by a responder of another CA, which no test trusts
# Both answer from DIR/pki/index.txt: good (1001), revoked (1002,
# keyCompromise, 2024-06-01 12:00:00 UTC), unknown (1003).
set -euo pipefail
dir=$1
testpki=$2
keys=()
case ${3:-} in
    "") ;;
    rsa) keys=(--rsa) ;;
    *) echo "ocsp_start.sh: unknown key kind '$3' (only rsa)" >&2; exit 2 ;;
esac
here=$(cd "$(dirname "$0")" && pwd)
rm -rf "$dir" && mkdir -p "$dir/pki"
port=$(/usr/bin/python3 "$here/free_port.py")
untrusted_port=$(/usr/bin/python3 "$here/free_port.py")
while [ "$untrusted_port" = "$port" ]; do untrusted_port=$(/usr/bin/python3 "$here/free_port.py"); done
"$testpki" "${keys[@]}" "$dir/pki" "http://127.0.0.1:$port"
pki=$dir/pki

# Readiness is read from the responder's own log line: a bare connection
# that closes without a request sends `openssl ocsp` into a busy loop.
start() {  # name port signer key [extra options...]; bounded to 15 minutes
    local name=$1 p=$2 signer=$3 key=$4
    shift 4
    (exec timeout 900 openssl ocsp -index "$pki/index.txt" -port "$p" -rsigner "$signer" \
        -rkey "$key" -CA "$pki/ca.pem" -ignore_err "$@" >"$dir/$name.log" 2>&1) &
    echo $! >>"$dir/pid"
    for _ in $(seq 200); do
        grep -q "waiting for OCSP client connections" "$dir/$name.log" 2>/dev/null && return 0
        sleep 0.05
    done
    echo "OCSP responder $name did not start:"; cat "$dir/$name.log"
    return 1
}
start trusted "$port" "$pki/ocsp.pem" "$pki/ocsp.key.pem" -nmin 60
start untrusted "$untrusted_port" "$pki/untrusted-ocsp.pem" "$pki/untrusted-ocsp.key.pem"
echo "http://127.0.0.1:$port" >"$dir/url"
echo "http://127.0.0.1:$untrusted_port" >"$dir/untrusted-url"
