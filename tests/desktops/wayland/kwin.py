"""KWin with Plasma's panel and system tray."""

import json

from rig.process import limit

from .compositor import SIZE, SOCKET, TITLE, Nested, Window

WINDOWS = """
const all = workspace.windowList ? workspace.windowList() : workspace.clientList();
const told = all.filter(x => !x.minimized).map(x => {
    const frame = x.frameGeometry;
    return [x.caption, String(x.desktopFileName || x.resourceClass),
        [frame.x, frame.y, frame.width, frame.height].map(Math.round), x.active,
        Boolean(x.popupWindow || x.popupMenu), x.normalWindow];
});
print("windows: " + JSON.stringify(told));
"""
CLOSE = """
const all = workspace.windowList ? workspace.windowList() : workspace.clientList();
all.filter(x => x.caption === "Quillbox Helper").forEach(x => x.closeWindow());
print("windows: []");
"""
WALLPAPER = """
desktops().forEach(x => {
    x.wallpaperPlugin = "org.kde.color";
    x.currentConfigGroup = ["Wallpaper", "org.kde.color", "General"];
    x.writeConfig("Color", "128,128,128");
});
"""


class KWin(Nested):
    name = "KWin"
    packages = ("kwin-wayland", "plasma-workspace")
    desktop = "KDE"
    services = (
        *("org.kde.ActivityManager", "org.kde.kiod*", "org.kde.kpasswdserver*"),
        "org.kde.dolphin.FileManager1",
    )
    variables = {"KDE_FULL_SESSION": "true", "QT_QUICK_BACKEND": "software"}
    file_managers = ("org.kde.dolphin",)
    menu_button = 3
    untold_note = "KWin tells no window how high its title bar and how wide its borders are"

    def __init__(self, computer):
        self.release = "6" if computer.has("/usr/bin/kded6") else "5"
        self.untold = (2, 1) if self.release == "6" else (0, 1)
        self.variables = self.variables | {"KDE_SESSION_VERSION": self.release}
        super().__init__(computer)
        self._kwin = None
        self._plasma = None
        self._scripts = 0

    def start(self):
        # With a file capability it would ignore a part of its environment.
        self.computer.run("setcap", "-r", "/usr/bin/kwin_wayland", check=False)
        width, height = SIZE
        self.start_screen()
        self._kwin = self.start_on_screen(
            *("sh", "-c", 'exec kwin_wayland --x11-display "$DISPLAY" "$@"', "kwin"),
            *("--width", str(width), "--height", str(height), "--socket", SOCKET),
            *("--no-lockscreen", "--no-global-shortcuts"),
            KWIN_COMPOSE="Q",
            KWIN_WAYLAND_NO_PERMISSION_CHECKS="1",
            QT_LOGGING_RULES="kwin_scripting.debug=true;js.debug=true",
        )
        self.wait_name("org.kde.KWin")

    def start_panel(self):
        self._start_watcher()
        self._plasma = self.session.start("plasmashell", "--no-respawn")
        self.wait_name("org.kde.plasmashell", 60)
        self.wait(self._panel, "Plasma's panel", 60)
        self.bus_call(
            "org.kde.plasmashell", "/PlasmaShell", "org.kde.PlasmaShell.evaluateScript", WALLPAPER
        )

    def _start_watcher(self):
        """The watcher for status items is a module of kded; the others look for hardware."""
        release = self.release
        folder = f"/usr/lib/x86_64-linux-gnu/qt{release}/plugins/kf{release}/kded"
        modules = self.session.run("ls", folder).stdout.split()
        off = [f"[Module-{x.removesuffix('.so')}]\nautoload=false\n" for x in modules]
        self.session.write(f".config/kded{release}rc", "".join(off))
        self.session.start(f"kded{release}")
        name = f"org.kde.kded{release}"
        self.wait_name(name)
        self.wait(
            lambda: "true" in self.bus_call(name, "/kded", f"{name}.loadModule", "statusnotifierwatcher"),
            "Plasma's watcher for status items",
        )

    def _panel(self):
        """The elements at the right end of the panel, where the tray is, once it is complete."""
        tree = self.elements(self._plasma.pid)
        if not tree or not tree.has("push button", "Digital Clock", showing=True):
            return None
        return [x for x in tree.having("push button", showing=True) if x.place[0] > SIZE[0] // 2]

    def windows(self):
        return [
            Window(title, program, tuple(frame), active)
            for title, program, frame, active, _, is_normal in self._run_script(WINDOWS)
            if is_normal
        ]

    def is_menu_open(self):
        return any(is_popup for *_, is_popup, _ in self._run_script(WINDOWS))

    def choose(self, title):
        """With the keyboard: no interface tells where the entries are. The first two are disabled."""
        for _ in range(("Show Quillbox Helper", "Restart Finder service", "Open in Finder").index(title) + 1):
            self.session.screen.press("Down")
        self.session.screen.press("Return")

    def close_menu(self):
        self.session.screen.press("Escape")

    def _run_script(self, script):
        """Runs a script in KWin; returns what it printed."""
        self._scripts += 1
        name = f"test{self._scripts}"
        self.session.write(f"{name}.js", script)
        since = self._kwin.mark()
        scripting = ("org.kde.KWin", "/Scripting")
        self.bus_call(*scripting, "org.kde.kwin.Scripting.loadScript", self.home(f"{name}.js"), name)
        self.bus_call(*scripting, "org.kde.kwin.Scripting.start")
        line = self._kwin.wait_line(lambda x: "windows: " in x.text, limit(10), since, "KWin's windows")
        self.bus_call(*scripting, "org.kde.kwin.Scripting.unloadScript", name)
        return json.loads(line.text.partition("windows: ")[2].strip('"').replace('\\"', '"'))

    def item(self):
        return next((x.centre() for x in self._panel() or () if x.name == TITLE), None)

    def close_window(self):
        self._run_script(CLOSE)
