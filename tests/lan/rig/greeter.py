"""Runs in a host: accepts TCP connections, greets each and reports it on standard output."""

import asyncio
import socket


async def greet(_, writer):
    peer = writer.get_extra_info("peername")[0]
    print(f"connection from {peer}", flush=True)
    writer.write(b"hello\n")
    await writer.drain()
    writer.close()


async def main():
    # IPv4 and IPv6 on one port.
    listener = socket.create_server(("::", 0), family=socket.AF_INET6, dualstack_ipv6=True)
    server = await asyncio.start_server(greet, sock=listener)
    print(f"port {listener.getsockname()[1]}", flush=True)
    await server.serve_forever()


asyncio.run(main())
