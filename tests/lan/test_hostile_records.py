"""Unusual and invalid DNS-SD records, from a phone or from a hostile host."""

import time
import unicodedata

import pytest
from rig import raw_mdns
from rig.computer import visible
from rig.ends import session
from rig.process import SLOWDOWN, limit
from rig.raw_mdns import Speaker
from test_automatic import appear
from test_hostile import memory, standing_session

pytestmark = pytest.mark.any_user

TXT = 16


@pytest.fixture
def speaker(lan):
    made = Speaker(lan.host("stranger"))
    yield made
    made.close()


@pytest.fixture
def phone(service):
    """A phone whose file server is a listening socket of the test."""
    return service("phone")


def test_a_name_in_either_normal_form_is_one_phone_that_is_reached(
    computer, engine, onlooker, service
):
    """"Café" has a composed and a decomposed form in Unicode; phones may announce either."""
    helper = computer.helper()
    name = "Quillbox Café Überfahrt"
    for count, form in enumerate(("NFC", "NFD")):
        phone = service(f"phone{count}")
        since, seen = helper.mark(), onlooker.mark()
        phone.announce(unicodedata.normalize(form, name))
        helper.wait_status(visible(1), since=since)
        found = onlooker.wait("resolved", unicodedata.normalize(form, name), 10, since=seen)
        browser, other = session(computer, found["port"], phone)
        browser.close()
        other.close()
        since = helper.mark()
        phone.goodbye()
        helper.process.wait_line(lambda line: "Looking" in line.text, limit(5), since)


def txt_record(instance, data):
    whole = raw_mdns.labels(instance, *raw_mdns.TYPE_PHONE.split("."), "local")
    return raw_mdns.record(whole, TXT, 4500, data, True)


TXT_EXTREMES = {
    "no data at all": b"",
    "one empty string": b"\0",
    "a hundred empty strings": bytes(100),
    "nothing but equals signs": b"\1=" * 50,
    "a key again and again": b"\3a=1" * 100,
    "binary": b"\xff" + bytes(range(255)),
    "the longest strings": (b"\xff" + b"k=" + 253 * b"v") * 5,
    "a length beyond the end": b"\xffshort",
    "a length beyond the end behind a string": b"\3a=1\x20b=2",
}


def test_whatever_the_txt_record_holds_the_phone_is_advertised(
    computer, engine, onlooker, phone, speaker
):
    helper = computer.helper()
    appear(phone, helper, onlooker)

    for what, data in TXT_EXTREMES.items():
        name, host = f"Quillbox with {what}", "hand.local"
        speaker.say(
            raw_mdns.response(raw_mdns.pointer(name), txt_record(name, data)),
            raw_mdns.response(
                raw_mdns.service(name, host, phone.port),
                raw_mdns.address(host, phone.address4),
            ),
        )

    helper.wait_status(visible(1 + len(TXT_EXTREMES)), timeout=20)
    for what in TXT_EXTREMES:
        found = onlooker.wait("resolved", f"Quillbox with {what}", 10)
        session(computer, found["port"], phone)
        assert found["txt"] <= 1, "the phone's TXT record was passed on"


def test_a_txt_record_of_64_kibibytes_is_no_harm(computer, onlooker, phone, speaker):
    """No UDP packet is that long: some are truncated but claim the full length, others contain as
    much as fits."""
    helper = computer.helper()
    found = appear(phone, helper, onlooker)
    check = standing_session(computer, found["port"], phone)
    strings = (b"\xff" + 255 * b"x") * 256
    whole = raw_mdns.labels("Quillbox Office", *raw_mdns.TYPE_PHONE.split("."), "local")
    claim = whole + b"\0\x10\x80\1\0\0\x11\x94\xff\xff" + strings

    speaker.say(*(raw_mdns.response()[:6] + b"\0\1" + bytes(4) + claim[:8000] for _ in range(50)))
    speaker.say(
        *(
            raw_mdns.response(txt_record(f"Quillbox {x}", strings[:8192]), raw_mdns.pointer(f"Quillbox {x}"))
            for x in range(10)
        )
    )

    helper.wait_status(visible(11), timeout=20)
    check()


@pytest.mark.slow
def test_five_thousand_names_beside_the_daemon_leave_a_phone_that_stands_alone(
    bare_computer, onlooker, phone, speaker
):
    """avahi-daemon caches at most 4096 records, so it cannot add a phone that is announced after
    the flood. A phone that was there before must stay, although its records expire and are queried
    again."""
    computer = bare_computer
    computer.prepare("daemon")
    helper = computer.helper()
    phone.announce(host_ttl=10)
    helper.wait_status(visible(1))
    found = onlooker.wait("resolved", phone.service_name, 5)
    check = standing_session(computer, found["port"], phone)
    before = memory(helper.pid)
    seen = onlooker.mark()
    names = [f"Quillbox {number:05}" for number in range(5000)]

    speaker.say(*raw_mdns.packets(raw_mdns.pointer(x) for x in names))

    helper.wait_message("256", timeout=30)
    # Longer than the TTL of its records. Nothing must happen, so there is no event to wait for.
    time.sleep(15)
    check()
    session(computer, found["port"], phone)
    if SLOWDOWN == 1:  # sanitizers keep freed memory in quarantine
        assert memory(helper.pid) - before < 64 << 20
    assert "Quillbox Office" not in {x["name"] for x in onlooker.events("removed", seen)}
    code, seconds = helper.stop()
    assert code == 0 and seconds < limit(1)
