"""One window as the window manager reports it."""

from Xlib import X, Xutil
from Xlib.error import BadDrawable, BadWindow

FROM_A_TOOL = 2  # the source indication of pagers and taskbars in messages (EWMH)


class ClientWindow:
    """A window managed by the window manager; it may have been closed in the meantime."""

    def __init__(self, screen, identifier):
        self.screen = screen
        self.identifier = identifier
        self.x_window = screen.display.create_resource_object("window", identifier)

    def __eq__(self, other):
        return isinstance(other, ClientWindow) and self.identifier == other.identifier

    def __hash__(self):
        return hash(self.identifier)

    def __repr__(self):
        return f"<window {self.identifier:#x} {self.title()!r}>"

    # ---- what it is ----

    def title(self):
        raw = self._property("_NET_WM_NAME")
        return bytes(raw).decode("utf-8", "replace") if raw is not None else None

    def program(self):
        """The first part of WM_CLASS."""
        try:
            pair = self.x_window.get_wm_class()
        except (BadWindow, BadDrawable):
            return None
        return pair[0] if pair else None

    def states(self):
        """The names of its states, such as "_NET_WM_STATE_SKIP_TASKBAR"."""
        atoms = self._property("_NET_WM_STATE")
        return {self.screen.display.get_atom_name(atom) for atom in atoms or ()}

    def workspace(self):
        """The number of its workspace; None if the window manager has not set it."""
        number = self._property("_NET_WM_DESKTOP")
        return number[0] if number else None

    def is_mapped(self):
        """Whether it is on the screen: neither hidden, nor minimised, nor on another workspace."""
        try:
            return self.x_window.get_attributes().map_state == X.IsViewable
        except (BadWindow, BadDrawable):
            return False

    def is_managed(self):
        return self in self.screen.clients()

    def is_minimised(self):
        return "_NET_WM_STATE_HIDDEN" in self.states()

    def is_in_taskbar(self):
        """Whether a taskbar shows it: it is managed and does not have the skip-taskbar state."""
        return self.is_managed() and "_NET_WM_STATE_SKIP_TASKBAR" not in self.states()

    def is_active(self):
        """Whether it has the keyboard focus."""
        return self.screen.active() == self

    def is_in_front(self):
        """Whether it is on the screen and above all other windows except trays and panels."""
        others = [x for x in self.screen.stacking() if not x.is_dock()]
        return self.is_mapped() and bool(others) and others[-1] == self

    def is_dock(self):
        """Whether it is a tray or a panel; these stay above all other windows."""
        kinds = self._property("_NET_WM_WINDOW_TYPE") or ()
        return self.screen.atom("_NET_WM_WINDOW_TYPE_DOCK") in kinds

    # ---- where it is ----

    def content(self):
        """(x, y, width, height) of the area that the program draws, in screen coordinates."""
        size = self.x_window.get_geometry()
        place = self.screen.root.translate_coords(self.x_window, 0, 0)
        return place.x, place.y, size.width, size.height

    def extents(self):
        """(left, right, top, bottom): the sizes of the window manager's decorations."""
        return tuple(self._property("_NET_FRAME_EXTENTS") or (0, 0, 0, 0))

    def frame(self):
        """(x, y, width, height) with title bar and borders."""
        x, y, width, height = self.content()
        left, right, top, bottom = self.extents()
        return x - left, y - top, width + left + right, height + top + bottom

    # ---- what a user does with it, by a taskbar or its title bar ----

    def close(self):
        """Closes it like the button in its title bar."""
        self.screen.ask_manager(self.x_window, "_NET_CLOSE_WINDOW", X.CurrentTime, FROM_A_TOOL)

    def activate(self):
        self.screen.ask_manager(self.x_window, "_NET_ACTIVE_WINDOW", FROM_A_TOOL, X.CurrentTime, 0)

    def minimise(self):
        self.screen.ask_manager(self.x_window, "WM_CHANGE_STATE", Xutil.IconicState)

    def move_to_workspace(self, number):
        self.screen.ask_manager(self.x_window, "_NET_WM_DESKTOP", number, FROM_A_TOOL)

    def _property(self, name):
        try:
            found = self.x_window.get_full_property(self.screen.atom(name), X.AnyPropertyType)
        except (BadWindow, BadDrawable):
            return None
        return found.value if found else None
