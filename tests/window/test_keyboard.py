"""The window and the keyboard, with a real window manager, which moves the focus between windows."""

import time

import pytest
from rig.computer import visible
from rig.phone import Phone

pytestmark = pytest.mark.any_user

TYPE_ADMIN = "_quillbox-admin._tcp"


@pytest.fixture
def phone(desktop):
    return desktop.lan.host("phone", of=Phone)


class Focus:
    """The keyboard's focus in the window, as a screen reader follows it."""

    def __init__(self, desktop):
        self.desktop = desktop
        self.events = desktop.listen("object:state-changed:focused")

    def moves(self):
        """The names of the controls that got it."""
        return [event["name"] for event in self.events() if event["detail"][0] == 1]

    def go_to(self, name):
        """Presses Tab until a control has it."""
        for _ in range(20):
            before = len(self.moves())
            if before and self.moves()[-1] == name:
                return
            self.desktop.press("Tab")
            self.desktop.wait(lambda: len(self.moves()) > before, "the next control")
        raise AssertionError(f"Tab never reached {name}: {self.moves()}")


def has_focus(desktop, helper, name):
    return any(
        node.name == name and "focused" in node.states for node in desktop.read(helper).all()
    )


def start(desktop):
    """The program, with the keyboard's focus in its window."""
    helper = desktop.helper()
    window = desktop.window()
    desktop.wait(window.is_active, "the keyboard's focus")
    desktop.read(helper)
    return helper, window, Focus(desktop)


def unfold(desktop, window, focus):
    focus.go_to("Advanced")
    desktop.press("Return")
    wait_height(desktop, window, 520)


def wait_height(desktop, window, height):
    desktop.wait(lambda: window.frame()[3] == height, f"a height of {height}")


def look_elsewhere(desktop, window):
    desktop.open_window(place=(700, 500), size=(300, 300))


def put_away(desktop, window):
    desktop.press("Control_L", "w")
    desktop.wait(lambda: not window.is_mapped(), "a hidden window")


def minimise(desktop, window):
    window.minimise()
    desktop.wait(window.is_minimised, "a minimised window")


@pytest.mark.parametrize("leave", [look_elsewhere, put_away, minimise])
def test_the_focus_stays_with_a_phone_while_the_window_is_left(desktop, phone, leave):
    helper, window, focus = start(desktop)
    phone.announce("Quillbox Office")
    phone.announce("Quillbox Office", type=TYPE_ADMIN)
    wait_height(desktop, window, 382)
    focus.go_to("Manage Quillbox Office")

    leave(desktop, window)
    phone.announce("Quillbox Attic")
    helper.wait_status(visible(2))
    desktop.helper()
    desktop.wait(window.is_active, "the keyboard's focus")

    desktop.wait(lambda: has_focus(desktop, helper, "Manage Quillbox Office"), "the same focus")
    since = helper.mark()
    desktop.press("space")
    time.sleep(0.5)
    assert "not ready: Finder visibility is off" not in helper.statuses(since)


def test_tab_through_the_form_restarts_nothing(desktop):
    helper, window, focus = start(desktop)
    unfold(desktop, window, focus)
    focus.go_to("Find Quillbox automatically")
    desktop.press("space")
    focus.go_to("Phone IP or name")
    for key in "h", "o", "s", "t":
        desktop.press(key)
    since = helper.mark()
    desktop.press("Return")
    ready = "ready: Quillbox is visible in Finder"
    helper.wait_status(ready, since=since)

    since = helper.mark()
    for _ in range(2):
        focus.go_to("Show Quillbox in Finder")
        focus.go_to("SMB port")
    assert helper.statuses(since) == []

    # A change, on the other hand, ends with Tab.
    desktop.press("End")
    desktop.press("BackSpace")
    desktop.press("Tab")
    helper.wait_status(ready, since=since)
