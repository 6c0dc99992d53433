"""sway, with its own bar as the panel."""

import json

from .compositor import NAUTILUS, SIZE, Nested, Window

CONFIG = f"""output * resolution {SIZE[0]}x{SIZE[1]} background #808080 solid_color
xwayland disable
"""
BAR = """bar {
    position top
    colors {
        background #000000
    }
}
"""


class Sway(Nested):
    name = "sway"
    packages = ("sway",)
    desktop = "sway"
    services = NAUTILUS
    file_managers = ("org.gnome.Nautilus",)
    has_menus = False
    no_menus = "sway's bar shows no menus; it only says that it was clicked"
    untold = (4, -1)
    untold_note = "sway tells no window how high its title bar and how wide its borders are"

    def start(self):
        self.session.write("sway.conf", CONFIG)
        self.start_screen()
        self.start_on_screen(
            *("sway", "--config", self.home("sway.conf")),
            WLR_BACKENDS="x11",
            WLR_RENDERER="pixman",
        )
        self.wait(self._outputs, "sway's output", 30)

    def _message(self, *arguments):
        sockets = self.session.run("sh", "-c", "echo $XDG_RUNTIME_DIR/sway-ipc.*").stdout
        done = self.session.run(
            "swaymsg", "--socket", sockets.strip(), "--raw", *arguments, check=False
        )
        return json.loads(done.stdout) if done.returncode == 0 else None

    def _outputs(self):
        return [x for x in self._message("--type", "get_outputs") or () if x["active"]]

    def start_panel(self):
        self.session.write("sway.conf", CONFIG + BAR)
        self._message("reload")
        self.wait(self._bar_height, "sway's bar")
        self.wait_name("org.kde.StatusNotifierWatcher")

    def _bar_height(self):
        (workspace,) = self._message("--type", "get_workspaces")
        return workspace["rect"]["y"]

    def windows(self):
        found = []

        def visit(node):
            if node.get("pid") and node["type"] in ("con", "floating_con"):
                # A tiled window's title bar is above its rectangle, as is a floating one's.
                rect, bar = node["rect"], node["deco_rect"]["height"]
                frame = (rect["x"], rect["y"] - bar, rect["width"], rect["height"] + bar)
                if node["visible"]:
                    found.append(Window(node["name"], node["app_id"], frame, node["focused"]))
            for child in node["nodes"] + node["floating_nodes"]:
                visit(child)

        visit(self._message("--type", "get_tree"))
        return found

    def item(self):
        """The bar's item is a square at its right end."""
        size = self._bar_height()
        picture = self.session.screen.picture()
        left = picture.width - size
        if all(picture.pixel(x, y) == (0, 0, 0) for x in range(left, left + size) for y in range(size)):
            return None
        return picture.width - size // 2, size // 2

    def close_window(self):
        self._message('[app_id="org.quillbox.Helper"] kill')
