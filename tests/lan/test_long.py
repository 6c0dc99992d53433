"""Tests that take minutes, as they wait for TTLs and timeouts of the real protocols."""

import time

import pytest
from rig.computer import LOOKING, visible
from rig.process import limit
from test_automatic import appear

pytestmark = pytest.mark.long


def test_an_idle_session_ends_within_two_minutes_of_its_phone_falling_silent(
    lan, computer, onlooker, phone
):
    helper = computer.helper()
    found = appear(phone, helper, onlooker)
    client = computer.start(
        ["bash", "-c"]
        + [f"exec 3<>/dev/tcp/{computer.address4}/{found['port']}; echo connected; cat <&3; echo end"]
    )
    client.wait_line(lambda line: line.text == "connected", 10)
    phone.smbd.wait_line(lambda line: "Registered MSG_REQ_POOL_USAGE" in line.text, 10)

    lan.cut(phone)
    start = time.monotonic()

    ended = client.wait_line(lambda line: line.text == "end", limit(130))
    assert ended.at - start < limit(125)
    assert helper.running()


def test_a_session_with_unacknowledged_bytes_ends_within_two_minutes_of_its_phone_falling_silent(
    lan, ends
):
    """Keep-alive does not look after these, and by itself the kernel repeats them for 15 minutes."""
    browser, _ = ends.pair()
    browser.settimeout(limit(130))
    lan.cut(ends.phone)
    start = time.monotonic()

    browser.sendall(b"is anybody there?")

    assert browser.recv(1) == b""
    assert 60 < time.monotonic() - start < limit(125)


def test_a_phone_with_the_usual_lifetimes_is_gone_after_its_host_records(
    lan, computer, onlooker, phone
):
    helper = computer.helper()
    appear(phone, helper, onlooker)
    since = helper.mark()

    lan.cut(phone)

    helper.wait_status(LOOKING, timeout=140, since=since)
    onlooker.wait("removed", "Quillbox Office", 5)


def test_five_minutes_of_quiet_change_nothing(computer, onlooker, phone):
    helper = computer.helper()
    appear(phone, helper, onlooker)
    since, seen = helper.mark(), onlooker.mark()

    with pytest.raises(AssertionError, match="printed none within 300 s"):
        helper.process.wait_line(lambda line: line.text != f"status: {visible(1)}", 300, since)

    assert onlooker.events("removed", seen) == []
