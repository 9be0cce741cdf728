#!/usr/bin/python3
"""A small HTTP server for client tests, bound to 127.0.0.1.

usage: http_fault_server.py ROOT PORTFILE [LIFETIME_SECONDS]

Answers GET and POST by path:
  /file/NAME       200 with the bytes of ROOT/NAME (404 when missing)
  /status/CODE     that status with a short text body
  /empty           200 with an empty body
  /garbage         200 with bytes that are no valid DER
  /slow/SECONDS    waits, then 200 with the body of /garbage
  /echo            200 with the request body (POST) and its content type
  /drop            closes the connection without an answer
Writes the chosen port to PORTFILE once listening; exits by itself after
LIFETIME_SECONDS (default 900) so that a forgotten server cannot linger.
"""
import http.server
import loopback
import os
import sys
import time

ROOT = sys.argv[1]
PORTFILE = sys.argv[2]
LIFETIME = float(sys.argv[3]) if len(sys.argv) > 3 else 900.0


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.0"

    def log_message(self, *args):
        pass

    def answer(self, status, body=b"", content_type="application/octet-stream"):
        self.send_response(status)
        self.send_header("Content-Type", content_type)
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)

    def handle_any(self, body):
        parts = [p for p in self.path.split("?")[0].split("/") if p]
        if not parts:
            return self.answer(404, b"no path")
        kind = parts[0]
        if kind == "file" and len(parts) == 2:
            path = os.path.join(ROOT, os.path.basename(parts[1]))
            if not os.path.isfile(path):
                return self.answer(404, b"not found")
            with open(path, "rb") as f:
                return self.answer(200, f.read())
        if kind == "status" and len(parts) == 2 and parts[1].isdigit():
            return self.answer(int(parts[1]), b"status " + parts[1].encode(), "text/plain")
        if kind == "empty":
            return self.answer(200)
        if kind == "garbage":
            return self.answer(200, b"\x30\x82\xff\xffnot DER at all")
        if kind == "slow" and len(parts) == 2:
            time.sleep(float(parts[1]))
            return self.answer(200, b"\x30\x82\xff\xffnot DER at all")
        if kind == "echo":
            return self.answer(200, body, self.headers.get("Content-Type", ""))
        if kind == "drop":
            self.close_connection = True
            return None
        return self.answer(404, b"unknown path")

    def do_GET(self):
        self.handle_any(b"")

    def do_POST(self):
        length = int(self.headers.get("Content-Length", "0") or 0)
        self.handle_any(self.rfile.read(length))


def main():
    loopback.serve(Handler, PORTFILE, LIFETIME)


if __name__ == "__main__":
    main()
