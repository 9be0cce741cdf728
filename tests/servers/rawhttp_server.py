"""A loopback server that records the raw bytes of each request and answers
with raw bytes chosen by the test, for the own HTTP client's tests.

Usage: rawhttp_server.py DIR PORTFILE LIFETIME [CERT KEY]
The request for ".../NAME" is written to DIR/requests/NAME and answered with
DIR/responses/NAME as it is (404 when there is none). A CONNECT request for
HOST:PORT is recorded as connect-HOST and answered from
DIR/responses/connect-HOST, else refused with 403. In an answer, the
separator "\\0PAUSE\\0" makes the server wait a moment before it sends the
rest; a NAME containing "hold" keeps the connection open after the answer
until the client closes (at most 10 s). With CERT and KEY it speaks TLS."""
import os
import socket
import ssl
import sys
import threading
import time

PAUSE = b"\0PAUSE\0"


def record(folder, name, data):
    path = os.path.join(folder, "requests", name)
    with open(path + ".tmp", "wb") as f:
        f.write(data)
    os.rename(path + ".tmp", path)


def serve_one(conn, folder):
    conn.settimeout(10)
    request = b""
    try:
        while b"\r\n\r\n" not in request and len(request) < 1 << 20:
            chunk = conn.recv(4096)
            if not chunk:
                break
            request += chunk
        first = request.split(b"\r\n", 1)[0].split(b" ")
        if len(first) < 2:
            return
        if first[0] == b"CONNECT":
            name = "connect-" + first[1].decode("ascii", "replace").split(":")[0]
            default = b"HTTP/1.0 403 Forbidden\r\n\r\n"
        else:
            name = first[1].decode("ascii", "replace").split("?")[0].rsplit("/", 1)[-1]
            default = b"HTTP/1.0 404 Not Found\r\nContent-Length: 9\r\n\r\nnot found"
        name = name or "root"
        record(folder, name, request)
        try:
            with open(os.path.join(folder, "responses", name), "rb") as f:
                answer = f.read()
        except OSError:
            answer = default
        parts = answer.split(PAUSE)
        for i, part in enumerate(parts):
            if i:
                time.sleep(0.3)
            conn.sendall(part)
        if "hold" in name:
            deadline = time.time() + 10
            while time.time() < deadline and conn.recv(4096):
                pass
        if isinstance(conn, ssl.SSLSocket):
            conn = conn.unwrap()
    except (OSError, ssl.SSLError):
        pass
    finally:
        conn.close()


def main():
    folder, portfile, lifetime = sys.argv[1], sys.argv[2], float(sys.argv[3])
    context = None
    if len(sys.argv) > 5:
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(sys.argv[4], sys.argv[5])
    os.makedirs(os.path.join(folder, "requests"), exist_ok=True)
    os.makedirs(os.path.join(folder, "responses"), exist_ok=True)
    listener = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
    listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    listener.bind(("127.0.0.1", 0))
    listener.listen(64)
    with open(portfile + ".tmp", "w") as f:
        f.write(str(listener.getsockname()[1]) + "\n")
    os.rename(portfile + ".tmp", portfile)
    end = time.time() + lifetime
    listener.settimeout(1)
    while time.time() < end:
        try:
            conn, _ = listener.accept()
        except socket.timeout:
            continue
        if context is not None:
            try:
                conn.settimeout(10)
                conn = context.wrap_socket(conn, server_side=True)
            except (OSError, ssl.SSLError):
                conn.close()
                continue
        threading.Thread(target=serve_one, args=(conn, folder), daemon=True).start()


main()
