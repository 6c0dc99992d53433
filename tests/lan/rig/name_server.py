"""A DNS server on 127.0.0.53 that knows no names: it answers every query at once with NXDOMAIN.
With the argument "local" it is responsible for the domain "local", as in some companies: it answers
queries for that domain with an SOA record."""

import socket
import struct
import sys

HAS_LOCAL = sys.argv[1:] == ["local"]
LOCAL = b"\x05local\x00"
SOA = 6
NO_ERROR, NO_NAME = 0x8180, 0x8183  # RFC 1035, section 4.1.1: QR, RD, RA and the RCODE

server = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
server.bind(("127.0.0.53", 53))
print("ready", flush=True)
while True:
    query, client = server.recvfrom(4096)
    end = query.index(b"\0", 12) + 5  # of the question: name, type and class
    question = query[12:end]
    if HAS_LOCAL and question.lower().startswith(LOCAL + struct.pack(">H", SOA)):
        data = b"\0\0" + struct.pack(">5I", 1, 60, 60, 60, 60)
        record = LOCAL + struct.pack(">HHIH", SOA, 1, 60, len(data)) + data
        answer = struct.pack(">HHHHH", NO_ERROR, 1, 1, 0, 0) + question + record
    else:
        answer = struct.pack(">HHHHH", NO_NAME, 1, 0, 0, 0) + question
    server.sendto(query[:2] + answer, client)
