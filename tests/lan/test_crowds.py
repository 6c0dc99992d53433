"""Many phones come and go without leaking memory or file descriptors."""

import contextlib
import os
import re

import pytest
from rig.computer import LOOKING, visible
from rig.crowd import Crowd
from rig.network import TYPE_PHONE
from rig.process import SLOWDOWN, limit, wait_until

pytestmark = pytest.mark.any_user

# How much memory allocators and libraries may keep after a crowd has left. A leaked crowd is more.
KEPT_KIB = 4000
# Without any phone the program has fewer file descriptors open than this.
FEW = 30


@pytest.fixture
def crowd(lan, phone):
    made = Crowd(phone, phone.port)
    yield made
    made.end()


def descriptors(pid):
    return len(os.listdir(f"/proc/{pid}/fd"))


def settled(pid):
    """Waits until the phones' file descriptors are closed, which may be after the status report."""
    wait_until(lambda: descriptors(pid) < FEW, limit(10), f"fewer than {FEW} descriptors")
    return FEW


def own_kib(pid):
    with open(f"/proc/{pid}/smaps_rollup", encoding="utf-8") as file:
        return int(re.search(r"^Pss_Anon:\s+(\d+)", file.read(), re.MULTILINE)[1])


def names_of(crowd, count):
    return [f"Quillbox {crowd:03} {number:03}" for number in range(count)]


def come_and_go(crowd, helper, number, count):
    """Announces and withdraws `count` phones with new names. Repeats the goodbyes if needed, as a
    busy computer may drop packets when its socket buffers are full."""
    since = helper.mark()
    crowd.announce(names_of(number, count))
    helper.wait_status(visible(count), 60, since)
    for _ in range(4):
        crowd.announce(names_of(number, count), ttl=0)
        with contextlib.suppress(AssertionError):
            helper.wait_status(LOOKING, 15, since)
            return
    raise AssertionError(f"crowd {number} is still visible:\n{helper.process.output()}")


def come_and_go_often(computer, crowd, crowds, count):
    since = crowd.order(**{"await": TYPE_PHONE})
    helper = computer.helper()
    helper.wait_status(LOOKING)
    crowd.wait("asked", since)
    # The first crowds fill caches and pools, which are kept.
    first = max(2, crowds // 4)
    for number in range(first):
        come_and_go(crowd, helper, number, count)
    pids = computer.helper_processes()
    opened = {pid: settled(pid) for pid in pids}
    kept = {pid: own_kib(pid) for pid in pids}

    for number in range(first, crowds):
        come_and_go(crowd, helper, number, count)

    assert computer.helper_processes() == pids, "the engine was restarted"
    for pid in pids:
        wait_until(
            lambda pid=pid: descriptors(pid) <= opened[pid], limit(10), f"{opened[pid]} descriptors"
        )
        # AddressSanitizer keeps freed memory in quarantine to detect uses after free.
        if SLOWDOWN == 1:
            assert own_kib(pid) <= kept[pid] + KEPT_KIB


@pytest.mark.slow
def test_nothing_stays_behind_of_phones_that_came_and_went(computer, engine, crowd):
    come_and_go_often(computer, crowd, crowds=4, count=40)


@pytest.mark.slow
def test_it_ends_within_a_second_with_as_many_relays_as_there_may_be(computer, engine, crowd):
    """Each is withdrawn with a goodbye. avahi-daemon allows a client fewer registrations."""
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
