"""Runs in a phone: announces DNS-SD services with python-zeroconf, as ordered on standard input.

Reads one JSON object per line and answers each with one, which contains the time
(CLOCK_MONOTONIC) at which the order was carried out.
"""

import asyncio
import json
import socket
import sys
import time

from zeroconf import IPVersion
from zeroconf.asyncio import AsyncServiceInfo, AsyncZeroconf


def service(order):
    kind = order["type"] + ".local."
    packed = []
    for address in order["addresses"]:
        family = socket.AF_INET6 if ":" in address else socket.AF_INET
        packed.append(socket.inet_pton(family, address))
    return AsyncServiceInfo(
        kind,
        order["name"] + "." + kind,
        port=order["port"],
        server=order["host"] + ".local.",
        addresses=packed,
        host_ttl=order.get("host_ttl", 120),
        other_ttl=order.get("other_ttl", 4500),
    )


async def main():
    responder = AsyncZeroconf(ip_version=IPVersion.All)
    services = {}
    background = set()
    loop = asyncio.get_running_loop()
    while line := await loop.run_in_executor(None, sys.stdin.readline):
        order = json.loads(line)
        key = (order["name"], order["type"])
        if order["do"] == "announce":
            services[key] = service(order)
            # This call probes for the name; the task that it returns sends the announcements.
            sending = await responder.async_register_service(services[key])
            background.add(sending)
        elif order["do"] == "change":
            services[key] = service(order)
            sending = await responder.async_update_service(services[key])
            background.add(sending)
        else:
            # An announcement sent after the goodbye would undo it.
            await asyncio.gather(*background)
            sending = await responder.async_unregister_service(services.pop(key))
            background.add(sending)
        print(json.dumps({"done": order["do"], "at": time.monotonic()}), flush=True)
    await asyncio.gather(*background)
    await responder.async_close()


asyncio.run(main())
