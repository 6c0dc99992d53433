"""Faults of the phone: it is silent, vanishes, refuses, moves, or there are two with one name."""

import contextlib
import os
import time

import pytest
from rig.computer import LOOKING, visible
from rig.ends import BLOB, listen, read_exactly, read_to_end, reset, session
from rig.onlooker import PYTHON
from rig.phone import Phone
from rig.process import limit, wait_until

pytestmark = pytest.mark.any_user


@pytest.fixture
def silent(make_ends):
    """A relay to a phone whose packets to the computer are dropped."""
    ends = make_ends()
    ends.phone.run("ip", "route", "add", "blackhole", ends.computer.address4)
    return ends


def let_answer(ends):
    ends.phone.run("ip", "route", "del", "blackhole", ends.computer.address4)


def test_a_phone_that_does_not_answer_is_waited_for_and_gets_every_byte(silent):
    browser = silent.browse()
    browser.sendall(b"hello?")

    let_answer(silent)

    phone = silent.answer()
    assert read_exactly(phone, 6) == b"hello?"
    phone.sendall(b"here")
    assert read_exactly(browser, 4) == b"here"


def test_browsers_that_reset_while_the_phone_is_silent_leave_nothing_behind(silent):
    before = silent.sockets()
    browsers = [silent.browse() for _ in range(20)]
    for browser in browsers:
        browser.sendall(b"negotiate")
    wait_until(lambda: silent.sockets() >= before + 20, limit(5), "20 waiting sessions")

    for browser in browsers:
        reset(browser)

    silent.wait_sockets(before, 1)


@pytest.mark.long
def test_browsers_that_close_while_the_phone_is_silent_are_found_by_keep_alive(silent):
    before = silent.sockets()
    browsers = [silent.browse() for _ in range(20)]
    for browser in browsers:
        browser.sendall(b"negotiate")
        browser.close()

    silent.wait_sockets(before, 135)


def test_sessions_that_wait_cost_no_time(silent):
    browsers = [silent.browse() for _ in range(50)]
    for browser in browsers:
        browser.sendall(b"negotiate")  # unread bytes could make the event loop spin
    before = silent.processor_seconds()

    time.sleep(3)  # processor time is measured over this time

    assert silent.processor_seconds() - before < 0.15 * limit(1)


def test_a_phone_that_refuses_ends_the_session_and_no_other(make_ends):
    ends = make_ends()
    standing = ends.pair()
    ends.listener.close()

    refused = ends.browse()

    assert read_to_end(refused) == b""
    standing[0].sendall(b"still here")
    assert read_exactly(standing[1], 10) == b"still here"




@pytest.mark.slow
def test_a_phone_that_vanishes_in_a_transfer_is_dropped_and_the_others_go_on(
    lan, computer, onlooker, service
):
    helper = computer.helper()
    gone, staying = service("phone"), service("other")
    gone.announce("Quillbox Office", host_ttl=10, other_ttl=4500)
    staying.announce("Quillbox Kitchen")
    helper.wait_status(visible(2))
    pairs = [
        session(computer, onlooker.wait("resolved", x.service_name, 5)["port"], x)
        for x in (gone, staying)
    ]
    for browser, phone in pairs:
        browser.sendall(BLOB[:1000])
        assert read_exactly(phone, 1000) == BLOB[:1000]
    since = helper.mark()

    lan.cut(gone)
    pairs[0][0].sendall(BLOB[:1000])  # nobody acknowledges this

    helper.wait_status(visible(1), timeout=25, since=since)
    assert read_to_end(pairs[0][0]) == b""
    browser, phone = pairs[1]
    phone.sendall(BLOB[: 1 << 20])
    assert read_exactly(browser, 1 << 20) == BLOB[: 1 << 20]


def test_a_phone_that_moves_without_a_word_keeps_its_relay(computer, engine, onlooker, service):
    """New address and port under the same name: open sessions stay open, new ones go there."""
    helper = computer.helper()
    phone = service("phone")
    phone.announce()
    helper.wait_status(visible(1))
    port = onlooker.wait("resolved", phone.service_name, 5)["port"]
    old_browser, old_phone = session(computer, port, phone)
    since = helper.mark()

    phone.run("ip", "addr", "add", "10.77.0.99/24", "dev", "eth0")
    phone.listener = listen(phone, address="10.77.0.99")
    phone.port = phone.listener.getsockname()[1]
    phone.change(addresses=["10.77.0.99"])

    def moved():
        # Until the program has seen the change, sessions go to the old port, which is closed.
        browser = computer.socket()
        browser.settimeout(limit(20))
        browser.connect((computer.address4, port))
        phone.listener.settimeout(0.5)
        with contextlib.suppress(TimeoutError):
            other, _ = phone.listener.accept()
            return browser, other
        browser.close()
        return None

    browser, other = wait_until(moved, limit(10), "a session at the new address")
    assert other.getsockname()[0] == "10.77.0.99"
    old_browser.sendall(b"still here")
    old_phone.settimeout(limit(10))
    assert read_exactly(old_phone, 10) == b"still here"
    assert set(helper.statuses(since)) <= {visible(1)}


def test_records_with_another_lifetime_change_nothing(computer, engine, onlooker, service):
    helper = computer.helper()
    phone = service("phone")
    phone.announce(host_ttl=120)
    helper.wait_status(visible(1))
    port = onlooker.wait("resolved", phone.service_name, 5)["port"]
    browser, other = session(computer, port, phone)
    since, seen = helper.mark(), onlooker.mark()

    for lifetime in (10, 3600, 20):
        phone.change(host_ttl=lifetime, other_ttl=lifetime)
    # A phone announced after the changes is found after them.
    later = service("later")
    later.announce("Quillbox Later")

    helper.wait_status(visible(2), since=since)
    assert visible(0) not in helper.statuses(since) and LOOKING not in helper.statuses(since)
    assert onlooker.events("removed", seen) == []
    browser.sendall(b"still here")
    assert read_exactly(other, 10) == b"still here"


def test_a_phone_with_nothing_but_ipv6_is_reached(computer, onlooker, lan):
    helper = computer.helper()
    phone = lan.host("phone", of=Phone)
    greeter = phone.start([PYTHON, f"{os.path.dirname(__file__)}/rig/greeter.py"])
    phone.port = int(greeter.wait_line(lambda x: x.text.startswith("port "), 10).text.split()[1])
    phone.announce(addresses=[phone.address6])
    helper.wait_status(visible(1))
    port = onlooker.wait("resolved", phone.service_name, 5)["port"]

    browser = computer.socket()
    browser.settimeout(limit(10))
    browser.connect((computer.address4, port))

    assert read_to_end(browser) == b"hello\n"


def test_two_phones_of_one_name_are_one_entry_that_leads_to_either(
    lan, computer, engine, onlooker, service
):
    """When two separate halves of a network are joined, each may have a phone with this name."""
    first, second = service("phone"), service("other")
    lan.cut(second)
    first.announce("Quillbox Office")
    second.announce("Quillbox Office", host="other")
    helper = computer.helper()
    helper.wait_status(visible(1))
    found = onlooker.wait("resolved", "Quillbox Office", 5)

    lan.mend(second)
    second.change(host="other")

    browser = computer.socket()
    browser.settimeout(limit(10))
    browser.connect((computer.address4, found["port"]))

    def taken():
        for phone in (first, second):
            phone.listener.settimeout(0.1)
            with contextlib.suppress(TimeoutError):
                return phone.listener.accept()[0]
        return None

    phone = wait_until(taken, limit(10), "one of the two")
    phone.sendall(b"hello")
    assert read_exactly(browser, 5) == b"hello"
    assert visible(2) not in helper.statuses()
    assert {x["name"] for x in onlooker.events("added")} == {"Quillbox Office"}
