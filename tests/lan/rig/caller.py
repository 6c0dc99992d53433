"""Runs in a host: connects to HOST PORT and reports when it is connected and when the first bytes
arrive."""

import socket
import sys
import time

with socket.create_connection((sys.argv[1], int(sys.argv[2])), timeout=60) as connection:
    start = time.monotonic()
    print("connected", flush=True)
    first = connection.recv(64)
    print(f"first {time.monotonic() - start:.4f} {first!r}", flush=True)
