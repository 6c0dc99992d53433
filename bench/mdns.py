"""Raw multicast DNS (RFC 6762), as far as needed to announce and watch many services."""

import socket
import struct

GROUP, PORT = "224.0.0.251", 5353
A, PTR, TXT, SRV = 1, 12, 16, 33
IN, FLUSH = 1, 0x8001  # FLUSH: class IN with the cache-flush bit (section 10.2)
AUTHORITATIVE_ANSWER = 0x8400
HOST_TTL, OTHER_TTL = 120, 4500


def labels(*parts):
    """An encoded name; labels may contain dots."""
    encoded = b""
    for part in parts:
        raw = part.encode("utf-8")
        encoded += bytes([len(raw)]) + raw
    return encoded + b"\0"


def record(name, kind, cache_class, ttl, data):
    return name + struct.pack("!HHIH", kind, cache_class, ttl, len(data)) + data


def service_records(name, kind, host, port, ttl=None, text=b"\0"):
    """The records of one service of a type such as "_quillbox._tcp" on a host in .local; `text` is
    the content of its TXT record. With a `ttl` of 0 they are a goodbye."""
    service_type = labels(*kind.split("."), "local")
    instance = labels(name, *kind.split("."), "local")
    other = OTHER_TTL if ttl is None else ttl
    own = HOST_TTL if ttl is None else ttl
    target = struct.pack("!HHH", 0, 0, port) + labels(host, "local")
    return [
        record(service_type, PTR, IN, other, instance),
        record(instance, SRV, FLUSH, own, target),
        record(instance, TXT, FLUSH, other, text),
    ]


def address_record(host, address):
    return record(labels(host, "local"), A, FLUSH, HOST_TTL, socket.inet_aton(address))


def packets(records, limit=1400):
    """Packs the records into packets of at most `limit` bytes."""
    part, size = [], 12
    for one in records:
        if part and size + len(one) > limit:
            yield response(part)
            part, size = [], 12
        part.append(one)
        size += len(one)
    if part:
        yield response(part)


def response(records):
    head = struct.pack("!HHHHHH", 0, AUTHORITATIVE_ANSWER, 0, len(records), 0, 0)
    return head + b"".join(records)


def query(names, kind):
    """A packet that asks for the records of that kind of each of the encoded names."""
    questions = [name + struct.pack("!HH", kind, IN) for name in names]
    return struct.pack("!HHHHHH", 0, 0, len(questions), 0, 0, 0) + b"".join(questions)


def name_at(packet, offset):
    """The labels of a name, and where it ends; follows compression (RFC 1035, section 4.1.4)."""
    parts, end = [], None
    for _ in range(128):
        length = packet[offset]
        if length >= 0xC0:
            end = end or offset + 2
            offset = struct.unpack_from("!H", packet, offset)[0] & 0x3FFF
        elif length == 0:
            return parts, end or offset + 1
        else:
            parts.append(packet[offset + 1 : offset + 1 + length].decode("utf-8", "replace"))
            offset += 1 + length
    raise ValueError("a name without an end")


def asked(packet):
    """The names in the question section of a packet."""
    offset = 12
    for _ in range(struct.unpack_from("!H", packet, 4)[0]):
        name, offset = name_at(packet, offset)
        offset += 4
        yield name


def announced(packet):
    """The PTR and SRV records of a response: (kind, labels of the name, TTL, value). The value is
    the labels of the instance (PTR) or the port (SRV)."""
    _, flags, questions, *counts = struct.unpack_from("!HHHHHH", packet)
    if not flags & 0x8000:
        return
    offset = 12
    for _ in range(questions):
        offset = name_at(packet, offset)[1] + 4
    for _ in range(sum(counts)):
        name, offset = name_at(packet, offset)
        kind, _, ttl, length = struct.unpack_from("!HHIH", packet, offset)
        offset += 10
        if kind == PTR:
            yield kind, name, ttl, name_at(packet, offset)[0]
        elif kind == SRV:
            yield kind, name, ttl, struct.unpack_from("!H", packet, offset + 4)[0]
        offset += length


def open_socket(interface_address):
    """A socket that receives multicast DNS on an interface and sends from the mDNS port."""
    made = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    made.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    made.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEPORT, 1)
    made.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 8 << 20)
    made.bind(("", PORT))
    own = socket.inet_aton(interface_address)
    made.setsockopt(socket.IPPROTO_IP, socket.IP_MULTICAST_IF, own)
    made.setsockopt(socket.IPPROTO_IP, socket.IP_MULTICAST_TTL, 255)
    made.setsockopt(
        socket.IPPROTO_IP, socket.IP_ADD_MEMBERSHIP, socket.inet_aton(GROUP) + own
    )
    return made


def send_as(link, address, packet):
    """Sends a packet to the group from that address, one of the interface's."""
    link.setsockopt(socket.IPPROTO_IP, socket.IP_MULTICAST_IF, socket.inet_aton(address))
    link.sendto(packet, (GROUP, PORT))
