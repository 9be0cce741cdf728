#!/usr/bin/python3
"""Prints a TCP port on 127.0.0.1 that is free right now."""
import socket

with socket.socket(socket.AF_INET, socket.SOCK_STREAM) as s:
    s.bind(("127.0.0.1", 0))
    print(s.getsockname()[1])
