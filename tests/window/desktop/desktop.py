"""The user's computer with a screen, a session bus, a window manager and a tray or panel."""

import itertools
import json
import os

from rig.computer import PROGRAM, Computer
from rig.network import SESSION_BUS
from rig.process import limit, wait_until

from .node import Node
from .screen import Screen

HERE = os.path.dirname(os.path.abspath(__file__))
NAME = "quillbox-helper"
FIRST_NAMESPACE = 0xF0000000  # inode numbers of namespaces start here (PROC_DYNAMIC_FIRST)


SOCKETS = "/tmp/.X11-unix"


def make_socket_folder():
    """Makes the folder with the sockets of X servers, if there is none. Of several servers that start
    at once and do not find it, only one would make it, and the others would not listen there."""
    os.makedirs(SOCKETS, exist_ok=True)
    if os.stat(SOCKETS).st_uid == os.getuid():
        os.chmod(SOCKETS, 0o1777)


class Desktop(Computer):
    """A computer with a display."""

    def __init__(self, lan, name, number):
        super().__init__(lan, name, number)
        self.server = None
        self.screen = None
        self.manager = None
        self.tray = None
        self.panel = None
        self._reader = None

    def environment(self, **more):
        there = {"QT_LINUX_ACCESSIBILITY_ALWAYS_ON": "1", "DBUS_SESSION_BUS_ADDRESS": SESSION_BUS}
        if self.screen is not None:
            there["DISPLAY"] = self.screen.name
        return super().environment(**(there | more))

    # ---- the parts of the desktop ----

    def start_screen(self, size=(1280, 1024), dpi=96):
        """Starts an X server without a TCP port."""
        # All X servers share /tmp/.X11-unix, but this one cannot see which display numbers servers
        # in other namespaces use. The number of its network namespace is unique.
        namespace = os.stat(f"/proc/{self.pid}/ns/net").st_ino
        number = namespace - FIRST_NAMESPACE
        width, height = size
        make_socket_folder()
        self.server = self.start(
            ["Xvfb", f":{number}", "-displayfd", "1", "-screen", "0", f"{width}x{height}x24"]
            + ["-dpi", str(dpi), "-nolisten", "tcp", "-noreset"]
        )
        self.server.wait_line(
            lambda line: line.stream == "stdout" and line.text == str(number), 20, what="Xvfb"
        )
        self.screen = Screen(f":{number}")

    def start_manager(self):
        """Starts openbox with its default settings: four workspaces, decorated windows."""
        self.manager = self.start(
            ["openbox", "--sm-disable", "--config-file", "/etc/xdg/openbox/rc.xml"]
            + ["--startup", "echo ready"]
        )
        self.manager.wait_line(lambda line: line.text == "ready", limit(10), what="openbox")

    def start_tray(self):
        """Starts a system tray (XEmbed), at the lower right."""
        self.tray = self.start(
            ["trayer", "--edge", "bottom", "--align", "right", "--widthtype", "request"]
            + ["--height", "26", "--SetDockType", "true", "--SetPartialStrut", "true"]
        )
        self.wait(self._has_tray, "the tray")

    def stop_tray(self):
        self.tray.end()
        self.tray = None
        self.wait(lambda: not self._has_tray(), "the end of the tray")

    def start_panel(self):
        """Starts a panel for status notifier items. It shows nothing, but prints what it sees."""
        self.panel = self.start([self._beside("panel_stand_in")], stdin=True)
        self.panel.wait_line(lambda line: line.text == "running", 10, what="the panel")

    def stop_panel(self):
        self.panel.end()
        self.panel = None

    # ---- what is on the screen ----

    def wait(self, check, what, timeout=10):
        """Waits until `check` returns something true, and returns it."""
        return wait_until(check, limit(timeout), what)

    def windows(self):
        """The program's windows that the window manager manages."""
        return [x for x in self.screen.clients() if x.program() == NAME]

    def window(self):
        """Waits until the program's window is on the screen, and returns it."""

        def shown():
            return next((x for x in self.windows() if x.is_mapped()), None)

        return self.wait(shown, "the program's window")

    def open_window(self, title="Another", place=(100, 100), size=(900, 700)):
        """Opens a window of another program, and clicks into it to give it the focus."""
        window = self.screen.open_window(title, *place, *size)
        self.wait(window.is_mapped, "the window of another program")
        x, y, width, _ = window.content()
        self.click(x + width // 2, y + 1)
        self.wait(lambda: window.is_active() and window.is_in_front(), "the other window in front")
        return window

    def status_icon(self):
        """The program's icon in the tray, as an X window, or None."""
        for window in self.screen.windows_within():
            where = self.screen.client(window)
            if where.program() == "trayer" or where.program() == "panel":
                for icon in self.screen.windows_within(window):
                    if self.screen.client(icon).program() == NAME:
                        return self.screen.client(icon)
        return None

    def wait_status_icon(self):
        """Waits until the program's icon is shown in the tray, and returns it."""

        def shown():
            icon = self.status_icon()
            return icon if icon is not None and icon.is_mapped() else None

        return self.wait(shown, "the icon in the tray")

    def read(self, helper):
        """The program's accessibility tree, as a screen reader gets it."""
        tree = self.wait(lambda: self._ask({"do": "tree", "pid": helper.pid}), "the tree")
        return Node(tree)

    def open_menu(self, helper):
        """Clicks the icon in the tray with the first button; returns the accessibility tree of the
        menu."""
        self.read(helper)
        x, y, width, height = self.wait_status_icon().content()
        self.click(x + width // 2, y + height // 2)
        return self.wait_menu()

    def wait_menu(self):
        """Waits until a menu of the program is open and takes input; returns its accessibility
        tree, which is found by the entry under the pointer."""
        x, y, width, height = self.wait(self._menu_window, "the menu").content()
        # A menu reacts only to pointer movement, not to a pointer that is there when it opens.
        places = itertools.cycle(range(height - 10, 10, -7))

        def entry():
            self.screen.move_pointer(x + width // 2, y + next(places))
            return self._ask({"do": "menu"})

        return Node(self.wait(entry, "an entry of the menu"))

    def act(self, helper, node, action="Press"):
        """Performs an action of an element, as assistive technology does."""
        return self._ask({"do": "act", "pid": helper.pid, "path": node.path, "action": action})

    def listen(self, event):
        """Starts listening for an accessibility event; returns a function that lists those seen."""
        self._ask({"do": "listen", "event": event})
        # When a listener registers, a program queries the registered events and emits none before
        # it has the reply. Requests are answered in order: after these it has the reply.
        for helper in 2 * [x for x in self._helpers if x.running()]:
            self.read(helper)
        since = self._reader.mark()

        def events():
            lines = [json.loads(x.text) for x in self._reader.lines[since:] if x.stream == "stdout"]
            return [x for x in lines if "event" in x]

        return events

    def picture(self):
        return self.screen.picture()

    # ---- hands ----

    def click(self, x, y, button=1):
        self.screen.click(x, y, button)

    def press(self, *keys):
        self.screen.press(*keys)

    def close(self):
        if self.screen is not None:
            self.screen.close()
        super().close()

    def _menu_window(self):
        for window in self.screen.popups():
            if window.program() == NAME:
                return window
        return None

    def _has_tray(self):
        selection = self.screen.atom("_NET_SYSTEM_TRAY_S0")
        owner = self.screen.display.get_selection_owner(selection)
        return bool(owner)

    def _ask(self, order):
        if self._reader is None:
            self._reader = self.start_quickly(f"{HERE}/accessible.py")
        since = self._reader.mark()
        self._reader.write(json.dumps(order) + "\n")
        line = self._reader.wait_line(
            lambda line: line.stream == "stdout" and line.text.startswith('{"answer"'),
            limit(20),
            since=since,
            what=order["do"],
        )
        return json.loads(line.text)["answer"]

    @staticmethod
    def _beside(name):
        """The path of a test program, which is built next to the program under test."""
        return os.path.join(os.path.dirname(PROGRAM), name)
