"""Runs in a phone: its web management page, over TLS with a self-signed certificate.

Prints its port and each request on standard output.
"""

import http.server
import os
import socket
import ssl
import sys

sys.path.append(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "..", "demo"))
from demo import Page, make_certificate  # noqa: E402 needs the path above; same page as the demo


class Server(http.server.ThreadingHTTPServer):
    address_family = socket.AF_INET6

    def server_bind(self):
        # IPv4 and IPv6 on one port.
        self.socket.setsockopt(socket.IPPROTO_IPV6, socket.IPV6_V6ONLY, 0)
        super().server_bind()


class Visited(Page):
    def do_GET(self):
        print("visit " + self.path, flush=True)
        super().do_GET()


certificate = make_certificate(sys.argv[1])
context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
context.load_cert_chain(certificate, certificate + ".key")
server = Server(("::", 0), Visited)
server.socket = context.wrap_socket(server.socket, server_side=True)
print(f"port {server.server_address[1]}", flush=True)
server.serve_forever()
