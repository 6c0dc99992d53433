"""The screen of a desktop: state from the window manager, pointer and keyboard."""

import contextlib

from Xlib import XK, X, display
from Xlib.error import BadDrawable, BadWindow
from Xlib.ext import xtest
from Xlib.protocol import event

from .client_window import ClientWindow
from .picture import Picture


class Screen:
    """An X display, as a client other than the program under test sees it."""

    def __init__(self, name):
        self.name = name
        self.display = display.Display(name)
        self.root = self.display.screen().root
        self._listeners = []

    def close(self):
        for each in [*self._listeners, self.display]:
            each.close()

    def atom(self, name):
        return self.display.get_atom(name)  # from the library's cache, unlike intern_atom

    # ---- the window manager ----

    def clients(self):
        """All windows that it manages, in mapping order; hidden ones are not managed."""
        return [ClientWindow(self, x) for x in self._property("_NET_CLIENT_LIST") or ()]

    def stacking(self):
        """The same windows, from the bottom to the top of the stacking order."""
        return [ClientWindow(self, x) for x in self._property("_NET_CLIENT_LIST_STACKING") or ()]

    def active(self):
        """The window that has the keyboard focus, or None."""
        found = self._property("_NET_ACTIVE_WINDOW")
        return ClientWindow(self, found[0]) if found and found[0] else None

    def workspace(self):
        return self._property("_NET_CURRENT_DESKTOP")[0]

    def go_to_workspace(self, number):
        self.ask_manager(self.root, "_NET_CURRENT_DESKTOP", number, X.CurrentTime)

    def ask_manager(self, window, kind, *data):
        """Sends the window manager a message about a window."""
        values = [*data, 0, 0, 0, 0, 0][:5]
        message = event.ClientMessage(window=window, client_type=self.atom(kind), data=(32, values))
        self.root.send_event(
            message, event_mask=X.SubstructureRedirectMask | X.SubstructureNotifyMask
        )
        self.display.sync()

    # ---- events on the root window ----

    def watch_messages(self, kind):
        """Starts recording client messages of a type to the window manager; returns a function that
        lists the data of each message."""
        return self._watch(
            X.SubstructureNotifyMask,
            lambda event: list(event.data[1])
            if event.type == X.ClientMessage and event.client_type == self.atom(kind)
            else None,
        )

    def watch_opened_windows(self):
        """Starts recording windows that are mapped; returns a function that lists them."""
        return self._watch(
            X.SubstructureNotifyMask,
            lambda event: event.window.id if event.type == X.MapNotify else None,
        )

    def watch_startups(self):
        """Starts recording messages of the Startup Notification Protocol; returns a function that
        lists them."""
        kinds = [self.atom("_NET_STARTUP_INFO_BEGIN"), self.atom("_NET_STARTUP_INFO")]
        parts = self._watch(
            X.PropertyChangeMask,
            lambda event: bytes(event.data[1])
            if event.type == X.ClientMessage and event.client_type in kinds
            else None,
        )
        return lambda: [x.decode() for x in b"".join(parts()).split(b"\0") if x]

    def _watch(self, mask, found):
        """Collects what `found` returns for the root window's events, on a separate connection."""
        listener = display.Display(self.name)
        self._listeners.append(listener)
        listener.screen().root.change_attributes(event_mask=mask)
        listener.sync()
        collected = []

        def all_so_far():
            listener.sync()
            while listener.pending_events():
                what = found(listener.next_event())
                if what is not None:
                    collected.append(what)
            return collected

        return all_so_far

    # ---- windows ----

    def size(self):
        geometry = self.root.get_geometry()
        return geometry.width, geometry.height

    def open_window(self, title, x, y, width, height):
        """Opens a window of another program."""
        window = self.root.create_window(
            x, y, width, height, 0, X.CopyFromParent, background_pixel=0x336699
        )
        window.set_wm_name(title)
        window.set_wm_class("another", "Another")
        window.set_wm_normal_hints(flags=1 | 2, x=x, y=y, width=width, height=height)
        window.map()
        self.display.sync()
        return ClientWindow(self, window.id)

    def popups(self):
        """Visible windows that are not managed (override-redirect): menus and tooltips."""
        for window in self.root.query_tree().children:
            try:
                attributes = window.get_attributes()
            except (BadWindow, BadDrawable):
                continue
            if attributes.override_redirect and attributes.map_state == X.IsViewable:
                yield ClientWindow(self, window.id)

    def client(self, window):
        """A ClientWindow for an X window, which may be unmanaged."""
        return ClientWindow(self, window.id)

    def windows_within(self, window=None):
        """All X windows below a window (by default the root window), breadth first."""
        waiting = [window or self.root]
        while waiting:
            try:
                children = waiting.pop(0).query_tree().children
            except (BadWindow, BadDrawable):
                continue
            waiting += children
            yield from children

    # ---- hands ----

    def move_pointer(self, x, y):
        xtest.fake_input(self.display, X.MotionNotify, x=int(x), y=int(y))
        self.display.sync()

    def hold(self, x, y, button=1):
        """Moves the pointer there and presses the button."""
        self.move_pointer(x, y)
        xtest.fake_input(self.display, X.ButtonPress, button)
        self.display.sync()

    def let_go(self, button=1):
        xtest.fake_input(self.display, X.ButtonRelease, button)
        self.display.sync()

    def click(self, x, y, button=1):
        """Moves the pointer there, presses and releases the button."""
        self.hold(x, y, button)
        self.let_go(button)

    def press(self, *names):
        """Presses keys together, given by keysym names: press("Control_L", "q")."""
        with self.holding(*names):
            pass

    @contextlib.contextmanager
    def holding(self, *names):
        """Presses keys together, and releases them at the end."""
        codes = [self.display.keysym_to_keycode(XK.string_to_keysym(name)) for name in names]
        for code in codes:
            xtest.fake_input(self.display, X.KeyPress, code)
        self.display.sync()
        yield
        for code in reversed(codes):
            xtest.fake_input(self.display, X.KeyRelease, code)
        self.display.sync()

    def picture(self):
        return Picture.of(self.root, 0, 0, *self.size(), X.ZPixmap, 0xFFFFFFFF)

    def _property(self, name):
        found = self.root.get_full_property(self.atom(name), X.AnyPropertyType)
        return found.value if found else None
