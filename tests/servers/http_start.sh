#!/usr/bin/env bash
# Starts http_fault_server.py for client tests. Leaves DIR/pid, DIR/port,
# DIR/url (http://127.0.0.1:PORT) and DIR/root (files served under /file/).
set -euo pipefail
dir=$1
here=$(cd "$(dirname "$0")" && pwd)
rm -rf "$dir" && mkdir -p "$dir/root"
/usr/bin/python3 "$here/http_fault_server.py" "$dir/root" "$dir/port" 900 \
    >"$dir/server.log" 2>&1 &
echo $! >"$dir/pid"
for _ in $(seq 200); do [ -s "$dir/port" ] && break; sleep 0.05; done
[ -s "$dir/port" ] || { echo "http server did not start"; cat "$dir/server.log"; exit 1; }
port=$(cat "$dir/port")
"$here/wait_port.sh" "$port" 10
echo "http://127.0.0.1:$port" >"$dir/url"
