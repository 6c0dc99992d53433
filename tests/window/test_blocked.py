"""A blocked X server does not block the relay: the data path runs on other threads."""

import signal
import time

import pytest
from rig.computer import visible
from rig.ends import BLOB, listen, read_exactly, session
from rig.onlooker import Onlooker
from rig.phone import Phone
from rig.process import limit

pytestmark = pytest.mark.any_user


@pytest.mark.slow
def test_a_screen_that_hangs_for_ten_seconds_holds_up_no_byte(desktop):
    lan = desktop.lan
    onlooker = lan.host("onlooker", of=Onlooker)
    onlooker.watch()
    phone = lan.host("phone", of=Phone)
    phone.listener = listen(phone)
    phone.port = phone.listener.getsockname()[1]
    helper = desktop.helper()
    desktop.window()
    phone.announce()
    helper.wait_status(visible(1))
    port = onlooker.wait("resolved", phone.service_name, 10)["port"]
    standing = session(desktop, port, phone)
    since = helper.mark()

    desktop.server.signal(signal.SIGSTOP)
    hung = time.monotonic()
    try:
        # Adding a row queries the X server, so the user interface blocks until it answers.
        phone.announce("Quillbox Porch")
        while time.monotonic() < hung + 10:
            for browser, other in (standing, session(desktop, port, phone)):
                other.sendall(BLOB[: 1 << 20])
                asked = time.monotonic()
                assert read_exactly(browser, 1 << 20) == BLOB[: 1 << 20]
                assert time.monotonic() - asked < limit(2)
        with pytest.raises(AssertionError, match="printed none"):
            helper.process.wait_line(lambda x: x.text == f"status: {visible(2)}", 0.1, since)
    finally:
        desktop.server.signal(signal.SIGCONT)

    helper.wait_status(visible(2), since=since)
