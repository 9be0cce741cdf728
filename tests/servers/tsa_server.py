#!/usr/bin/python3
"""A time-stamp authority for client tests, bound to 127.0.0.1.

usage: tsa_server.py DIR PORTFILE [LIFETIME_SECONDS]

Answers POSTs of Content-Type application/timestamp-query with the reply of
`openssl ts -reply -config DIR/tsa.cnf` (signer DIR/tsa.pem, key
DIR/tsa.key.pem, chain DIR/ca.pem):
  /auth...   only with HTTP Basic credentials tsa-user:tsa-pass, else 401
  any other  always
A POST of another content type gets 415, a GET 405. Writes the chosen port
to PORTFILE once listening; exits by itself after LIFETIME_SECONDS (default
900) so that a forgotten server cannot linger.
"""
import base64
import http.server
import loopback
import os
import subprocess
import sys
import tempfile
import threading

DIR = sys.argv[1]
PORTFILE = sys.argv[2]
LIFETIME = float(sys.argv[3]) if len(sys.argv) > 3 else 900.0
CREDENTIALS = "Basic " + base64.b64encode(b"tsa-user:tsa-pass").decode("ascii")
# openssl ts -reply updates the serial file: one reply at a time.
LOCK = threading.Lock()


def reply(query):
    with tempfile.TemporaryDirectory(dir=DIR) as work:
        queryfile = os.path.join(work, "query.tsq")
        replyfile = os.path.join(work, "reply.tsr")
        with open(queryfile, "wb") as f:
            f.write(query)
        with LOCK:
            done = subprocess.run(
                ["openssl", "ts", "-reply", "-config", os.path.join(DIR, "tsa.cnf"),
                 "-queryfile", queryfile,
                 "-signer", os.path.join(DIR, "tsa.pem"),
                 "-inkey", os.path.join(DIR, "tsa.key.pem"),
                 "-chain", os.path.join(DIR, "ca.pem"),
                 "-out", replyfile],
                capture_output=True, timeout=20)
        if done.returncode != 0 or not os.path.exists(replyfile):
            sys.stderr.write(done.stderr.decode(errors="replace"))
            return None
        with open(replyfile, "rb") as f:
            return f.read()


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.0"

    def log_message(self, *args):
        pass

    def answer(self, status, body=b"", content_type="text/plain", extra=()):
        self.send_response(status)
        self.send_header("Content-Type", content_type)
        self.send_header("Content-Length", str(len(body)))
        for name, value in extra:
            self.send_header(name, value)
        self.end_headers()
        self.wfile.write(body)

    def do_GET(self):
        self.answer(405, b"POST a time-stamp query")

    def do_POST(self):
        length = int(self.headers.get("Content-Length", "0") or 0)
        body = self.rfile.read(length)
        if self.path.startswith("/auth") and self.headers.get("Authorization") != CREDENTIALS:
            return self.answer(401, b"credentials required",
                               extra=[("WWW-Authenticate", 'Basic realm="tsa"')])
        if self.headers.get("Content-Type", "") != "application/timestamp-query":
            return self.answer(415, b"expected application/timestamp-query")
        answer = reply(body)
        if answer is None:
            return self.answer(500, b"openssl ts -reply failed")
        self.answer(200, answer, "application/timestamp-reply")


def main():
    loopback.serve(Handler, PORTFILE, LIFETIME)


if __name__ == "__main__":
    main()
