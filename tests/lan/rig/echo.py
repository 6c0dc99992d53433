"""Runs in a host: a TCP server that sends back what it receives; prints its port."""

import asyncio


async def echo(reader, writer):
    try:
        while piece := await reader.read(1 << 16):
            writer.write(piece)
            await writer.drain()
    except ConnectionError:
        pass
    writer.close()


async def main():
    server = await asyncio.start_server(echo, "0.0.0.0", 0, backlog=4096)
    print(f"port {server.sockets[0].getsockname()[1]}", flush=True)
    await server.serve_forever()


asyncio.run(main())
