"""Many phones come and go: nothing stays behind."""

import contextlib
import os
import re

import pytest
from rig.computer import LOOKING, visible
from rig.crowd import Crowd
from rig.network import TYPE_PHONE
from rig.process import SLOWDOWN, limit, wait_until

# What allocators and libraries keep of a crowd that left; a crowd that is not freed is more.
KEPT_KIB = 4000
# Of descriptors the program has fewer than this without any phone.
FEW = 30


@pytest.fixture
def crowd(lan, phone):
    made = Crowd(phone, phone.port)
    yield made
    made.end()


def descriptors(pid):
    return len(os.listdir(f"/proc/{pid}/fd"))


def settled(pid):
    """Its descriptors once those of the phones are closed, which happens beside the status."""
    wait_until(lambda: descriptors(pid) < FEW, limit(10), f"fewer than {FEW} descriptors")
    return FEW


def own_kib(pid):
    with open(f"/proc/{pid}/smaps_rollup", encoding="utf-8") as file:
        return int(re.search(r"^Pss_Anon:\s+(\d+)", file.read(), re.MULTILINE)[1])


def names_of(crowd, count):
    return [f"Quillbox {crowd:03} {number:03}" for number in range(count)]


def come_and_go(crowd, helper, number, count):
    """The names are new ones each time. A computer that is busy for long drops packets for which its
    sockets have no room, and goodbyes are said once: they are said again where some were lost."""
    since = helper.mark()
    crowd.announce(names_of(number, count))
    helper.wait_status(visible(count), 60, since)
    for _ in range(4):
        crowd.announce(names_of(number, count), ttl=0)
        with contextlib.suppress(AssertionError):
            helper.wait_status(LOOKING, 15, since)
            return
    raise AssertionError(f"crowd {number} does not go:\n{helper.process.output()}")


def come_and_go_often(computer, crowd, crowds, count):
    since = crowd.order(**{"await": TYPE_PHONE})
    helper = computer.helper()
    helper.wait_status(LOOKING)
    crowd.wait("asked", since)
    # What is kept in any case has been made by then.
    first = max(2, crowds // 4)
    for number in range(first):
        come_and_go(crowd, helper, number, count)
    pids = computer.helper_processes()
    opened = {pid: settled(pid) for pid in pids}
    kept = {pid: own_kib(pid) for pid in pids}

    for number in range(first, crowds):
        come_and_go(crowd, helper, number, count)

    assert computer.helper_processes() == pids, "an engine had to be started again"
    for pid in pids:
        wait_until(
            lambda pid=pid: descriptors(pid) <= opened[pid], limit(10), f"{opened[pid]} descriptors"
        )
        # AddressSanitizer keeps what was freed, to see who still uses it.
        if SLOWDOWN == 1:
            assert own_kib(pid) <= kept[pid] + KEPT_KIB


def test_nothing_stays_behind_of_phones_that_came_and_went(computer, crowd):
    come_and_go_often(computer, crowd, crowds=4, count=40)


def test_it_ends_within_a_second_with_as_many_relays_as_there_may_be(computer, engine, crowd):
    """Each is withdrawn with a goodbye of its own. avahi-daemon has room for fewer of a program's."""
    count = 256 if engine == "embedded" else 200
    since = crowd.order(**{"await": TYPE_PHONE})
    helper = computer.helper()
    helper.wait_status(LOOKING)
    crowd.wait("asked", since)
    crowd.announce(names_of(0, count))
    helper.wait_status(visible(count), 120)

    code, seconds = helper.stop()

    assert code == 0 and seconds < limit(1)


@pytest.mark.long
def test_nothing_stays_behind_of_ten_thousand_phones(computer, crowd):
    come_and_go_often(computer, crowd, crowds=50, count=200)
