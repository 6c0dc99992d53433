"""Every compositor: the frame of the window, a second start, the status item, and what is opened from it."""

import contextlib
import os
import re
import shutil
import time

import pytest
from real.findings import Findings
from real.releases import NAMES
from rig.phone import Phone
from rig.process import limit
from wayland.gnome_shell import GnomeShell
from wayland.kwin import KWin
from wayland.sway import Sway
from wayland.weston import Weston

HERE = os.path.dirname(os.path.abspath(__file__))
SCREENS = os.path.join(HERE, "..", "..", "build", "results", "desktops")
PICTURES = os.path.join(HERE, "..", "..", "docs", "screenshots", "desktops")
PANEL_QUESTIONS = (
    *("item, late panel", "status item", "click on it"),
    *("menu shows the window", "menu opens the share"),
)
WIDTH = 440
FOLDED, UNFOLDED = 340, 520


@pytest.fixture(params=[GnomeShell, KWin, Sway, Weston], ids=lambda x: x.name)
def compositor(request, computer):
    """A compositor that has just been started, without a panel; the program does not run yet."""
    computer.boot()
    made = request.param(computer)
    made.start()
    return made


@pytest.fixture
def findings(system, compositor):
    versions = system.versions(*compositor.packages)
    ordered = [[x, versions[x]] for x in compositor.packages]
    return Findings("Compositors", system.release, compositor.name, ordered)


class Questions:
    """Asks all questions of a test, whatever the answers are, and takes a picture with each answer."""

    def __init__(self, compositor, findings):
        self.compositor = compositor
        self.findings = findings
        self._failed = []

    @contextlib.contextmanager
    def ask(self, question):
        try:
            with self.findings.answer(question) as answer:
                yield answer
        except AssertionError as error:
            self._failed.append(f"{question}: {error}")
        time.sleep(1)  # a window may not be drawn yet
        self.save_picture(question)

    def save_picture(self, what):
        name = f"{self.findings.release}-{self.compositor.name}-{what}.png"
        os.makedirs(SCREENS, exist_ok=True)
        path = os.path.join(SCREENS, re.sub(r"[^a-z0-9.]+", "-", name.lower()).replace("-.", "."))
        self.compositor.save_picture(path)
        return path

    def save_for_page(self, what):
        """The picture that the page shows of this desktop."""
        release = NAMES[self.findings.release].replace(" ", "").lower()
        name = f"{release}-{self.compositor.name.replace(' ', '-').lower()}.png"
        os.makedirs(PICTURES, exist_ok=True)
        shutil.copy(self.save_picture(what), os.path.join(PICTURES, name))

    def check(self):
        """Fails if an answer was no."""
        assert not self._failed, "\n".join(self._failed)


@pytest.fixture
def questions(compositor, findings):
    return Questions(compositor, findings)


@pytest.fixture
def served(phones):
    """The two phones, with their files on the network."""
    for phone in phones:
        phone.serve()
        phone.announce()
    return phones


def height_of(phones, unfolded=False):
    base = UNFOLDED if unfolded else FOLDED
    return min(700, base + (22 * phones + 20 if phones else 0))


def wait_frame(compositor, height):
    """Waits until the frame has its size, and keeps it; returns the text for the table."""
    more_width, more_height = compositor.untold
    wanted = [WIDTH + more_width, height + more_height]
    seen = None

    def has_it():
        nonlocal seen
        window = compositor.window()
        seen = window and window.frame and list(window.frame[2:])
        return seen == wanted

    try:
        compositor.wait(has_it, "the frame", 8)
        time.sleep(0.5)  # longer than it takes to grow or shrink: it could be on its way to another size
        assert has_it()
    except AssertionError:
        raise AssertionError(f"{seen and f'{seen[0]} × {seen[1]}'}, not {wanted[0]} × {wanted[1]}") from None
    return f"{seen[0]} × {seen[1]}"


def check_nothing_is_cut(compositor):
    """The window shows all of its content: every text and button is in it, and nothing scrolls."""
    content = compositor.content()
    left, top, width, height = content.place
    for node in content.having(showing=True):
        if node.role in ("scroll bar",) or not node.name:
            assert node.role != "scroll bar", "a scroll bar shows"
            continue
        x, y, node_width, node_height = node.place
        inside = left <= x and x + node_width <= left + width
        inside = inside and top <= y and y + node_height <= top + height
        assert inside, f"{node.name!r} is cut off: {node.place} in {content.place}"


def test_the_frame_follows_the_steps(lan, compositor, questions):
    phones = {x: lan.host(x.lower(), of=Phone) for x in ("Office", "Studio")}
    compositor.start_program()

    def see(question, height):
        with questions.ask(question) as answer:
            answer.text = wait_frame(compositor, height)
            if answer.text != f"{WIDTH} × {height}":
                answer.note = compositor.untold_note

    with questions.ask("whole at start"):
        check_nothing_is_cut(compositor)
    phones["Office"].announce("Quillbox Office")
    compositor.session.wait_visible(1)
    see("one phone", height_of(1))
    phones["Studio"].announce("Quillbox Studio")
    compositor.session.wait_visible(2)
    see("two phones", height_of(2))
    with questions.ask("whole with phones"):
        check_nothing_is_cut(compositor)
    if not compositor.has_status_items:
        questions.save_for_page("whole with phones")
    compositor.click_node("push button", "Advanced")
    see("unfolded", height_of(2, unfolded=True))
    compositor.click_node("push button", "Advanced")
    for phone in phones.values():
        phone.goodbye()
    see("no phone", height_of(0))
    questions.check()


def start_again(compositor):
    """Starts the program a second time; returns how long the window took to come forward."""
    begin = time.monotonic()
    compositor.session.run("quillbox-helper", timeout=limit(10))
    compositor.wait(compositor.is_in_front, "the window in front", 5)
    return time.monotonic() - begin


def test_a_second_start_brings_the_window_forward(compositor, questions):
    compositor.start_program()
    compositor.wait(compositor.is_in_front, "the window in front")
    for question, put_away in (
        ("second start, covered", compositor.cover),
        ("second start, closed", compositor.close_window),
    ):
        with questions.ask(question) as answer:
            put_away()
            compositor.wait(lambda: not compositor.is_in_front(), "another window in front")
            answer.seconds = start_again(compositor)
    questions.check()


@pytest.fixture
def panel(compositor, findings):
    """The compositor, if it has a panel for status items."""
    if not compositor.has_status_items:
        for question in PANEL_QUESTIONS:
            findings.cannot(question, compositor.no_status_items)
        pytest.skip(compositor.no_status_items)
    return compositor


def wait_item(panel):
    """Waits for the status item; returns its centre."""

    def is_at_rest():
        # Panels move items while they add others.
        before = panel.item()
        time.sleep(0.5)
        return before if before is not None and before == panel.item() else None

    return panel.wait(is_at_rest, "the status item", 30)


def test_the_status_item_is_in_a_panel_that_comes_late(panel, questions):
    panel.start_program()
    with questions.ask("item, late panel"):
        panel.start_panel()
        wait_item(panel)
    questions.check()


def test_the_status_item_and_its_menu(served, panel, questions):
    panel.start_panel()
    panel.start_program()
    panel.session.wait_visible(len(served))
    with questions.ask("status item"):
        wait_item(panel)
    with questions.ask("click on it") as answer:
        panel.close_window()
        panel.wait(lambda: panel.window() is None, "the end of the window")
        answer.text = see_click(panel)
    if panel.has_menus:
        use_menu(panel, served, questions)
    else:
        questions.save_for_page("clicked")
        for question in PANEL_QUESTIONS[3:]:
            questions.findings.cannot(question, panel.no_menus)
    questions.check()


def see_click(panel):
    """Clicks the status item; returns what that did."""
    panel.click(*wait_item(panel))
    seen = panel.wait(
        lambda: (panel.has_menus and panel.is_menu_open() and "opens the menu")
        or (panel.is_in_front() and "shows the window"),
        "menu or window",
        5,
    )
    if panel.has_menus and panel.is_menu_open():
        panel.close_menu()
    return seen


def use_menu(panel, phones, questions):
    with questions.ask("menu shows the window"):
        open_menu(panel)
        panel.choose("Show Quillbox Helper")
        panel.wait(panel.is_in_front, "the window in front", 5)
    open_menu(panel)
    questions.save_for_page("menu")
    panel.close_menu()
    keep_one(panel, phones)
    with questions.ask("menu opens the share") as answer:
        open_menu(panel)
        begin = time.monotonic()
        panel.choose("Open in Finder")
        panel.wait(panel.is_file_manager_in_front, "the file manager in front", 20)
        answer.seconds = time.monotonic() - begin


def keep_one(compositor, phones):
    """With several phones, it is the file manager in which one is chosen."""
    for phone in phones[1:]:
        phone.goodbye()
    compositor.session.wait_visible(1)


def open_menu(panel):
    panel.click(*wait_item(panel), panel.menu_button)
    panel.wait(panel.is_menu_open, "the menu", 5)


def test_open_in_finder_puts_the_file_manager_on_top(served, compositor, questions):
    compositor.start_program()
    compositor.session.wait_visible(len(served))
    keep_one(compositor, served)
    compositor.click_node("push button", "Advanced")
    with questions.ask("“Open in Finder”") as answer:
        time.sleep(1)  # the window grows
        place = compositor.place(compositor.content().find("push button", "Open in Finder"))
        begin = time.monotonic()
        compositor.click(*place)
        compositor.wait(compositor.is_file_manager_in_front, "the file manager in front", 20)
        answer.seconds = time.monotonic() - begin
    questions.check()
