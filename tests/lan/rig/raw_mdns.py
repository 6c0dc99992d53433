"""Raw multicast DNS packets, also invalid ones (message format: RFC 1035, section 4)."""

import random
import socket
import struct
import time

GROUP = ("224.0.0.251", 5353)
A, CNAME, PTR, SRV = 1, 5, 12, 33
TYPE_PHONE = "_quillbox._tcp"


def labels(*parts):
    """An encoded name whose labels may contain any bytes."""
    packed = b""
    for part in parts:
        raw = part if isinstance(part, bytes) else part.encode()
        packed += bytes([len(raw)]) + raw
    return packed + b"\0"


def dotted(name):
    return labels(*name.split("."))


def record(name, kind, lifetime, data, unique=False):
    return name + struct.pack("!HHIH", kind, 0x8001 if unique else 1, lifetime, len(data)) + data


def response(*records):
    return struct.pack("!HHHHHH", 0, 0x8400, 0, len(records), 0, 0) + b"".join(records)


def pointer(instance, lifetime=4500, kind=TYPE_PHONE):
    whole = dotted(f"{kind}.local")
    raw = instance if isinstance(instance, bytes) else instance.encode()
    return record(whole, PTR, lifetime, bytes([len(raw)]) + raw + whole)


def service(instance, host, port, lifetime=120):
    whole = labels(instance, *TYPE_PHONE.split("."), "local")
    return record(whole, SRV, lifetime, struct.pack("!HHH", 0, 0, port) + dotted(host), True)


def address(host, ipv4, lifetime=120):
    return record(dotted(host), A, lifetime, socket.inet_aton(ipv4), True)


def alias(name, target, lifetime):
    """A CNAME record; both names are encoded."""
    return record(name, CNAME, lifetime, target, True)


def is_visible(host, instance, kind, seconds):
    """Whether a look at the network from `host`, without a cache, shows the service: a query from an
    ephemeral port, which responders answer to that port (RFC 6762, section 6.7)."""
    question = dotted(f"{kind}.local")
    with host.socket(kind=socket.SOCK_DGRAM) as looking:
        where = socket.inet_aton(host.address4)
        looking.setsockopt(socket.IPPROTO_IP, socket.IP_MULTICAST_IF, where)
        looking.bind((host.address4, 0))
        header = struct.pack("!HHHHHH", 0, 0, 1, 0, 0, 0)
        looking.sendto(header + question + struct.pack("!HH", PTR, 1), GROUP)
        end = time.monotonic() + seconds
        while (left := end - time.monotonic()) > 0:
            looking.settimeout(left)
            try:
                if instance.encode() in looking.recv(9000):
                    return True
            except TimeoutError:
                break
    return False


def packets(records, room=1400):
    """Packs the records into packets, each filled with as many as fit."""
    batch, size = [], 0
    for each in records:
        if size + len(each) > room:
            yield response(*batch)
            batch, size = [], 0
        batch.append(each)
        size += len(each)
    if batch:
        yield response(*batch)


class Speaker:
    """Multicasts any packets from a host, with the mDNS port 5353 as the source port."""

    def __init__(self, host):
        self.socket = host.socket(kind=socket.SOCK_DGRAM)
        self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEPORT, 1)
        self.socket.bind((host.address4, 5353))
        where = socket.inet_aton(host.address4)
        self.socket.setsockopt(socket.IPPROTO_IP, socket.IP_MULTICAST_IF, where)
        self.socket.setsockopt(socket.IPPROTO_IP, socket.IP_MULTICAST_TTL, 255)

    def say(self, *whole):
        """Sends the packets slowly enough for a receiver whose socket buffer holds about 100."""
        for packet in whole:
            self.socket.sendto(packet, GROUP)
            time.sleep(0.002)

    def babble(self, seconds, seeds, seed=0):
        """Sends corrupted variations of the packets as fast as possible; returns how many."""
        chance = random.Random(seed)
        end = time.monotonic() + seconds
        count = 0
        while time.monotonic() < end:
            packet = bytearray(chance.choice(seeds))
            for _ in range(chance.choice((0, 1, 1, 2, 8))):
                packet[chance.randrange(len(packet))] = chance.randrange(256)
            if chance.random() < 0.4:
                del packet[chance.randrange(len(packet)) :]
            if chance.random() < 0.1:
                packet += chance.randbytes(chance.randrange(64))
            self.socket.sendto(bytes(packet[:1472]), GROUP)
            count += 1
        return count

    def close(self):
        self.socket.close()
