"""Another host opens connections without end: what others have keeps its pace and its descriptors."""

import functools
import os

import pytest
from rig.computer import visible
from rig.ends import read_exactly
from rig.onlooker import PYTHON
from rig.phone import Phone
from rig.process import limit, wait_until

pytestmark = pytest.mark.any_user

RIG = os.path.join(os.path.dirname(os.path.abspath(__file__)), "rig")
NAMES = ("Quillbox Office", "Quillbox Attic")
# From half of the ephemeral ports on, the kernel's search for a free one is slow.
PORTS, COUNT, RATE = 4000, 2600, 1000


@pytest.fixture
def ports(lan, bare_computer, onlooker):
    """The ports of the relays of two phones that send back what they receive."""
    bare_computer.limit_ephemeral_ports(PORTS)
    helper = bare_computer.helper()
    for number, name in enumerate(NAMES):
        phone = lan.host(f"phone{number}", of=Phone)
        server = phone.start([PYTHON, f"{RIG}/echo.py"])
        line = server.wait_line(lambda line: line.text.startswith("port "), 10, what="the echo")
        phone.port = int(line.text.split()[1])
        phone.announce(name)
    helper.wait_status(visible(2))
    return [onlooker.wait("resolved", name, 5)["port"] for name in NAMES]


class Session:
    """A session that makes round trips; they are counted twice a second."""

    def __init__(self, host, address, port):
        self.process = host.start([PYTHON, f"{RIG}/trips.py", address, str(port)])
        self.next_counts(1)

    def counts(self, since):
        """The numbers of round trips in each half of a second from that mark on."""
        return [int(line.text.split()[1]) for line in self.process.lines[since:]]

    def next_counts(self, count):
        since = self.process.mark()
        wait_until(lambda: len(self.counts(since)) >= count, limit(10 + count), "round trips")
        return self.counts(since)


def mean(counts):
    return sum(counts) / len(counts)


@pytest.mark.slow
@pytest.mark.parametrize(
    "how, share",
    [
        pytest.param((), 0.1, id="reset"),
        pytest.param(("data",), 0.1, id="reset after a byte", marks=pytest.mark.long),
        # The phone and the computer have more work with these.
        pytest.param(("end",), 0.02, id="closed", marks=pytest.mark.long),
        pytest.param(("data", "end"), 0.02, id="closed after a byte", marks=pytest.mark.long),
    ],
)
def test_a_storm_of_connections_leaves_other_sessions_their_pace(
    lan, bare_computer, onlooker, ports, how, share
):
    """One session is to the same phone, one to another. During the storm, which takes processor time
    itself, they keep at least that share of their pace, and get it back afterwards. The limits allow
    for other work of the machine; a relay that is held up makes a few round trips a second."""
    address = bare_computer.address4
    stranger = lan.host("stranger")
    sessions = [Session(onlooker, address, port) for port in ports]
    before = [mean(each.next_counts(6)) for each in sessions]
    marks = [each.process.mark() for each in sessions]

    storm = stranger.start([PYTHON, f"{RIG}/storm.py", address, str(ports[0]), str(COUNT), str(RATE), *how])
    line = storm.wait_line(lambda line: line.text.startswith("opened"), limit(120), what="the storm")
    during = [mean(each.counts(mark)) for each, mark in zip(sessions, marks)]

    waiting = bare_computer.run("ss", "-Htn", "state", "time-wait").stdout.splitlines()
    print(line.text, "before", before, "during", during, "ports in TIME-WAIT", len(waiting))
    assert int(line.text.split()[1]) > 0.9 * COUNT, line.text
    assert all(now >= share * then for now, then in zip(during, before)), (before, during)
    if "end" not in how:
        assert len(waiting) < COUNT / 20
    # Other tests may have begun meanwhile, so the pace of before may not be there for anyone.
    for each, then in zip(sessions, map(min, before, during)):
        wait_until(lambda: max(each.next_counts(2)) > 0.5 * then, limit(20), f"{then} again")


def test_a_host_that_takes_all_it_can_leaves_sessions_to_others(lan, make_ends, bare_computer):
    """With 1,000 descriptors, other computers may use 800; a host that is alone has a session as long
    as it has fewer than are left of them, at two for each session."""
    ends = make_ends(helper=functools.partial(bare_computer.manual_helper, open_files=1000))
    stranger, neighbour = lan.host("stranger"), lan.host("neighbour")

    for _ in range(267):
        ends.pair(host=stranger)
    for _ in range(5):
        with pytest.raises(ConnectionResetError):
            ends.browse(stranger).recv(1)
    ends.helper.wait_message("refusing connections of a host that has too many")
    assert ends.sockets() < 600

    for host in (neighbour, bare_computer):
        browser, phone = ends.pair(host=host)
        browser.sendall(b"to the phone")
        assert read_exactly(phone, 12) == b"to the phone"
