#!/usr/bin/env bash
# Starts crlservice_server.py for the CRL-service client tests. Leaves DIR/pid,
# DIR/port, DIR/url (http://127.0.0.1:PORT/crl) and DIR/root, where tests
# write their CRLs as ISSUER.THISUPDATE.der (see crlservice_server.py).
set -euo pipefail
dir=$1
here=$(cd "$(dirname "$0")" && pwd)
rm -rf "$dir" && mkdir -p "$dir/root"
. "$here/start_python.sh"
start_python "$dir" "$here/crlservice_server.py" "$dir/root" "$dir/port" 900
echo "http://127.0.0.1:$port/crl" >"$dir/url"
