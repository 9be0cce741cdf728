#!/usr/bin/python3
"""The CRL service for client tests, bound to 127.0.0.1.

usage: crlservice_server.py ROOT PORTFILE [LIFETIME_SECONDS]

Answers GET ...?issuer=ISSUER[&time=SECONDS], ISSUER being the Base64url of
the issuer's subject DER (no padding). The CRLs are the files
ROOT/ISSUER.THISUPDATE.der, THISUPDATE in seconds since 1970:
  without time   200 with the CRL of the largest THISUPDATE
  with time      200 with the CRL of the largest THISUPDATE >= time
  nothing found  404
  no issuer      400
Writes the chosen port to PORTFILE once listening; exits by itself after
LIFETIME_SECONDS (default 900) so that a forgotten server cannot linger.
"""
import http.server
import loopback
import os
import sys
import urllib.parse

ROOT = sys.argv[1]
PORTFILE = sys.argv[2]
LIFETIME = float(sys.argv[3]) if len(sys.argv) > 3 else 900.0


def pick(issuer, time):
    best = None
    for name in os.listdir(ROOT):
        parts = name.split(".")
        if len(parts) != 3 or parts[0] != issuer or parts[2] != "der" or not parts[1].isdigit():
            continue
        issued = int(parts[1])
        if time is not None and issued < time:
            continue
        if best is None or issued > best[0]:
            best = (issued, name)
    return None if best is None else os.path.join(ROOT, best[1])


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.0"

    def log_message(self, *args):
        pass

    def answer(self, status, body, content_type="text/plain"):
        self.send_response(status)
        self.send_header("Content-Type", content_type)
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)

    def do_GET(self):
        query = urllib.parse.parse_qs(urllib.parse.urlsplit(self.path).query)
        issuer = query.get("issuer", [""])[0]
        if not issuer or "/" in issuer or "." in issuer:
            return self.answer(400, b"issuer missing")
        time = query.get("time", [None])[0]
        if time is not None and not time.lstrip("-").isdigit():
            return self.answer(400, b"bad time")
        path = pick(issuer, None if time is None else int(time))
        if path is None:
            return self.answer(404, b"CRL not found")
        with open(path, "rb") as f:
            return self.answer(200, f.read(), "application/pkix-crl")


def main():
    loopback.serve(Handler, PORTFILE, LIFETIME)


if __name__ == "__main__":
    main()
