"""A computer with a display and its own network, to measure the program with its window."""

import json
import os

from rig.computer import visible
from wire import Desk, Station, Wire

HERE = os.path.dirname(os.path.abspath(__file__))
PYTHON = "/usr/bin/python3"
USER = "ours"


class DesktopDesk(Desk):
    """A desk with a screen, a window manager and a session bus."""

    DISPLAY = ":7"

    def show_desktop(self):
        screen = ["Xvfb", self.DISPLAY, "-screen", "0", "1280x800x24", "-nolock", "-ac"]
        # Abstract sockets belong to the network namespace; sockets in /tmp do not.
        screen += ["-nolisten", "tcp", "-nolisten", "unix", "-displayfd", "1"]
        self.start(screen).wait_line(lambda line: line.text.strip().isdigit(), 20, what="Xvfb")
        number = self.user(USER)
        self.bus_address = f"unix:path=/run/user/{USER}/bus"
        bus = ["dbus-daemon", "--session", f"--address={self.bus_address}", "--nofork"]
        self.start_as(USER, [*bus, "--print-address"]).wait_line(
            lambda line: line.text.startswith("unix:"), 10, what=f"the bus of user {number}"
        )
        self.start_as(USER, ["openbox", "--sm-disable"], DISPLAY=self.DISPLAY)
        self.run("sh", "-c", WAIT_FOR_MANAGER, timeout=20, env=self.shown())

    def shown(self):
        return self.user_environment(
            USER, DISPLAY=self.DISPLAY, DBUS_SESSION_BUS_ADDRESS=self.bus_address
        )

    def program(self, *arguments):
        """Starts the program as the desktop's user does."""
        return self.helper_as(
            USER, *arguments, DISPLAY=self.DISPLAY, DBUS_SESSION_BUS_ADDRESS=self.bus_address
        )

    def program_without_display(self):
        return self.helper_as(USER, DBUS_SESSION_BUS_ADDRESS=self.bus_address)

    def look(self, what):
        """Starts window.py, and waits until it is ready."""
        looker = self.start([PYTHON, f"{HERE}/window.py", what, self.DISPLAY], stdin=True)
        looker.wait_line(lambda line: "ing\"" in line.text, 20, what=what)
        return looker

    def ping(self, during):
        """Pings the window while `during` runs; returns the result of window.py."""
        looker = self.look("ping")
        during()
        since = looker.mark()
        looker.process.stdin.close()
        line = looker.wait_line(lambda line: "answered" in line.text, 60, since, "the pings")
        return json.loads(line.text)


# A window manager sets this property on the root window when it is ready (EWMH).
WAIT_FOR_MANAGER = f"""
exec {PYTHON} -c '
import sys, time
from Xlib import display
screen = display.Display()
root, check = screen.screen().root, screen.intern_atom("_NET_SUPPORTING_WM_CHECK")
end = time.monotonic() + 15
while root.get_full_property(check, 0) is None:
    if time.monotonic() > end:
        sys.exit("no window manager")
    time.sleep(0.02)
'"""


class DesktopPlace:
    """A phone and a computer with a display, connected by a veth pair."""

    def __init__(self, run, engine):
        self.wire = Wire()
        run.later(self.wire.close)
        self.engine = engine
        self.phone = self.wire.host("phone", of=Station)
        self.host = self.wire.host("computer", of=DesktopDesk)
        self.wire.join(self.phone, self.host)
        self.host.prepare(engine)
        if self.host.bus is None:
            self.host.start_bus()  # which computers without avahi-daemon have, too
        self.host.show_desktop()

    def announce_phones(self, count):
        for number in range(count):
            self.phone.announce(f"Quillbox {number + 1}", port=4000 + number)

    def started(self, phones, has_display=True):
        """Starts the program, and returns it once it has found that many phones."""
        host = self.host
        helper = host.program() if has_display else host.program_without_display()
        helper.wait_status(visible(phones), 20)
        return helper
