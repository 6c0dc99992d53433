"""A hostile host on the network, which sends any multicast DNS packets at any rate."""

import pytest
from rig import raw_mdns
from rig.computer import visible
from rig.ends import read_exactly, session
from rig.process import SLOWDOWN, limit, wait_until
from rig.raw_mdns import Speaker
from test_automatic import appear

pytestmark = pytest.mark.any_user

HOSTILE_NAMES = [
    b"Quillbox a.b.c",
    b"Quillbox back\\slash",
    b"Quillbox <img src=http://10.77.0.9/x>",
    b"Quillbox line\nfeed\ttab",
    "Quillbox \u202eright to left".encode(),
    b"Quillbox ../../etc/passwd",
    b"Quillbox %n%n%s",
    b"Quillbox " + 54 * b"W",
]
NO_NAMES = [b"Quillbox \xff\xfe no text", b"Quillbox zero\0inside"]


@pytest.fixture
def speaker(lan):
    made = Speaker(lan.host("stranger"))
    yield made
    made.close()


def memory(pid):
    with open(f"/proc/{pid}/status", encoding="ascii") as file:
        (size,) = (int(x.split()[1]) << 10 for x in file if x.startswith("RssAnon:"))
    return size


@pytest.fixture
def phone(service):
    """A phone whose file server is a listening socket of the test."""
    return service("phone")


def standing_session(computer, port, phone):
    """Opens a session through the relay; returns a function that checks that it still works."""
    browser, other = session(computer, port, phone)

    def check():
        for one, far in ((browser, other), (other, browser)):
            one.sendall(b"still here")
            assert read_exactly(far, 10) == b"still here"

    check()
    return check


def test_ten_thousand_phones_that_appear_at_once_are_256_at_most(
    bare_computer, onlooker, phone, speaker
):
    computer = bare_computer
    helper = computer.helper()
    found = appear(phone, helper, onlooker)
    check = standing_session(computer, found["port"], phone)
    before = memory(helper.pid)
    names = [f"Quillbox {number:05}" for number in range(10_000)]

    speaker.say(*raw_mdns.packets(raw_mdns.pointer(x) for x in names))

    helper.wait_message("256", timeout=20)
    check()
    if SLOWDOWN == 1:  # sanitizers keep freed memory in quarantine
        assert memory(helper.pid) - before < 64 << 20
    # Even with 256 goodbyes to send it ends in time.
    code, seconds = helper.stop()
    assert code == 0 and seconds < limit(1)


def test_a_phone_that_a_flood_left_out_appears_when_the_flood_is_gone(
    bare_computer, onlooker, phone, service, speaker
):
    helper = bare_computer.helper()
    appear(phone, helper, onlooker)
    names = [f"Quillbox {number:05}" for number in range(400)]
    speaker.say(*raw_mdns.packets(raw_mdns.pointer(x) for x in names))
    helper.wait_message("256", timeout=20)
    newcomer = service("newcomer")
    newcomer.announce("Quillbox Newcomer")

    def newcomer_found():
        # Said again and again, because a responder misses packets of this flood on a busy computer. Not
        # each second, because that is how long a responder keeps a record after its last goodbye (RFC
        # 6762, section 10.1).
        speaker.say(*raw_mdns.packets(raw_mdns.pointer(x, lifetime=0) for x in names))
        return [x for x in onlooker.events("resolved") if x["name"] == "Quillbox Newcomer"]

    found = wait_until(newcomer_found, limit(60), "the relay of the newcomer", pause=3)
    standing_session(bare_computer, found[0]["port"], newcomer)


def test_hostile_names_are_taken_as_they_are_or_not_at_all(
    computer, engine, onlooker, phone, speaker
):
    helper = computer.helper()
    appear(phone, helper, onlooker)
    since = helper.mark()

    speaker.say(raw_mdns.response(*(raw_mdns.pointer(x) for x in NO_NAMES)))
    speaker.say(raw_mdns.response(*(raw_mdns.pointer(x) for x in HOSTILE_NAMES)))

    # Each has its own relay, advertised under its name.
    helper.wait_status(visible(1 + len(HOSTILE_NAMES)), timeout=20, since=since)
    assert all(x.text.isprintable() for x in helper.process.lines)


def test_garbled_packets_at_full_rate_do_no_harm(
    computer, engine, onlooker, phone, service, speaker
):
    helper = computer.helper()
    found = appear(phone, helper, onlooker)
    check = standing_session(computer, found["port"], phone)
    # The corrupted packets contain more names than the program keeps, so their TTL is short.
    seeds = [
        raw_mdns.response(
            raw_mdns.pointer("Quillbox Garbled", lifetime=4),
            raw_mdns.service("Quillbox Garbled", "garbled.local", 4445),
            raw_mdns.address("garbled.local", "10.77.0.201"),
        ),
        *raw_mdns.packets(raw_mdns.pointer(f"Quillbox {x}", lifetime=4) for x in range(20)),
        b"\0\0\0\0\0\1\0\0\0\0\0\0" + raw_mdns.dotted("_smb._tcp.local") + b"\0\x0c\0\1",
    ]

    count = speaker.babble(2, seeds)

    assert count > 1000
    check()
    newcomer = service("newcomer")
    newcomer.announce("Quillbox Newcomer")
    theirs = onlooker.wait("resolved", "Quillbox Newcomer", limit(20))
    standing_session(computer, theirs["port"], newcomer)
    assert helper.running()
