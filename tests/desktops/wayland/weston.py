"""weston, whose panel has no status items."""

import time

from .compositor import GREY, NAUTILUS, SIZE, SOCKET, TITLE, Nested, Window

CONFIG = """[shell]
background-color=0xff808080
panel-position=none
locking=false
animation=none
startup-animation=none
close-animation=none

[core]
idle-time=0
"""


class Weston(Nested):
    """It tells nothing about windows: frames are measured in pictures of its screen, and which window has
    the focus is what the programs say on the accessibility bus."""

    name = "weston"
    packages = ("weston",)
    desktop = "weston"
    services = NAUTILUS
    file_managers = ("org.gnome.Nautilus",)
    has_status_items = False
    no_status_items = "weston's panel has no status items"

    def start(self):
        self.session.write(".config/weston.ini", CONFIG)
        self.start_screen()
        weston = self._start_weston()
        try:
            self._wait_wallpaper()
        except AssertionError:
            # It has been seen to stop, about once in twenty times, before it starts its shell.
            weston.end()
            self._start_weston()
            self._wait_wallpaper()

    def _start_weston(self):
        width, height = SIZE
        return self.start_on_screen(
            *("weston", "--backend=x11-backend.so", "--use-pixman", f"--socket={SOCKET}"),
            *(f"--width={width}", f"--height={height}"),
        )

    def _wait_wallpaper(self):
        self.wait(lambda: self._screen().pixel(5, 5) == 3 * (GREY,), "weston's wallpaper", 20)

    def start_program(self):
        """It opens windows anywhere; this one is moved to where it has room to grow."""
        x, y, width, _ = super().start_program().frame
        self.move_pointer(x + width // 4, y + 15)
        self.press_button(1, True)
        for step in range(1, 11):
            self.move_pointer(x + width // 4 + (100 - x) * step // 10, y + 15 + (60 - y) * step // 10)
            time.sleep(0.05)
        self.press_button(1, False)
        return self.wait(self._has_moved, "the window's new place")

    def _has_moved(self):
        window = self.window()
        return window if window.frame[1] < 80 else None

    def close_window(self):
        x, y, width, _ = self.window().frame
        self.click(x + width - 17, y + 15)

    def _screen(self):
        return self.session.screen.picture()

    def windows(self):
        tree = self.helper and self.elements(self.helper.pid, depth=1)
        found = next((x for x in tree.children if x.name == TITLE), None) if tree else None
        if found is None or "showing" not in found.states:
            return []
        return [Window(TITLE, "org.quillbox.Helper", self.frame(), "active" in found.states)]

    def is_file_manager_in_front(self):
        """It has a window, and the program's has lost the focus. GTK 4 does not tell that a dialog is active."""
        pids = self.session.processes("^nautilus|/nautilus")
        trees = [self.elements(pid, depth=1) for pid in pids] if not self.is_in_front() else ()
        return any(tree and tree.children for tree in trees)

    def frame(self):
        """The rectangle in which the screen is not wallpaper. A pointer is too small to count."""
        picture = self._screen()
        width, rgb = picture.width, picture.rgb
        least = 60
        rows = [
            y
            for y in range(picture.height)
            if width - rgb.count(GREY, 3 * width * y, 3 * width * (y + 1)) // 3 >= least
        ]
        columns = [
            x for x in range(width) if picture.height - rgb[3 * x :: 3 * width].count(GREY) >= least
        ]
        if not rows or not columns:
            return None
        return columns[0], rows[0], columns[-1] - columns[0] + 1, rows[-1] - rows[0] + 1
