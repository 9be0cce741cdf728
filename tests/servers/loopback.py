"""Shared start-up of the python test servers: bound to 127.0.0.1 on a free
port that is written to a file once listening, and ended by themselves after
a lifetime so that a forgotten server cannot linger."""
import http.server
import os
import socketserver
import threading


class Server(socketserver.ThreadingMixIn, http.server.HTTPServer):
    daemon_threads = True


def serve(handler, portfile, lifetime):
    server = Server(("127.0.0.1", 0), handler)
    threading.Timer(lifetime, server.shutdown).start()
    with open(portfile + ".tmp", "w") as f:
        f.write(str(server.server_address[1]) + "\n")
    os.rename(portfile + ".tmp", portfile)
    server.serve_forever()
