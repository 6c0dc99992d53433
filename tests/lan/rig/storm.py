"""Runs in a host: opens COUNT connections to HOST PORT, at most RATE a second, and ends each at once:
by a reset, or, with "end" as a further word, by a FIN; with the word "data" after sending a byte.
Prints how many it has opened, and how many could not be opened."""

import contextlib
import socket
import struct
import sys
import time

host, port, count, rate, *how = sys.argv[1:]
start = time.monotonic()
opened = failed = 0
while (done := opened + failed) < int(count):
    time.sleep(max(0.0, start + done / float(rate) - time.monotonic()))
    with socket.socket() as connection:
        connection.settimeout(1)
        try:
            connection.connect((host, int(port)))
        except OSError:
            failed += 1
            continue
        opened += 1
        with contextlib.suppress(OSError):
            if "data" in how:
                connection.send(b"x")
            if "end" not in how:
                connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
print(f"opened {opened} failed {failed}", flush=True)
