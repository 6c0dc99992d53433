"""--verbose logs what happens to a phone and a session; without it only the status is printed."""

import re

from rig.computer import LOOKING, visible
from rig.ends import read_exactly, session
from rig.process import limit
from test_automatic import appear

LINE = re.compile(r"\[ *\d+\.\d{3}\] (discovery|engine|advertising|relay|connection|desktop): (.*)")
DURATION = r"(\d+ ms|\d+\.\d s)"
NAME = '"Quillbox Office"'


def one_phone_and_one_session(computer, onlooker, phone, *arguments):
    """A phone appears and leaves, with a session in between that the file browser closes; returns
    the lines of output."""
    helper = computer.helper(*arguments)
    helper.wait_status(LOOKING)
    found = appear(phone, helper, onlooker)
    browser, other = session(computer, found["port"], phone)
    browser.sendall(b"question")
    assert read_exactly(other, 8) == b"question"
    other.sendall(b"answers")
    assert read_exactly(browser, 7) == b"answers"
    browser.close()
    assert other.recv(1) == b""
    other.close()
    since = helper.mark()
    phone.goodbye()
    helper.wait_status(LOOKING, since=since)
    onlooker.wait("removed", phone.service_name, limit(5))
    code, _ = helper.stop()
    assert code == 0
    return [x.text for x in helper.process.lines]


def story_of(lines):
    """Category and text of the lines that are not status reports."""
    told = [x for x in lines if not x.startswith("status: ")]
    matches = [LINE.fullmatch(x) for x in told]
    return [x.groups() for x in matches if x]


def check_order(story, *expected):
    """Asserts that the expected lines occur, in this order."""
    rest = iter(story)
    for category, pattern in expected:
        assert any(
            each == category and re.fullmatch(pattern, text) for each, text in rest
        ), f"{category}: {pattern}, in:\n" + "\n".join(": ".join(x) for x in story)


def test_the_story_of_a_phone_and_a_session_is_told_to_its_end(
    computer, engine, onlooker, service
):
    phone = service("phone")
    lines = one_phone_and_one_session(computer, onlooker, phone, "--verbose")

    story = story_of(lines)
    name = "avahi-daemon" if engine == "daemon" else "the embedded engine"
    check_order(
        story,
        ("engine", f"{name} is starting"),
        ("engine", f"{name} is up, after {DURATION}"),
        ("discovery", f"_quillbox\\._tcp: {NAME} has appeared"),
        ("relay", f"{NAME}: starting"),
        ("advertising", f"{NAME} is being registered"),
        ("advertising", f"{NAME} is advertised, after {DURATION}"),
        ("relay", f"{NAME}: visible after {DURATION}"),
        ("connection", f"session 1 of {NAME}: the file manager has connected"),
        ("connection", f"session 1 of {NAME}: connecting to the phone"),
        ("connection", f"session 1 of {NAME}: connected to the phone after {DURATION}"),
        (
            "connection",
            f"session 1 of {NAME}: ended after {DURATION}: the file manager closed the connection; "
            "8 bytes to the phone, 7 bytes from the phone",
        ),
        ("discovery", f"_quillbox\\._tcp: {NAME} has disappeared after {DURATION}"),
        ("relay", f"{NAME}: stopping after {DURATION}; sessions: 0"),
        ("engine", f"{name} is stopping"),
    )
    assert not any(re.search(r"\d+\.\d+\.\d+\.\d+|fd77:|fe80:|\.local", text) for _, text in story)


def test_a_category_can_be_had_alone(bare_computer, onlooker, service):
    phone = service("phone")
    lines = one_phone_and_one_session(bare_computer, onlooker, phone, "--verbose=relay")

    assert [category for category, _ in story_of(lines)] == ["relay"] * 3


def test_nothing_but_the_status_is_told_unasked(bare_computer, onlooker, service):
    phone = service("phone")
    # As an option it would be told that it is kept; another engine tells that there is no daemon.
    bare_computer.write_settings({"dnsSd": "embedded"})
    lines = one_phone_and_one_session(bare_computer, onlooker, phone)

    assert [x for x in lines if "no display" not in x] == [
        f"status: {x}"
        for x in (
            LOOKING,
            "not ready: Connecting 1 Quillbox device…",
            visible(1),
            LOOKING,
        )
    ]
