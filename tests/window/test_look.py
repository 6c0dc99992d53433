"""The look of the window, from outside: its frame, its colours, its accessibility tree."""

import os

import pytest
from rig.phone import Phone

pytestmark = pytest.mark.any_user

SURFACE = (0xF7, 0xF9, 0xFC)
BORDER = (0xD8, 0xDE, 0xE7)
TYPE_ADMIN = "_quillbox-admin._tcp"


def executable(path, flags):
    return os.open(path, flags, mode=0o755)


@pytest.fixture
def phone(desktop):
    """A host on the network that can announce phones; none is announced yet."""
    return desktop.lan.host("phone", of=Phone)


def wait_frame(desktop, window, height, width=440):
    """Waits for a frame of that size; returns it."""

    def reached():
        frame = window.frame()
        return frame if frame[2:] == (width, height) else None

    return desktop.wait(reached, f"a frame of {width} x {height}")


def click(desktop, helper, role, name):
    """Clicks the centre of the element with that role and name, with the first button."""
    desktop.click(*desktop.read(helper).find(role, name, showing=True).centre())


def is_scrolling(desktop, helper):
    return desktop.read(helper).has("scroll bar", showing=True)


def test_the_frame_starts_around_the_content_and_takes_its_size_with_the_first_change(desktop):
    helper = desktop.helper()
    window = desktop.window()
    assert window.content()[2:] == (440, 340)

    click(desktop, helper, "push button", "Advanced")
    wait_frame(desktop, window, 520)
    click(desktop, helper, "push button", "Advanced")
    wait_frame(desktop, window, 340)


def test_each_phone_adds_a_step_and_the_top_left_corner_stays(desktop, phone):
    helper = desktop.helper()
    window = desktop.window()
    place = window.frame()[:2]

    for name, height in (("Quillbox Office", 382), ("Quillbox Kitchen", 404)):
        phone.announce(name)
        frame = wait_frame(desktop, window, height)
        assert frame[:2] == place
        assert not is_scrolling(desktop, helper)
    names = [node.name for node in desktop.read(helper).having("label", showing=True)]
    assert [name for name in names if name.startswith("Quillbox ") and name != "Quillbox Helper"] == [
        "Quillbox Kitchen",
        "Quillbox Office",
    ]


def test_when_all_phones_vanish_the_window_is_as_it_was(desktop, phone):
    helper = desktop.helper()
    window = desktop.window()
    phone.announce("Quillbox Office")
    wait_frame(desktop, window, 382)

    phone.goodbye()

    wait_frame(desktop, window, 340)
    assert not desktop.read(helper).has("label", "Quillbox Office", showing=True)
    assert not desktop.read(helper).has("label", "AVAILABLE QUILLBOX DEVICES", showing=True)
    assert not is_scrolling(desktop, helper)


def test_the_form_unfolds_and_folds_by_clicks_with_its_corner_where_it_is(desktop, phone):
    helper = desktop.helper()
    window = desktop.window()
    phone.announce("Quillbox Office")
    place = wait_frame(desktop, window, 382)[:2]
    assert not desktop.read(helper).has("text", "SMB port", showing=True)

    click(desktop, helper, "push button", "Advanced")
    assert wait_frame(desktop, window, 562)[:2] == place
    assert desktop.read(helper).has("text", "SMB port", showing=True)

    click(desktop, helper, "push button", "Advanced")
    assert wait_frame(desktop, window, 382)[:2] == place
    assert not desktop.read(helper).has("text", "SMB port", showing=True)


def test_the_frame_grows_to_700_and_then_the_content_scrolls(desktop, phone):
    helper = desktop.helper()
    window = desktop.window()
    desktop.wait(window.is_active, "the keyboard's focus")
    for number in range(10):
        phone.announce(f"Quillbox {number}")
    wait_frame(desktop, window, 580)
    assert not is_scrolling(desktop, helper)

    click(desktop, helper, "push button", "Advanced")

    wait_frame(desktop, window, 700)
    desktop.wait(lambda: is_scrolling(desktop, helper), "a scroll bar")
    for _ in range(7):
        desktop.press("Tab")
    x, y, width, height = window.content()

    def last_button():
        button = desktop.read(helper).find("push button", "Open in Finder")
        left, top, across, down = button.place
        inside = left >= x and top >= y and left + across <= x + width and top + down <= y + height
        return button if "focused" in button.states and inside else None

    desktop.wait(last_button, "the last button, scrolled to")


def test_unfolding_shows_the_whole_form_and_moves_nothing_above_it(desktop, phone):
    helper = desktop.helper()
    window = desktop.window()
    phone.announce("Quillbox Office")
    wait_frame(desktop, window, 382)
    before = desktop.read(helper).find("push button", "Advanced").place

    click(desktop, helper, "push button", "Advanced")
    wait_frame(desktop, window, 562)

    assert not is_scrolling(desktop, helper)
    assert desktop.read(helper).find("push button", "Advanced").place == before
    x, y, width, height = window.content()
    footnote = next(
        node
        for node in desktop.read(helper).having("label", showing=True)
        if node.name.startswith("No telemetry")
    )
    left, top, across, down = footnote.place
    assert top + down < y + height
    assert abs((left - x) - (x + width - left - across)) <= 1, "equal margins"

    def is_closed():
        """The lower edge of the card, with round corners, is in the window."""
        picture = desktop.picture()
        column = [picture.pixel(x + width // 2, row) for row in range(top - 20, top)]
        corner = [picture.pixel(left, row) for row in range(top - 14, top)]
        return BORDER in column and BORDER not in corner

    desktop.wait(is_closed, "the end of the card")


def test_at_twice_the_scale_the_frame_is_twice_as_large(desktop, phone):
    helper = desktop.helper(QT_SCALE_FACTOR="2")
    window = desktop.window()
    phone.announce("Quillbox Office")

    def has_its_size():
        # The toolkit rounds each side of the decoration, one pixel here, to whole logical pixels.
        width, height = window.frame()[2:]
        return 2 * 440 - 2 <= width <= 2 * 440 and 2 * 382 - 2 <= height <= 2 * 382

    desktop.wait(has_its_size, "the size of the frame")
    assert not is_scrolling(desktop, helper)


def test_without_decorations_the_content_is_the_frame(make_desktop):
    desktop = make_desktop(manager=False)
    phone = desktop.lan.host("phone", of=Phone)
    desktop.helper()

    def window_of(width, height):
        for each in desktop.screen.windows_within():
            window = desktop.screen.client(each)
            if window.program() == "quillbox-helper" and window.content()[2:] == (width, height):
                return window
        return None

    desktop.wait(lambda: window_of(440, 340), "the window")
    phone.announce("Quillbox Office")
    desktop.wait(lambda: window_of(440, 382), "the window with a phone")


def test_a_manage_button_comes_with_the_web_service_and_says_whose_it_is(desktop, phone):
    helper = desktop.helper()
    window = desktop.window()
    phone.announce("Quillbox Office")
    phone.announce("Quillbox Kitchen")
    wait_frame(desktop, window, 404)
    assert not desktop.read(helper).having("push button", "Manage Quillbox Office")

    phone.announce("Quillbox Office", type=TYPE_ADMIN)

    desktop.wait(
        lambda: desktop.read(helper).has("push button", "Manage Quillbox Office", showing=True),
        "its button",
    )
    assert not desktop.read(helper).has("push button", "Manage Quillbox Kitchen")
    assert window.frame()[2:] == (440, 404)


def test_a_click_survives_a_phone_that_appears_in_the_middle_of_it(desktop, phone):
    opener = os.path.join(desktop.folder, "bin", "xdg-open")
    os.makedirs(os.path.dirname(opener))
    opened = os.path.join(desktop.folder, "opened")
    with open(opener, "w", encoding="utf-8", opener=executable) as file:
        file.write(f'#!/bin/sh\necho "$1" >>"{opened}"\n')
    path = os.path.dirname(opener) + ":" + desktop.environment()["PATH"]
    helper = desktop.helper(PATH=path)
    window = desktop.window()
    phone.announce("Quillbox Office")
    phone.announce("Quillbox Office", type=TYPE_ADMIN)
    wait_frame(desktop, window, 382)
    name = "Manage Quillbox Office"
    button = desktop.wait(
        lambda: desktop.read(helper).having("push button", name, showing=True), "its button"
    )[0]

    desktop.screen.hold(*button.centre())
    phone.announce("Quillbox Porch")
    wait_frame(desktop, window, 404)
    desktop.screen.let_go()

    desktop.wait(lambda: os.path.exists(opened), "the page of the phone")
    with open(opened, encoding="utf-8") as file:
        assert file.read() == f"https://{phone.address4}:4445/\n"


def test_a_hostile_name_stays_on_its_line_and_inside_the_window(desktop, phone):
    helper = desktop.helper()
    window = desktop.window()
    phone.announce("Quillbox <b>&A</b>\u202e" + "W" * 30)
    wait_frame(desktop, window, 382)

    label = desktop.read(helper).find("label", "Quillbox <b>&A</b>\ufffd" + "W" * 30, showing=True)

    x, y, width, height = label.place
    left, top, across, down = window.content()
    assert height <= 20
    assert x + width < left + across


def test_a_new_status_is_said(desktop):
    helper = desktop.helper()
    window = desktop.window()
    desktop.wait(window.is_active, "the keyboard's focus")
    desktop.read(helper)
    shown = desktop.listen("object:state-changed:showing")

    click(desktop, helper, "check box", "Show Quillbox in Finder")

    said = desktop.wait(
        lambda: [x for x in shown() if x["name"] == "Finder visibility is off"], "the announcement"
    )
    assert said[0]["detail"][0] == 1
    notice = desktop.read(helper).find("notification", "Finder visibility is off", showing=True)
    assert (notice.parent.role, notice.parent.name) == ("status bar", "Status")


def test_every_control_is_known_by_name_to_a_screen_reader(desktop, phone):
    helper = desktop.helper()
    window = desktop.window()
    phone.announce("Quillbox Office")
    phone.announce("Quillbox Office", type=TYPE_ADMIN)
    wait_frame(desktop, window, 382)
    click(desktop, helper, "push button", "Advanced")
    wait_frame(desktop, window, 562)

    tree = desktop.read(helper)
    known = [
        (node.role, node.name)
        for node in tree.all()
        if "focusable" in node.states and node.role in ("check box", "push button", "text")
    ]
    assert known == [
        ("check box", "Show Quillbox in Finder"),
        ("push button", "Manage Quillbox Office"),
        ("push button", "Open web management"),
        ("push button", "Advanced"),
        ("check box", "Find Quillbox automatically"),
        ("text", "Phone IP or name"),
        ("text", "SMB port"),
        ("text", "Default share"),
        ("text", "Username"),
        ("push button", "Restart service"),
        ("push button", "Open in Finder"),
    ]
    assert not [node for node in tree.all() if node.name == "●"]


@pytest.mark.parametrize(
    "theme",
    [
        {"QT_QPA_PLATFORMTHEME": "gtk3", "GTK_THEME": "Adwaita:dark"},
        {"QT_STYLE_OVERRIDE": "Windows"},
    ],
    ids=["a dark theme", "another style"],
)
def test_the_window_is_light_whatever_the_desktop_is(desktop, theme):
    desktop.helper(**theme)
    window = desktop.window()
    x, y, width, height = window.content()

    def is_light():
        picture = desktop.picture()
        corners = [(x + 5, y + 5), (x + width - 5, y + 5), (x + 5, y + height - 5)]
        return all(picture.pixel(*corner) == SURFACE for corner in corners)

    desktop.wait(is_light, "a window in its own colours")


def test_a_screen_reader_reaches_the_window_on_a_desktop_with_a_theme_of_gtk(desktop):
    helper = desktop.helper(QT_QPA_PLATFORMTHEME="gtk3")
    desktop.window()

    assert desktop.read(helper).has("check box", "Show Quillbox in Finder", showing=True)


def test_escape_puts_the_window_away_and_control_q_ends_the_program(desktop):
    helper = desktop.helper()
    window = desktop.window()
    desktop.wait(window.is_active, "the keyboard's focus")

    desktop.press("Escape")
    desktop.wait(lambda: not window.is_mapped(), "a hidden window")
    assert helper.running()

    desktop.helper()
    window = desktop.window()
    desktop.wait(window.is_active, "the keyboard's focus")
    desktop.press("Control_L", "q")
    assert helper.process.wait(10) == 0
