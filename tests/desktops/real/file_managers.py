"""The file managers of the desktops: how each is started, and how a person uses it."""

import contextlib
import dataclasses
import json
import re
import time

from desktop.picture import Picture
from rig.phone import PASSWORD, USER
from rig.process import limit, wait_until
from Xlib import X

GVFS = ("org.gtk.vfs.Daemon", "org.gtk.vfs.Metadata", "org.gtk.vfs.UDisks2VolumeMonitor")
SECRETS = ("org.freedesktop.secrets", "org.gnome.keyring", "org.gnome.keyring.SystemPrompter")
NO_PORT = "GVfs leaves the port out of the URLs of the shares that it lists, and this file manager uses them: it "
NO_PORT += "connects to port 445."

# Titles of the windows in which file managers say that they do not open something.
REFUSALS = ("Error", "Set Default Application")
INSTEAD = "instead of"


@dataclasses.dataclass(frozen=True)
class FileManager:
    """`entry` is its menu entry, which the desktop has as the default for folders; `services` are those
    of the session bus that its desktop has; `network` is the command that shows its network view."""

    name: str
    package: str
    desktop: str
    entry: str
    services: tuple
    network: tuple
    backend: str = "gvfs-backends"
    # Whether the accessibility bus shows what is in its windows.
    accessible: bool = True
    # How a person opens an icon: with the pointer, or by typing its name.
    opens_by: str = "letters"
    # Where the two phones are in its network view, and a share among those of a phone, for each release,
    # if only a person can see that.
    points: tuple = ()
    # Why it does not open what its network view lists, if it does not.
    fault: str = ""
    # The releases in which a single click opens an icon.
    single_click: tuple = ()
    variables: tuple = ()
    # A command that sets the view whose icons the accessibility bus shows.
    settings: tuple = ()


MANAGERS = (
    FileManager(
        "Nautilus", "nautilus", "GNOME", "org.gnome.Nautilus.desktop",
        ("org.freedesktop.FileManager1", "org.gnome.Nautilus*", "org.freedesktop.Tracker3.*", *GVFS, *SECRETS),
        ("nautilus", {"bookworm": "other-locations:///", "trixie": "x-network-view:///"}),
        accessible=False,
        points=(
            ("bookworm", ((350, 187), (350, 234), (336, 130))),
            ("trixie", ((300, 135), (300, 195), (286, 120))),
        ),
        # While OpenGL in software draws its spinner it does nothing else, so it would spin for ever.
        variables=(("GSK_RENDERER", "cairo"),),
    ),
    FileManager(
        "Nemo", "nemo", "X-Cinnamon", "nemo.desktop",
        ("nemo", "nemo.FileManager1", *GVFS, *SECRETS), ("nemo", "network:///"),
    ),
    FileManager(
        "Caja", "caja", "MATE", "caja-folder-handler.desktop",
        ("org.mate.freedesktop.FileManager1", *GVFS, *SECRETS), ("caja", "network:///"),
    ),
    FileManager(
        "Thunar", "thunar", "XFCE", "thunar.desktop",
        ("org.xfce.*", *GVFS, *SECRETS), ("thunar", "network:///"),
        fault="It opens a share that it lists only at port 445; at others it mounts the share, and shows it in "
        "the side bar.",
        settings=(
            *("xfconf-query", "--channel", "thunar", "--property", "/default-view", "--create"),
            *("--type", "string", "--set", "ThunarDetailsView"),
        ),
    ),
    FileManager(
        "PCManFM", "pcmanfm", "LXDE", "pcmanfm.desktop", GVFS, ("pcmanfm", "network:///"),
        accessible=False,
        fault=NO_PORT,
        points=(
            ("bookworm", ((206, 125), (300, 125), (206, 125))),
            ("trixie", ((206, 125), (300, 125), (206, 125))),
        ),
    ),
    FileManager(
        "PCManFM-Qt", "pcmanfm-qt", "LXQt", "pcmanfm-qt.desktop", GVFS,
        ("pcmanfm-qt", "network:///"), opens_by="pointer", fault=NO_PORT,
    ),
    FileManager(
        "Dolphin", "dolphin", "KDE", "org.kde.dolphin.desktop",
        ("org.kde.dolphin.FileManager1", "org.kde.kiod?", "org.kde.kpasswdserver*"),
        ("dolphin", "smb:/"), backend="kio-extras", opens_by="pointer", single_click=("bookworm",),
        variables=(("KDE_FULL_SESSION", "true"),),
    ),
)
KDE_VERSION = {"bookworm": "5", "trixie": "6"}


class Late(AssertionError):
    """What was waited for did not come in time."""


class Element:
    """A visible element of a window, as a screen reader gets it."""

    def __init__(self, told):
        self.program, self.role, self.name, self.text, self.place, states = told
        self.states = set(states)

    def centre(self):
        x, y, width, height = self.place
        return x + width // 2, y + height // 2


class Browser:
    """A file manager on the screen of a session, and the hands of its user."""

    def __init__(self, computer, manager):
        self.manager = manager
        release = self.release = computer.system.release
        variables = dict(manager.variables)
        if manager.desktop == "KDE":
            variables["KDE_SESSION_VERSION"] = KDE_VERSION[release]
        self.session = computer.log_in(manager.desktop, manager.services, **variables)
        self._seen = computer.share_file("seen.py")
        self.session.start_screen()
        self.session.start_bus()
        self.session.write(
            ".config/mimeapps.list", f"[Default Applications]\ninode/directory={manager.entry}\n"
        )
        if manager.settings:
            self.session.run(*manager.settings)
        self.session.write(".config/dolphinrc", "[General]\nRememberOpenedTabs=false\n")
        # A panel of these desktops sets the icons; without one, the file manager has none.
        self.session.write(".config/pcmanfm-qt/default/settings.conf", "[System]\nFallbackIconThemeName=breeze\n")

    # ---- what is on the screen ----

    def elements(self, without="quillbox-helper", **order):
        order["without"] = without
        done = self.session.run("python3", self._seen, json.dumps(order), check=False)
        return [Element(x) for x in json.loads(done.stdout or "[]")]

    def windows(self):
        """All windows but the program's own, panels and the desktop's background."""
        return [
            x
            for x in self.session.screen.clients()
            if x.is_mapped() and not x.is_dock() and x.program() not in ("quillbox-helper", "desktop_window")
        ]

    def titles(self):
        return [x.title() for x in self.windows()]

    def wait_windows(self, since=(), timeout=20):
        """Waits for a window that is not in `since`; returns the new ones."""

        def new():
            return [x for x in self.windows() if x not in since]

        return wait_until(new, limit(timeout), f"a window of {self.manager.name}")

    def wait_elements(self, timeout=20, **order):
        what = f"{order} on the screen (windows: {self.titles()})"
        return wait_until(lambda: self.elements(**order), limit(timeout), what)

    def mounts(self):
        """The URLs of what GVfs has mounted."""
        lines = self.session.run("gio", "mount", "--list", check=False).stdout.splitlines()
        return [x.split(" -> ")[1] for x in lines if " -> smb://" in x]

    def is_port_left_out(self):
        """Whether GVfs, where it has mounted a server, leaves the port out of the URLs of its shares."""
        for server in self.mounts():
            command = ["gio", "list", "--attributes=standard::target-uri", server]
            listed = self.session.run(*command, check=False).stdout
            if re.search(r"target-uri=smb://[^:/\s]+/NAS\b", listed):
                return True
        return False

    # ---- hands ----

    def click(self, element, times=1):
        for _ in range(times):
            self.session.screen.click(*element.centre())

    def type(self, text):
        for letter in text:
            self.session.screen.press({" ": "space"}.get(letter, letter))

    def press(self, *keys):
        for key in keys:
            self.session.screen.press(key)

    def show_network(self):
        """Shows the network view, and waits until both phones had time to appear."""
        command = [x if isinstance(x, str) else x[self.release] for x in self.manager.network]
        self.session.start(*command)
        self.wait_windows()
        if self.manager.accessible:
            for name in ("Quillbox Office", "Quillbox Studio"):
                self.wait_elements(text=name)
        else:
            # Its icons are not on the accessibility bus, so nothing tells when they are there.
            time.sleep(limit(8))

    def open_phone(self, phone, position):
        """Opens a phone of the network view, which is at this position; waits for its shares."""
        known = self.windows()

        def is_open():
            return any(phone.name in (x or "") for x in self.titles())

        what = f"the host of {phone.service_name} in a title"
        if self.manager.points:
            self._open_at(position, is_open, known, what)
        else:
            self.open(phone.service_name)
            self._wait_past_dialogs(is_open, known, what)

    def _open_at(self, number, is_done, known, what):
        """Opens what is at a point of the view, where the tests cannot see when it is there: until it is open."""
        end = time.monotonic() + limit(40)
        while not is_done():
            assert time.monotonic() < end, f"{what}: not within {limit(40):g} s ({self.titles()})"
            if self.windows() == known:
                self._click_point(number)
                self._open_selected()
            with contextlib.suppress(Late):
                self._wait_past_dialogs(is_done, known, what, 8)

    def _click_point(self, number):
        x, y, _, _ = self.windows()[-1].frame()
        dx, dy = dict(self.manager.points)[self.release][number]
        self.session.screen.click(x + dx, y + dy)

    def _wait_past_dialogs(self, is_done, known, what, timeout=30):
        """Waits for a result, and answers each dialog that opens before: a window not in `known`."""
        end = time.monotonic() + limit(timeout)
        answered = list(known)
        while not is_done():
            for dialog in [x for x in self.windows() if x not in answered]:
                assert dialog.title() not in REFUSALS, f"{dialog.title()!r} {INSTEAD} {what}"
                dialog.activate()
                time.sleep(1)  # a dialog that has just opened loses what is typed
                self._log_in_as_guest()
                answered.append(dialog)
            if time.monotonic() > end:
                raise Late(f"{what}: not within {limit(timeout):g} s ({self.titles()})")
            time.sleep(0.1)  # between two looks

    def _log_in_as_guest(self):
        """As a guest where the dialog's first choice is one: with GVfs 1.50. Later versions want a name."""
        if self.release != "bookworm":
            self._type_login()
        elif self.manager.name == "Nautilus":
            # Its focus is on that choice, which takes a Return for itself.
            self.session.screen.press("Alt_L", "n")
            return
        self.press("Return")

    def _type_login(self):
        if self.manager.desktop != "LXQt":
            self.type(USER)
            self.press("Tab", "Tab")
            self.type(PASSWORD)
            return
        for label, text in (("Username:", USER), ("Password:", PASSWORD)):
            for field in self.elements(text=label):
                if field.role in ("text", "password text"):
                    self.click(field, 3)
                    self.type(text)

    def open(self, name):
        """Opens an icon of the view that is shown."""
        if self.manager.opens_by == "pointer":
            self.click(self.wait_elements(text=name)[0])
        else:
            self.type(name)
        if self.release not in self.manager.single_click:
            self._open_selected()

    def _open_selected(self):
        time.sleep(limit(1))  # what was clicked or typed is selected a moment later
        self.press("Return")

    def open_share(self, share, file):
        """Opens a share in the view of its server, as a guest where it may, and waits until it shows a file."""
        known = self.windows()
        what = f"{file!r} on the screen"
        if self.manager.points:
            self._open_at(-1, lambda: self.shows(file), known, what)
        else:
            self.wait_elements(text=share)
            self.open(share)
            self._wait_past_dialogs(lambda: self.shows(file), known, what, 40)

    def button(self, name):
        """A button of the program's window."""
        found = self.wait_elements(without=None, text=name)
        return next(x for x in found if x.role in ("push button", "button", "toggle button"))

    def unfold_helper(self):
        """Opens the form in the program's window."""
        self.click(self.button("Advanced"))

    def close_all(self):
        """Closes the windows of the file manager, dialogs first, and unmounts what it has mounted."""

        def none_left():
            left = self.windows()
            if left:
                left[-1].close()
                time.sleep(0.5)  # it may ask before it closes, in another window
            return not left

        wait_until(none_left, limit(15), "all windows closed")
        for url in self.mounts():
            self.session.run("gio", "mount", "--unmount", url, check=False)
        # A program that is just exiting would lose the next window.
        time.sleep(2)

    def log_in(self):
        """Types the password into the dialog that asks for it."""
        if self.manager.accessible:
            wait_until(self._typed, limit(30), f"a field for the password ({self.titles()})")
        else:
            wait_until(lambda: "" in self.titles(), limit(30), "a dialog for the password")
            time.sleep(2)  # a dialog that has just opened loses what is typed
            self.press("Tab")
            self.type(PASSWORD)
        self.press("Return")

    def _typed(self):
        """Types the password; a dialog that has just opened may lose some of it."""
        fields = self.elements(role="password text")
        if not fields:
            return False
        self.click(fields[0])
        self.session.screen.press("Control_L", "a")
        self.type(PASSWORD)
        if self.manager.desktop in ("LXQt", "KDE"):
            return True  # Qt says nothing about a password
        return [len(x.text) for x in self.elements(role="password text")] == [len(PASSWORD)]

    def shows(self, file):
        """Whether a window shows a file of a phone."""
        if self.manager.accessible:
            return bool(self.elements(text=file))
        found = [self.session.run("gio", "list", x, check=False).stdout for x in self.mounts()]
        return any(file in x.splitlines() for x in found)

    def check_shown(self, file):
        what = f"{file!r} on the screen"
        wait_until(lambda: self.shows(file), limit(25), f"{what} (windows: {self.titles()})")

    def check_one_window(self):
        """Checks that the click opened one window, also when those that came late are there."""
        time.sleep(1)
        assert len(self.windows()) == 1, f"more than one window: {self.titles()}"

    def picture(self):
        """The last window of the file manager that is no refusal."""
        shown = [x for x in self.windows() if x.title() not in REFUSALS]
        x, y, width, height = shown[-1].frame()
        return Picture.of(self.session.screen.root, x, y, width, height, X.ZPixmap, 0xFFFFFFFF)
