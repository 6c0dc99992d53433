"""Runs in a host: sends the multicast DNS of a home's other devices, on behalf of all of them.

Its arguments are the host's own address and one for each device. What is sent depends on nothing but
the time since the start. The program ends with its standard input, and then prints how many packets
it has sent in a second.

A printer, a television and a speaker answer those who ask for what they offer. The others are phones
and computers, which wake now and then: such a device probes for its name (RFC 6762, section 8.1),
announces itself, and asks who else is there. For ten minutes of each hour somebody has an app open
that asks for televisions every 20 s.
"""

import heapq
import random
import select
import sys
import time
from dataclasses import dataclass

import mdns

ANY = 255
TELEVISION = "_googlecast._tcp"
# Who offers what, and the length of its TXT record in bytes, as such devices have them.
OFFERS = {
    "Printer": {"_ipp._tcp": 600, "_ipps._tcp": 620, "_http._tcp": 10, "_scanner._tcp": 150},
    "Television": {TELEVISION: 190, "_airplay._tcp": 350},
    "Speaker": {"_raop._tcp": 220, "_airplay._tcp": 350, "_spotify-connect._tcp": 30},
}
PEOPLES = {"_companion-link._tcp": 120}
ASKED_ON_WAKING = ["_ipp._tcp", "_airplay._tcp", "_raop._tcp", TELEVISION, "_smb._tcp"]


@dataclass(frozen=True)
class Device:
    name: str
    offers: dict
    address: str

    def announcement(self, kinds):
        made = [mdns.address_record(self.name, self.address)]
        for kind in kinds:
            text = mdns.labels(*["x" * 60] * (self.offers[kind] // 61), "y")[:-1]
            made += mdns.service_records(self.name, kind, self.name, 80, text=text)
        return mdns.response(made)


def devices_of(addresses):
    known = list(OFFERS.items())
    others = [(f"Phone-{number}", PEOPLES) for number in range(len(known), len(addresses))]
    return [Device(*each, address) for each, address in zip(known + others, addresses)]


class Schedule:
    """The packets to send, as (seconds since the start, address of the sender, packet)."""

    def __init__(self, devices):
        self.devices = devices
        self.random = random.Random(1)
        self.waiting = []
        self.number = 0

    def at(self, when, action, *arguments):
        self.number += 1
        heapq.heappush(self.waiting, (when, self.number, action, arguments))

    def packets(self):
        for device in self.devices[len(OFFERS):]:
            self.at(self.random.uniform(0, 600), self.wake, device)
        for device in self.devices[: len(OFFERS)]:
            self.at(self.random.uniform(0, 300), self.remind, device)
        self.at(600, self.cast, self.devices[-1])
        while True:
            when, _, action, arguments = heapq.heappop(self.waiting)
            for sender, packet in action(when, *arguments):
                yield when, sender.address, packet

    def say(self, when, device, packet):
        yield device, packet

    def wake(self, when, device):
        probe = mdns.query([mdns.labels(device.name, "local")], ANY)
        for number in range(3):
            self.at(when + number * 0.25, self.say, device, probe)
        announcement = device.announcement(device.offers)
        for second in (1, 2):
            self.at(when + second, self.say, device, announcement)
        for second in (1, 2, 5):
            self.at(when + second, self.ask, device, ASKED_ON_WAKING)
        self.at(when + self.random.uniform(240, 960), self.wake, device)
        return ()

    def ask(self, when, asker, kinds):
        yield asker, mdns.query([mdns.labels(*kind.split("."), "local") for kind in kinds], mdns.PTR)
        for device in self.devices:
            known = [kind for kind in kinds if kind in device.offers]
            if known:
                delay = self.random.uniform(0.02, 0.12)
                self.at(when + delay, self.say, device, device.announcement(known))

    def remind(self, when, device):
        self.at(when + 300, self.remind, device)
        yield device, device.announcement(device.offers)

    def cast(self, when, asker):
        is_last = when % 3600 >= 1180
        self.at(when + (3020 if is_last else 20), self.cast, asker)
        return self.ask(when, asker, [TELEVISION])


def main():
    own, *addresses = sys.argv[1:]
    link = mdns.open_socket(own)
    began = time.monotonic()
    print("sending", flush=True)
    for sent, (when, sender, packet) in enumerate(Schedule(devices_of(addresses)).packets()):
        if select.select([sys.stdin], [], [], max(0, began + when - time.monotonic()))[0]:
            print(sent / (time.monotonic() - began), flush=True)
            return
        mdns.send_as(link, sender, packet)


if __name__ == "__main__":
    main()
