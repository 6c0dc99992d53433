"""Runs in a host: takes TCP connections, says hello to each, and tells of each on standard output."""

import asyncio
import socket


async def greet(_, writer):
    peer = writer.get_extra_info("peername")[0]
    print(f"connection from {peer}", flush=True)
    writer.write(b"hello\n")
    await writer.drain()
    writer.close()


async def main():
    # Both families on one port.
    listener = socket.create_server(("::", 0), family=socket.AF_INET6, dualstack_ipv6=True)
    server = await asyncio.start_server(greet, sock=listener)
    print(f"port {listener.getsockname()[1]}", flush=True)
    await server.serve_forever()


asyncio.run(main())
