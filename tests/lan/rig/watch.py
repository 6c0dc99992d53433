"""Runs in an observer: browses for one service type with python-zeroconf and reports what it sees.

Prints one JSON object per line: watching, added, removed, resolved (with host, port and addresses),
unresolved, or heard (an SRV record was received, new or already known, with host and port), each
with the time (CLOCK_MONOTONIC) at which it was seen.
"""

import asyncio
import json
import sys
import time

from zeroconf import DNSService, IPVersion, RecordUpdateListener, ServiceStateChange
from zeroconf.asyncio import AsyncServiceBrowser, AsyncServiceInfo, AsyncZeroconf


def tell(event, name, **more):
    print(json.dumps({"event": event, "name": name, "at": time.monotonic(), **more}), flush=True)


class Records(RecordUpdateListener):
    """Reports every SRV record received; a browser reports only those that are new."""

    def __init__(self, kind):
        self.kind = kind

    def async_update_records(self, zc, now, records):
        for record, _ in records:
            # A goodbye record arrives here with a TTL of one second.
            if isinstance(record, DNSService) and record.ttl > 1 and record.name.endswith(self.kind):
                name = record.name[: -len(self.kind) - 1]
                tell("heard", name, host=record.server.rstrip("."), port=record.port)

    def async_update_records_complete(self):
        pass


async def resolve(responder, kind, full_name, name):
    info = AsyncServiceInfo(kind, full_name)
    if not await info.async_request(responder.zeroconf, 5000):
        tell("unresolved", name)
        return
    tell(
        "resolved",
        name,
        host=info.server.rstrip("."),
        port=info.port,
        addresses=info.parsed_addresses(),
        txt=len(info.text or b""),
    )


async def main():
    kind = sys.argv[1] + ".local."
    responder = AsyncZeroconf(ip_version=IPVersion.All)
    tasks = set()

    def changed(zeroconf, service_type, name, state_change):
        short = name[: -len(kind) - 1]
        if state_change is ServiceStateChange.Removed:
            tell("removed", short)
            return
        if state_change is ServiceStateChange.Added:
            tell("added", short)
        tasks.add(asyncio.ensure_future(resolve(responder, kind, name, short)))

    responder.zeroconf.async_add_listener(Records(kind), None)
    browser = AsyncServiceBrowser(responder.zeroconf, kind, handlers=[changed])
    tell("watching", "")
    loop = asyncio.get_running_loop()
    await loop.run_in_executor(None, sys.stdin.read)
    await browser.async_cancel()
    await responder.async_close()


asyncio.run(main())
