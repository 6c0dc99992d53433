"""GNOME Shell with the AppIndicator extension, without a screen."""

import ast
import json
import shutil
import time

from .compositor import NAUTILUS, SIZE, SOCKET, Compositor, Window

EXTENSION = "ubuntu-appindicators@ubuntu.com"
SETTINGS = (
    ("org.gnome.shell", "disable-user-extensions", "false"),
    ("org.gnome.shell", "welcome-dialog-last-shown-version", "'999'"),
    ("org.gnome.desktop.interface", "enable-animations", "false"),
    ("org.gnome.desktop.background", "picture-options", "'none'"),
    ("org.gnome.desktop.background", "primary-color", "'#808080'"),
)
# Evdev numbers of the X11 buttons, as virtual pointers have them.
BUTTONS = {1: 1, 2: 2, 3: 3}

# Its functions for the tests, kept in the shell.
PRELUDE = """
const {Clutter, GLib} = imports.gi;
const pointer = Clutter.get_default_backend().get_default_seat()
    .create_virtual_device(Clutter.InputDeviceType.POINTER_DEVICE);
const now = () => GLib.get_monotonic_time();
const centre = actor => {
    const [x, y] = actor.get_transformed_position(), [w, h] = actor.get_transformed_size();
    return [Math.round(x + w / 2), Math.round(y + h / 2)];
};
const indicator = () => Object.entries(Main.panel.statusArea)
    .filter(([name, actor]) => name.startsWith('appindicator-') && actor.visible).map(x => x[1])[0];
global.test = {
    move: (x, y) => pointer.notify_absolute_motion(now(), x, y),
    press: button => pointer.notify_button(now(), button, Clutter.ButtonState.PRESSED),
    release: button => pointer.notify_button(now(), button, Clutter.ButtonState.RELEASED),
    windows: () => global.get_window_actors().map(x => x.meta_window)
        .filter(x => x.showing_on_its_workspace() && !x.minimized)
        .map(x => [x.title, x.get_wm_class(), x.get_frame_rect(), x.has_focus()])
        .map(([title, program, f, active]) => [title, program, [f.x, f.y, f.width, f.height], active]),
    item: () => indicator() ? centre(indicator()) : null,
    isMenuOpen: () => Boolean(indicator()?.menu?.isOpen),
    closeMenu: () => indicator().menu.close(),
    entry: title => indicator().menu._getMenuItems()
        .filter(x => x.label?.text === title).map(centre)[0] ?? null,
};
Main.overview.hide();
Main.messageTray.getSources().forEach(x => x.destroy());
true
"""


class GnomeShell(Compositor):
    name = "GNOME Shell"
    packages = ("gnome-shell", "gnome-shell-extension-appindicator")
    desktop = "GNOME"
    services = (*NAUTILUS, "org.freedesktop.portal.*", "org.freedesktop.impl.portal.*")
    file_managers = ("org.gnome.Nautilus",)

    def start(self):
        self.computer.start(["python3", "-m", "dbusmock", "--system", "--template", "logind"])
        self.computer.run("gdbus", "wait", "--system", "--timeout", "20", "org.freedesktop.login1")
        self.session.start_bus()
        for schema, key, value in SETTINGS:
            self.session.run("gsettings", "set", schema, key, value)
        width, height = SIZE
        self.session.start(
            *("--unset=WAYLAND_DISPLAY", "gnome-shell", "--headless", "--wayland", "--no-x11"),
            *("--virtual-monitor", f"{width}x{height}", "--wayland-display", SOCKET),
            "--unsafe-mode",  # lets the session bus ask for pictures and evaluate scripts
        )
        self.wait_name("org.gnome.Shell", 60)
        self.wait(self._has_started, "GNOME Shell", 60)
        # As with a mouse plugged in; the shell starts with all windows side by side.
        self.wait(lambda: self._evaluate(PRELUDE), "a pointer")
        self.wait(lambda: not self._evaluate("Main.overview.visible"), "the end of the overview")

    def _has_started(self):
        try:
            return self._evaluate("!Main.layoutManager._startingUp")
        except AssertionError:  # not yet on the bus
            return False

    def _evaluate(self, script):
        told = self.bus_call(
            "org.gnome.Shell", "/org/gnome/Shell", "org.gnome.Shell.Eval", script, timeout=20
        )
        done, _, text = told.strip()[1:-1].partition(", ")
        text = ast.literal_eval(text)
        if done != "true":
            raise AssertionError(f"GNOME Shell: {text}")
        return json.loads(text) if text else None

    def start_panel(self):
        self._evaluate(f"Main.extensionManager.enableExtension('{EXTENSION}')")
        self.wait_name("org.kde.StatusNotifierWatcher")

    def windows(self):
        told = self._evaluate("global.test.windows()")
        return [Window(title, program, tuple(frame), active) for title, program, frame, active in told]

    def save_picture(self, path):
        self.bus_call(
            *("org.gnome.Shell", "/org/gnome/Shell/Screenshot"),
            *("org.gnome.Shell.Screenshot.Screenshot", "false", "false", "/tmp/picture.png"),
        )
        shutil.copy(f"{self.computer.root}/tmp/picture.png", path)

    def move_pointer(self, x, y):
        self._evaluate(f"global.test.move({x}, {y}); 1")
        time.sleep(0.1)  # the shell follows the pointer with its next frame

    def press_button(self, button, is_down):
        self._evaluate(f"global.test.{'press' if is_down else 'release'}({BUTTONS[button]}); 1")

    def item(self):
        return self._evaluate("global.test.item()")

    def is_menu_open(self):
        return self._evaluate("global.test.isMenuOpen()")

    def close_menu(self):
        self._evaluate("global.test.closeMenu(); 1")

    def choose(self, title):
        place = self.wait(lambda: self._evaluate(f"global.test.entry('{title}')"), title)
        self.click(*place)

    def close_window(self):
        self._evaluate(
            "global.get_window_actors().map(x => x.meta_window)"
            ".find(x => x.title === 'Quillbox Helper').delete(global.get_current_time()); 1"
        )
