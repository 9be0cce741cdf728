#!/usr/bin/env bash
# Starts http_fault_server.py for client tests. Leaves DIR/pid, DIR/port,
# DIR/url (http://127.0.0.1:PORT) and DIR/root (files served under /file/).
set -euo pipefail
dir=$1
here=$(cd "$(dirname "$0")" && pwd)
rm -rf "$dir" && mkdir -p "$dir/root"
. "$here/start_python.sh"
start_python "$dir" "$here/http_fault_server.py" "$dir/root" "$dir/port" 900
echo "http://127.0.0.1:$port" >"$dir/url"
