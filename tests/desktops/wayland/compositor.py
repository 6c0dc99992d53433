"""What the tests need of a compositor; the modules beside this one say how each provides it."""

import dataclasses
import json
import os
import shutil

from desktop.node import Node
from real.session import HOME
from rig.process import limit, wait_until

TITLE = "Quillbox Helper"
PROGRAMS = ("org.quillbox.Helper", "quillbox-helper")
SOCKET = "wayland-1"  # sway takes the first free one and cannot be told otherwise
SIZE = (1024, 768)
GREY = 0x80  # each channel of the wallpaper: a colour that neither windows nor panels have
# What Nautilus needs where no desktop brings a file manager.
NAUTILUS = (
    *("org.gtk.vfs.*", "org.freedesktop.secrets"),
    *("org.freedesktop.FileManager1", "org.gnome.Nautilus"),
)
HERE = os.path.dirname(os.path.abspath(__file__))


@dataclasses.dataclass(frozen=True)
class Window:
    """A window as the compositor sees it. Its frame is (x, y, width, height) of what is visible of it, with
    title bar and without shadow; None where the compositor does not tell."""

    title: str
    program: str
    frame: tuple | None
    active: bool

    def is_of_the_program(self):
        return self.program in PROGRAMS


class Compositor:
    """A compositor in the session of an ordinary user, and the panel that belongs to it."""

    name = ""
    packages = ()  # whose versions the page shows, its own first
    desktop = ""  # XDG_CURRENT_DESKTOP
    services = ()  # of the session bus
    variables = {}
    file_managers = ()  # programs whose windows are those of its file manager, the default for folders
    has_status_items = True
    no_status_items = None  # why not
    has_menus = True
    no_menus = None
    menu_button = 1  # of the pointer
    # What a frame has more than the program asks for, in width and height, because the compositor
    # decorates windows without telling them by how much.
    untold = (0, 0)
    untold_note = None

    def __init__(self, computer):
        self.computer = computer
        # Services get the environment of the bus, so that it must be complete by now.
        self.session = computer.log_in(
            self.desktop,
            services=self.services,
            WAYLAND_DISPLAY=SOCKET,
            XDG_SESSION_TYPE="wayland",
            LIBGL_ALWAYS_SOFTWARE="1",
            **self.variables,
        )
        # Most of the file managers that are installed beside it need X11.
        default = f"inode/directory={self.file_managers[0]}.desktop"
        self.session.write(".config/mimeapps.list", f"[Default Applications]\n{default}\n")
        self.helper = None
        self._reader = None

    # ---- what each compositor provides ----

    def start(self):
        """Starts session bus and compositor, without a panel for status items."""
        raise NotImplementedError

    def start_panel(self):
        """Starts what shows status items."""

    def windows(self):
        raise NotImplementedError

    def save_picture(self, path):
        raise NotImplementedError

    def move_pointer(self, x, y):
        raise NotImplementedError

    def press_button(self, button, is_down):
        raise NotImplementedError

    def item(self):
        """The centre of the program's status item, or None."""
        return None

    def choose(self, title):
        """Chooses an entry of the status item's menu, which is open."""
        raise NotImplementedError

    def is_menu_open(self):
        raise NotImplementedError

    def close_menu(self):
        raise NotImplementedError

    def close_window(self):
        """Closes the program's window as the button in its title bar does."""
        raise NotImplementedError

    # ---- the same everywhere ----

    def wait(self, check, what, timeout=15):
        return wait_until(check, limit(timeout), what)

    def start_program(self):
        """Starts the program and waits for its window."""
        self.helper = self.session.helper("--verbose")
        return self.wait(self.window, "the program's window")

    def window(self):
        """The program's window if it is on the screen, or None."""
        return next((x for x in self.windows() if x.is_of_the_program()), None)

    def active(self):
        return next((x for x in self.windows() if x.active), None)

    def is_in_front(self):
        active = self.active()
        return active is not None and active.is_of_the_program()

    def elements(self, pid, depth=100):
        """The accessibility tree of a program, up to a depth; None while it has none."""
        if self._reader is None:
            folder = f"{self.computer.folder}/parts"
            os.makedirs(folder, exist_ok=True)
            self._reader = shutil.copy(os.path.join(HERE, "elements.py"), folder)
        done = self.session.run("python3", self._reader, str(pid), str(depth), timeout=60)
        told = json.loads(done.stdout)
        return None if told is None else Node(told)

    def is_file_manager_in_front(self):
        active = self.active()
        return active is not None and active.program in self.file_managers

    def content(self):
        """The accessibility tree of the program's window."""

        def read():
            tree = self.elements(self.helper.pid)
            return tree and next((x for x in tree.children if x.name == TITLE), None)

        return self.wait(read, "the accessibility tree")

    def place(self, node):
        """The centre of an element of the program's window on the screen. On Wayland a program knows only
        where elements are within its window; decorations take the same at the sides and at the bottom."""
        window, content = self.window(), self.content()
        x, y, width, height = window.frame
        left, top, content_width, content_height = content.place
        side = (width - content_width) // 2
        node_x, node_y = node.centre()
        return x + side + node_x - left, y + height - side - content_height + node_y - top

    def click_node(self, role, name):
        self.click(*self.place(self.content().find(role, name, showing=True)))

    def click(self, x, y, button=1):
        self.move_pointer(x, y)
        self.press_button(button, True)
        self.press_button(button, False)

    def cover(self):
        """Opens a window of another program, which then has the focus."""
        self.session.start("weston-flower")
        self.wait(lambda: not self.is_in_front(), "a window of another program in front")

    def bus_call(self, destination, path, method, *arguments, timeout=10):
        """Calls a method on the session bus; returns the answer as gdbus prints it."""
        seconds = str(int(limit(timeout)))
        command = ("gdbus", "call", "--session", "--timeout", seconds, "--dest", destination)
        return self.session.run(
            *command, "--object-path", path, "--method", method, *arguments, timeout=timeout + 5
        ).stdout

    def wait_name(self, name, timeout=30, bus="--session"):
        """Waits until a name has an owner on the bus."""
        self.session.run(
            *("gdbus", "wait", bus, "--timeout", str(int(limit(timeout))), name),
            timeout=timeout + 5,
        )

    def home(self, path):
        return f"{HOME}/{path}"


class Nested(Compositor):
    """A compositor whose screen is a window of Xvfb: its pointer and keyboard are the X server's."""

    def __init__(self, computer):
        super().__init__(computer)
        self._display = None

    def start_screen(self):
        """Starts the X server, and the session bus."""
        self.session.start_screen(SIZE, manager=False, tray=False)
        # Programs of the session do not see it.
        self._display = self.session.variables.pop("DISPLAY")
        self.session.start_bus()

    def start_on_screen(self, *command, **variables):
        """Starts a compositor whose screen is the X server's, and waits until it shows it."""
        process = self.session.start(
            "--unset=WAYLAND_DISPLAY", *command, DISPLAY=self._display, **variables
        )
        children = self.session.screen.root.query_tree
        self.wait(lambda: list(children().children), f"the screen of {self.name}", 30)
        return process

    def save_picture(self, path):
        self.session.screen.picture().save(path)

    def move_pointer(self, x, y):
        self.session.screen.move_pointer(x, y)

    def press_button(self, button, is_down):
        if is_down:
            pointer = self.session.screen.root.query_pointer()
            self.session.screen.hold(pointer.root_x, pointer.root_y, button)
        else:
            self.session.screen.let_go(button)
