#!/usr/bin/env bash
# Starts the recording servers of the own HTTP client's tests: plain
# (DIR/plain) and TLS (DIR/tls, with a fresh self-signed certificate), and
# tinyproxy with Basic authentication (user "user", password "pass") whose
# CONNECT reaches only the TLS server. Leaves DIR/pid, DIR/plain/url,
# DIR/tls/url and DIR/proxy_url.
set -euo pipefail
dir=$1
here=$(cd "$(dirname "$0")" && pwd)
rm -rf "$dir" && mkdir -p "$dir/plain" "$dir/tls"
. "$here/start_python.sh"
start_python "$dir/plain" "$here/rawhttp_server.py" "$dir/plain" "$dir/plain/port" 900
cat "$dir/plain/pid" >>"$dir/pid"
echo "http://127.0.0.1:$port" >"$dir/plain/url"
openssl req -x509 -newkey rsa:2048 -nodes -subj "/CN=127.0.0.1" -days 2 \
    -keyout "$dir/tls/key.pem" -out "$dir/tls/cert.pem" 2>/dev/null
start_python "$dir/tls" "$here/rawhttp_server.py" "$dir/tls" "$dir/tls/port" 900 \
    "$dir/tls/cert.pem" "$dir/tls/key.pem"
cat "$dir/tls/pid" >>"$dir/pid"
tls_port=$port
echo "https://127.0.0.1:$tls_port" >"$dir/tls/url"

# tinyproxy runs as nobody, which must be able to read its configuration.
conf_dir=$dir/proxy
mkdir -p "$conf_dir" && chmod 755 "$dir" "$conf_dir"
proxy_port=$(/usr/bin/python3 "$here/free_port.py")
cat >"$conf_dir/tinyproxy.conf" <<CONF
Port $proxy_port
Listen 127.0.0.1
Timeout 30
MaxClients 20
Allow 127.0.0.1
BasicAuth user pass
ConnectPort $tls_port
LogLevel Info
CONF
chmod 644 "$conf_dir/tinyproxy.conf"
timeout 900 runuser -u nobody -- tinyproxy -d -c "$conf_dir/tinyproxy.conf" \
    >"$dir/proxy.log" 2>&1 &
echo $! >>"$dir/pid"
"$here/wait_port.sh" "$proxy_port" 10
echo "http://127.0.0.1:$proxy_port" >"$dir/proxy_url"
