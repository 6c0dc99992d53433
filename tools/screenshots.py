"""Takes the screenshots in docs/screenshots, with the program on a separate screen and network.

Fonts, screen and window manager are the same everywhere, so that the pictures change only if the
program does. Run it with ./dev screenshots.
"""

import os
import sys

from Xlib import X

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
sys.path[:0] = [os.path.join(ROOT, "tests", "window"), os.path.join(ROOT, "tests", "lan")]

from desktop.desktop import Desktop  # noqa: E402 needs the path above
from desktop.picture import Picture  # noqa: E402
from rig.network import Lan  # noqa: E402
from rig.phone import Phone  # noqa: E402

TYPE_ADMIN = "_quillbox-admin._tcp"
BACKGROUND = 0xDDE4EE
MARGIN = 24

FONTS = """<?xml version="1.0"?>
<!DOCTYPE fontconfig SYSTEM "urn:fontconfig:fonts.dtd">
<fontconfig>
  <dir>/usr/share/fonts/truetype/noto</dir>
  <dir>/usr/share/fonts/truetype/dejavu</dir>
  <cachedir>{cache}</cachedir>
  <match target="pattern">
    <edit name="family" mode="append" binding="weak"><string>Noto Sans</string></edit>
    <edit name="family" mode="append" binding="weak"><string>DejaVu Sans</string></edit>
  </match>
  <match target="font">
    <edit name="antialias" mode="assign"><bool>true</bool></edit>
    <edit name="hinting" mode="assign"><bool>true</bool></edit>
    <edit name="hintstyle" mode="assign"><const>hintslight</const></edit>
    <edit name="rgba" mode="assign"><const>none</const></edit>
  </match>
</fontconfig>
"""


class Studio(Desktop):
    """A desktop that looks the same everywhere."""

    def environment(self, **more):
        fonts = os.path.join(self.folder, "fonts.conf")
        if not os.path.exists(fonts):
            with open(fonts, "w", encoding="utf-8") as file:
                file.write(FONTS.format(cache=os.path.join(self.folder, "font-cache")))
        return super().environment(FONTCONFIG_FILE=fonts, **more)

    def set_up(self, size, dpi=96):
        self.start_screen(size, dpi)
        self.screen.root.change_attributes(background_pixel=BACKGROUND)
        self.screen.root.clear_area()
        self.start_session_bus()
        self.start_manager()

    def open(self, **environment):
        """Starts the program; returns it and its window, which has the keyboard focus."""
        helper = self.helper(**environment)
        window = self.window()
        self.wait(window.is_active, "the keyboard's focus")
        return helper, window

    def wait_height(self, window, height):
        self.wait(lambda: window.frame()[3] == height, f"a frame {height} high")
        self.rest()

    def press_button(self, helper, name):
        node = self.read(helper).find("push button", name, showing=True)
        self.click(*node.centre())

    def rest(self):
        """Waits until the screen no longer changes. Moves the pointer away, as the element under it
        is highlighted."""
        self.screen.move_pointer(0, 0)
        before = []

        def is_still():
            before.append(self.picture().rgb)
            return len(before) > 3 and before[-1] == before[-2] == before[-3]

        self.wait(is_still, "a still picture")

    def take(self, path, areas):
        """Saves a picture of the bounding box of the areas, with a margin."""
        width, height = self.screen.size()
        left = max(min(x for x, _, _, _ in areas) - MARGIN, 0)
        top = max(min(y for _, y, _, _ in areas) - MARGIN, 0)
        right = min(max(x + w for x, _, w, _ in areas) + MARGIN, width)
        bottom = min(max(y + h for _, y, _, h in areas) + MARGIN, height)
        root = self.screen.root
        Picture.of(root, left, top, right - left, bottom - top, X.ZPixmap, 0xFFFFFFFF).save(path)


class Session:
    """One desktop, and a host that announces phones."""

    def __init__(self, size=(1000, 760), dpi=96):
        self.lan = Lan()
        self.desktop = self.lan.host("computer", of=Studio)
        self.desktop.set_up(size, dpi)
        self.phone = self.lan.host("phone", of=Phone)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.lan.close()

    def find(self, helper, *names, managed=()):
        """Announces phones, some of them with a web page, and waits until they are visible."""
        for name in names:
            self.phone.announce(name)
        for name in managed:
            self.phone.announce(name, type=TYPE_ADMIN)
            button = "Manage " + name.replace("\u202e", "\ufffd")
            self.desktop.wait(
                lambda button=button: self.desktop.read(helper).has("push button", button),
                "the button of a phone",
            )
        count = len(names)
        helper.wait_status(f"ready: {count} Quillbox device{'' if count == 1 else 's'} visible in Finder")


def no_phone():
    with Session() as session:
        desktop = session.desktop
        helper, window = desktop.open()
        # The window takes the size of its content with the first change.
        desktop.press_button(helper, "Advanced")
        desktop.wait_height(window, 520)
        desktop.press_button(helper, "Advanced")
        desktop.wait_height(window, 340)
        yield desktop, [window.frame()]


def one_phone():
    with Session() as session:
        helper, window = session.desktop.open()
        session.find(helper, "Quillbox Office")
        session.desktop.wait_height(window, 382)
        yield session.desktop, [window.frame()]


def two_phones():
    with Session() as session:
        helper, window = session.desktop.open()
        names = ("Quillbox Kitchen", "Quillbox Office")
        session.find(helper, *names, managed=names)
        session.desktop.wait_height(window, 404)
        yield session.desktop, [window.frame()]


def names():
    with Session() as session:
        helper, window = session.desktop.open()
        long = "Quillbox on the old phone in the drawer of the kitchen table"
        hostile = "Quillbox <b>&Bold</b> \u202eevil"
        session.find(helper, "Quillbox Büro", long, hostile, managed=(long, hostile))
        session.desktop.wait_height(window, 426)
        yield session.desktop, [window.frame()]


def advanced():
    with Session() as session:
        helper, window = session.desktop.open()
        session.find(helper, "Quillbox Office", managed=["Quillbox Office"])
        session.desktop.wait_height(window, 382)
        session.desktop.press_button(helper, "Advanced")
        session.desktop.wait_height(window, 562)
        yield session.desktop, [window.frame()]


def status_menu():
    with Session(size=(420, 300)) as session:
        desktop = session.desktop
        desktop.start_tray()
        helper, window = desktop.open()
        session.find(helper, "Quillbox Office")
        window.close()
        desktop.wait(lambda: not window.is_mapped(), "the end of the window")
        desktop.open_menu(helper)
        desktop.rest()
        width, height = desktop.screen.size()
        yield desktop, [(0, 0, width, height)]


def web_management():
    with Session() as session:
        desktop = session.desktop
        helper, window = desktop.open()
        session.find(helper, "Quillbox Office")
        desktop.wait_height(window, 382)
        desktop.press_button(helper, "Open web management")
        alert = desktop.wait(
            lambda: next((x for x in desktop.windows() if x != window and x.is_mapped()), None),
            "the alert",
        )
        desktop.wait(alert.is_active, "the keyboard's focus")
        desktop.rest()
        yield desktop, [window.frame(), alert.frame()]


def dark_desktop():
    with Session(size=(1100, 1000), dpi=96) as session:
        session.desktop.screen.root.change_attributes(background_pixel=0x241F31)
        session.desktop.screen.root.clear_area()
        helper, window = session.desktop.open(
            QT_QPA_PLATFORMTHEME="gtk3", GTK_THEME="Adwaita:dark", QT_SCALE_FACTOR="2"
        )
        session.find(helper, "Quillbox Office", managed=["Quillbox Office"])
        session.desktop.rest()
        yield session.desktop, [window.frame()]


STATES = {
    "no-phone": no_phone,
    "one-phone": one_phone,
    "two-phones": two_phones,
    "names": names,
    "advanced": advanced,
    "status-menu": status_menu,
    "web-management": web_management,
    "dark-desktop": dark_desktop,
}


def main():
    folder, wanted = sys.argv[1], sys.argv[2:] or list(STATES)
    for name in wanted:
        if name not in STATES:
            sys.exit(f"./dev screenshots: unknown state \"{name}\"; known: {', '.join(STATES)}")
    for name in wanted:
        path = os.path.join(folder, f"{name}.png")
        for desktop, areas in STATES[name]():
            desktop.take(path, areas)
        print(path, flush=True)


if __name__ == "__main__":
    main()
