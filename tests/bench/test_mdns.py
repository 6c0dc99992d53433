"""Encoding and decoding of raw multicast DNS packets."""

import mdns
import pytest


def test_services_come_back_out_of_their_packets():
    records = []
    names = [f"Printer. {number}" for number in range(100)]
    for name in names:
        records += mdns.service_records(name, "_quillbox._tcp", "phone", 4000)
    made = list(mdns.packets(records))
    assert len(made) > 1 and max(map(len, made)) <= 1400
    found = [record for packet in made for record in mdns.announced(packet)]
    kind = ["_quillbox", "_tcp", "local"]
    assert [x[3] for x in found if x[0] == mdns.PTR] == [[name, *kind] for name in names]
    assert [x[1:] for x in found if x[0] == mdns.SRV] == [([n, *kind], 120, 4000) for n in names]


def test_a_goodbye_has_no_lifetime():
    packet = mdns.response(mdns.service_records("a", "_smb._tcp", "h", 1, ttl=0))
    assert [record[2] for record in mdns.announced(packet)] == [0, 0]


def test_compressed_names_are_followed():
    packet = b"\0" * 12 + mdns.labels("tcp", "local") + b"\x03smb\xc0\x0c" + b"rest"
    assert mdns.name_at(packet, 23) == (["smb", "tcp", "local"], 29)


def test_a_name_that_points_to_itself_is_refused():
    with pytest.raises(ValueError):
        mdns.name_at(b"\0" * 12 + b"\xc0\x0c", 12)


def test_questions_are_told_and_announce_nothing():
    kinds = [["_smb", "_tcp", "local"], ["_ipp", "_tcp", "local"]]
    packet = mdns.query([mdns.labels(*kind) for kind in kinds], mdns.PTR)
    assert list(mdns.asked(packet)) == kinds
    assert list(mdns.announced(packet)) == []
