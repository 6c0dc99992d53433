"""A DNS server on 127.0.0.53 that knows no names: it answers every query at once with NXDOMAIN."""

import socket

server = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
server.bind(("127.0.0.53", 53))
print("ready", flush=True)
while True:
    query, client = server.recvfrom(4096)
    # RFC 1035, section 4.1.1: QR, RD, RA and RCODE 3; the question remains, without other records.
    answer = query[:2] + b"\x81\x83" + query[4:6] + bytes(6) + query[12:]
    # Without the additional record of EDNS (RFC 6891), which has a fixed size here.
    server.sendto(answer[:-11] if query[10:12] == b"\0\1" else answer, client)
