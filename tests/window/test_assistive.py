"""What assistive technologies do in the window, over the accessibility bus (AT-SPI)."""

import json
import os

import pytest
from rig.computer import visible
from rig.desktop import HERE as RIG
from rig.phone import Phone
from rig.process import limit

pytestmark = pytest.mark.any_user

TYPE_ADMIN = "_quillbox-admin._tcp"
NO_ADDRESS = "not ready: Enter the local IP address shown in Quillbox"

# Every control, from top to bottom, and what assistive technologies can do with it. The fields also
# have texts, which they can replace.
ACTIONS = {
    "Show Quillbox in Finder": ["Toggle", "SetFocus"],
    "Manage Quillbox Office": ["Press", "SetFocus"],
    "Open web management": ["Press", "SetFocus"],
    "Advanced": ["Press", "SetFocus"],
    "Find Quillbox automatically": ["Toggle", "SetFocus"],
    "Phone IP or name": ["SetFocus"],
    "SMB port": ["SetFocus"],
    "Default share": ["SetFocus"],
    "Username": ["SetFocus"],
    "Restart service": ["Press", "SetFocus"],
    "Open in Finder": ["Press", "SetFocus"],
}


class Reader:
    """A screen reader's user, in front of the window with one phone."""

    def __init__(self, desktop):
        self.desktop = desktop
        self.opened = os.path.join(desktop.folder, "opened")
        opener = os.path.join(desktop.folder, "bin", "xdg-open")
        os.makedirs(os.path.dirname(opener))
        with open(opener, "w", encoding="utf-8") as file:
            file.write(f'#!/bin/sh\necho "$1" >>"{self.opened}"\n')
        os.chmod(opener, 0o755)
        self.files = desktop.start_quickly(f"{RIG}/desk.py", "file-manager")
        path = os.path.dirname(opener) + ":" + desktop.environment()["PATH"]
        self.helper = desktop.helper(PATH=path)
        self.window = desktop.window()
        desktop.wait(self.window.is_active, "the keyboard's focus")
        self.phone = desktop.lan.host("phone", of=Phone)
        self.phone.announce("Quillbox Office")
        self.phone.announce("Quillbox Office", type=TYPE_ADMIN)
        self.helper.wait_status(visible(1))
        desktop.wait(lambda: self.has("Manage Quillbox Office"), "its button")

    def tree(self):
        return self.desktop.read(self.helper)

    def controls(self):
        return {
            node.name: node
            for node in self.tree().all()
            if "focusable" in node.states and "showing" in node.states and node.actions
            if node.role in ("check box", "push button", "text")
        }

    def has(self, name):
        return name in self.controls()

    def states(self, name):
        return self.controls()[name].states

    def act(self, name, action):
        assert self.desktop.act(self.helper, self.controls()[name], action)

    def status_after(self, name, action, status):
        """Performs an action and waits for a status that comes after it."""
        since = self.helper.mark()
        self.act(name, action)
        self.helper.wait_status(status, since=since)

    def pages(self):
        """The pages that the browser was asked to show."""
        if not os.path.exists(self.opened):
            return 0
        with open(self.opened, encoding="utf-8") as file:
            return len(file.readlines())

    def wait_height(self, height):
        self.desktop.wait(lambda: self.window.frame()[3] == height, f"a height of {height}")

    def unfold(self):
        self.act("Advanced", "Press")
        self.wait_height(562)


@pytest.fixture
def reader(desktop):
    return Reader(desktop)


@pytest.mark.slow
def test_every_action_of_every_control_does_what_a_click_or_a_key_does(desktop, reader):
    reader.unfold()
    assert {name: node.actions for name, node in reader.controls().items()} == ACTIONS

    for name in ACTIONS:
        reader.act(name, "SetFocus")
        desktop.wait(lambda: "focused" in reader.states(name), f"the focus on {name}")

    reader.status_after("Show Quillbox in Finder", "Toggle", "not ready: Finder visibility is off")
    assert "checked" not in reader.states("Show Quillbox in Finder")
    reader.status_after("Show Quillbox in Finder", "Toggle", visible(1))
    assert "checked" in reader.states("Show Quillbox in Finder")

    reader.status_after("Find Quillbox automatically", "Toggle", NO_ADDRESS)
    assert "checked" not in reader.states("Find Quillbox automatically")
    reader.status_after("Find Quillbox automatically", "Toggle", visible(1))

    for number, name in enumerate(["Manage Quillbox Office", "Open web management"], start=1):
        reader.act(name, "Press")
        desktop.wait(lambda: reader.pages() == number, f"the page after {name}")

    reader.status_after("Restart service", "Press", visible(1))

    reader.act("Open in Finder", "Press")
    shown = reader.files.wait_line(lambda line: '"folder"' in line.text, limit(20), what="a folder")
    assert json.loads(shown.text)["name"].startswith("smb://nas@")

    reader.act("Advanced", "Press")
    reader.wait_height(382)


def test_what_the_program_checks_is_no_action(reader):
    reader.unfold()
    reader.status_after("Show Quillbox in Finder", "Toggle", "not ready: Finder visibility is off")
    since = reader.helper.mark()

    # It checks "Show Quillbox in Finder" and restarts the relays once.
    reader.status_after("Restart service", "Press", visible(1))

    assert "checked" in reader.states("Show Quillbox in Finder")
    started = [x for x in reader.helper.statuses(since) if x.startswith("not ready: Connecting")]
    assert len(started) == 1


def test_advanced_tells_whether_it_is_expanded(desktop, reader):
    described = desktop.listen("object:property-change:accessible-description")

    def announcements():
        return len([event for event in described() if event["name"] == "Advanced"])

    for number, (height, is_expanded) in enumerate([(562, True), (382, False), (562, True)], 1):
        reader.act("Advanced", "Press")
        reader.wait_height(height)
        fold = reader.controls()["Advanced"]
        assert "expandable" in fold.states
        assert ("expanded" in fold.states) == is_expanded
        shown = "shown" if is_expanded else "hidden"
        assert fold.description == f"The settings of the connection are {shown}"
        desktop.wait(lambda: announcements() == number, "the announcement")


def test_folding_leaves_the_focus_on_the_fold(desktop, reader):
    reader.unfold()
    reader.act("SMB port", "SetFocus")
    desktop.wait(lambda: "focused" in reader.states("SMB port"), "the focus in the form")

    reader.act("Advanced", "Press")

    desktop.wait(lambda: "focused" in reader.states("Advanced"), "the focus on the fold")


def test_the_phones_are_a_list(desktop, reader):
    another = desktop.lan.host("another", of=Phone)
    another.announce("Quillbox Kitchen")
    reader.wait_height(404)

    phones = reader.tree().find("list", "Available Quillbox devices", showing=True)

    assert [(x.role, x.name) for x in phones.children] == [
        ("list item", "Quillbox Kitchen"),
        ("list item", "Quillbox Office"),
    ]
    assert phones.children[1].has("push button", "Manage Quillbox Office")
    assert not phones.children[0].has("push button")

    another.goodbye()
    reader.wait_height(382)
    assert [x.name for x in reader.tree().find("list").children] == ["Quillbox Office"]


def test_the_same_status_is_said_once(desktop, reader):
    reader.unfold()
    said = desktop.listen("object:state-changed:showing")
    text = NO_ADDRESS.removeprefix("not ready: ")

    def times():
        return len([event for event in said() if event["name"] == text])

    reader.status_after("Find Quillbox automatically", "Toggle", NO_ADDRESS)
    for _ in range(3):
        reader.status_after("Restart service", "Press", NO_ADDRESS)
    reader.status_after("Find Quillbox automatically", "Toggle", visible(1))
    desktop.wait(lambda: [e for e in said() if "visible in Finder" in (e["name"] or "")], "the end")
    assert times() == 1

    reader.status_after("Find Quillbox automatically", "Toggle", NO_ADDRESS)
    desktop.wait(lambda: times() == 2, "the next announcement")
