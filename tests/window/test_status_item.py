"""The status item in panels and trays: what it says of itself, clicks, and its keys."""

import os
import shutil
import time

import pytest
from desktop.desktop import NAME
from rig.phone import Phone
from rig.process import limit

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..")
SYMBOLIC = os.path.join(ROOT, "ui", "look", "icons", "org.quillbox.Helper-symbolic.svg")

# Listens like a Wayland compositor, next to the X server.
COMPOSITOR = """
import socket, sys
listener = socket.socket(socket.AF_UNIX)
listener.bind(sys.argv[1])
listener.listen()
print("listening", flush=True)
while True:
    listener.accept()
"""


@pytest.fixture
def panel(desktop):
    desktop.start_panel()
    return desktop.panel


def wait_item(panel):
    panel.wait_line(lambda line: line.text == "end of menu", limit(10), what="the item")


def said(panel, what):
    """What the item said of itself."""
    wait_item(panel)
    return next(x.text for x in panel.lines if x.text.split(" ")[0] == what)


def order(panel, command):
    panel.write(f"{command}\n")


def menu(desktop):
    return next((x for x in desktop.screen.popups() if x.program() == NAME), None)


def hide(desktop, window):
    window.close()
    desktop.wait(lambda: not window.is_managed(), "the end of the window")


def listen_like_a_compositor(desktop, socket):
    compositor = desktop.start(["/usr/bin/python3", "-c", COMPOSITOR, socket])
    compositor.wait_line(lambda line: line.text == "listening", limit(10), what="the compositor")


def start_inside_wayland(desktop, **environment):
    """Starts the program on the X server of a Wayland compositor."""
    socket = os.path.join(desktop.folder, "wayland")
    listen_like_a_compositor(desktop, socket)
    return desktop.helper(WAYLAND_DISPLAY=socket, QT_QPA_PLATFORM="xcb", **environment)


def test_panels_get_the_program_s_name(desktop, panel):
    desktop.helper()

    assert said(panel, "title") == "title Quillbox Helper"


def test_panels_get_the_installed_icon_by_name(desktop, panel):
    data = os.path.join(desktop.folder, "data")
    folder = os.path.join(data, "icons", "hicolor", "symbolic", "apps")
    os.makedirs(folder)
    shutil.copy(SYMBOLIC, folder)

    desktop.helper(XDG_DATA_HOME=data)

    assert said(panel, "icon") == "icon org.quillbox.Helper-symbolic"


def test_panels_get_an_image_where_the_icon_is_not_installed(desktop, panel):
    desktop.helper(XDG_DATA_DIRS=desktop.folder)

    assert said(panel, "icon") == "icon "
    assert int(said(panel, "pictures").split(" ")[1]) >= 5


@pytest.mark.parametrize("button", ["activate", "context"])
def test_a_click_in_a_panel_opens_the_menu(desktop, panel, button):
    desktop.helper()
    window = desktop.window()
    wait_item(panel)
    hide(desktop, window)

    order(panel, button)

    desktop.wait(lambda: menu(desktop), "the menu")
    assert desktop.windows() == []


def test_a_click_opens_the_menu_even_if_a_compositor_runs_elsewhere(desktop, panel):
    listen_like_a_compositor(desktop, f"{desktop.environment()['XDG_RUNTIME_DIR']}/wayland-0")
    desktop.helper(QT_QPA_PLATFORM="xcb")
    window = desktop.window()
    wait_item(panel)
    hide(desktop, window)

    order(panel, "activate")

    desktop.wait(lambda: menu(desktop), "the menu")
    assert desktop.windows() == []


@pytest.mark.parametrize("button", ["activate", "context"])
def test_a_click_in_the_panel_of_a_wayland_desktop_shows_the_window(desktop, panel, button):
    start_inside_wayland(desktop)
    window = desktop.window()
    wait_item(panel)
    hide(desktop, window)

    order(panel, button)

    desktop.wait(lambda: window.is_mapped() and window.is_active(), "the window")
    assert menu(desktop) is None


def test_ctrl_q_in_the_menu_of_a_tray_quits(desktop):
    helper = desktop.helper()
    window = desktop.window()
    desktop.start_tray()
    desktop.wait_status_icon()
    hide(desktop, window)
    desktop.open_menu(helper)

    # People release the keys later. Qt leaks the events that come while it ends.
    with desktop.screen.holding("Control_L", "q"):
        assert helper.process.wait(limit(5)) == 0


def test_ctrl_q_in_the_menu_of_a_panel_quits(desktop, panel):
    helper = desktop.helper()
    desktop.window()
    wait_item(panel)
    order(panel, "activate")
    desktop.wait_menu()

    # People release the keys later. Qt leaks the events that come while it ends.
    with desktop.screen.holding("Control_L", "q"):
        assert helper.process.wait(limit(5)) == 0


@pytest.fixture
def two_pages(desktop):
    """Two phones with web management."""
    for name in ("Quillbox Office", "Quillbox Studio"):
        phone = desktop.lan.host(name.split()[1].lower(), of=Phone)
        phone.announce(name)
        phone.announce(name, type="_quillbox-admin._tcp")


def wait_pages(desktop, helper):
    def has_both():
        tree = desktop.read(helper)
        return all(
            tree.has("push button", f"Manage Quillbox {name}", showing=True)
            for name in ("Office", "Studio")
        )

    desktop.wait(has_both, "both pages")


def test_web_management_of_two_phones_opens_a_menu_over_the_window_on_wayland(
    desktop, panel, two_pages
):
    helper = start_inside_wayland(desktop)
    window = desktop.window()
    wait_item(panel)
    wait_pages(desktop, helper)
    hide(desktop, window)
    desktop.open_window(size=(300, 200))
    # Qt waits for 400 ms before it takes note of a lost focus, and tells nobody when it does.
    time.sleep(limit(1))

    order(panel, "choose Open web management")

    shown = desktop.wait(lambda: menu(desktop), "the menu")
    desktop.wait(lambda: window.is_mapped() and window.is_active(), "the window")
    left, top, width, height = window.content()
    x, y, _, _ = shown.content()
    assert left < x < left + width and top < y < top + height

    desktop.press("Escape")

    desktop.wait(lambda: menu(desktop) is None, "the end of the menu")
    assert window.is_managed()
