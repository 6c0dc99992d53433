"""Runs in a host: makes round trips of 16 bytes on one connection to HOST PORT, one after another,
until it is ended; prints their number twice a second."""

import socket
import sys
import time

with socket.create_connection((sys.argv[1], int(sys.argv[2])), timeout=60) as connection:
    connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
    count, due = 0, time.monotonic() + 0.5
    while True:
        connection.sendall(b"to the phone....")
        left = 16
        while left > 0:
            left -= len(connection.recv(left)) or sys.exit("the session has ended")
        count += 1
        if time.monotonic() >= due:
            print(f"trips {count}", flush=True)
            count, due = 0, time.monotonic() + 0.5
