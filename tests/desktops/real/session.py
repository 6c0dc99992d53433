"""A user's session on a real computer: environment, session bus, screen, and the programs in it."""

import glob
import os
import re
import shutil

from desktop.screen import Screen
from rig.process import limit, run, wait_until

from .releases import UID, USER

HOME = f"/home/{USER}"
RUNTIME = f"/run/user/{UID}"
BUS = f"unix:path={RUNTIME}/bus"
AS_USER = ["setpriv", f"--reuid={UID}", f"--regid={UID}", "--clear-groups", "--"]
FIRST_NAMESPACE = 0xF0000000  # inode numbers of namespaces start here (PROC_DYNAMIC_FIRST)

# The services that every desktop has. A desktop adds its own: with all desktops installed, any of them
# could otherwise become the file manager or the keyring of another.
COMMON_SERVICES = ("org.a11y.Bus", "ca.desrt.dconf")

BUS_CONF = """<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <listen>{bus}</listen>
  <auth>EXTERNAL</auth>
  <servicedir>{services}</servicedir>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
</busconfig>
"""


class Session:
    """`desktop` becomes XDG_CURRENT_DESKTOP; `services` are patterns of files in
    /usr/share/dbus-1/services; `variables` are added to the environment of every program."""

    def __init__(self, computer, desktop, services=(), **variables):
        self.computer = computer
        self.desktop = desktop
        self.variables = variables
        self._services = (*COMMON_SERVICES, *services)
        self.bus = None
        self.screen = None

    # ---- programs ----

    def environment(self, **more):
        there = {
            "PATH": "/usr/local/bin:/usr/bin:/bin:/usr/games",
            "HOME": HOME,
            "USER": USER,
            "LOGNAME": USER,
            "SHELL": "/bin/sh",
            "LANG": "C.UTF-8",
            "XDG_RUNTIME_DIR": RUNTIME,
            "XDG_CURRENT_DESKTOP": self.desktop,
            "DBUS_SESSION_BUS_ADDRESS": BUS,
            # Programs without it show nothing on the accessibility bus until a screen reader starts.
            "QT_LINUX_ACCESSIBILITY_ALWAYS_ON": "1",
            # There is no fuse device in the namespaces of the tests.
            "GVFS_DISABLE_FUSE": "1",
        }
        return there | self.variables | more

    def start(self, *command, stdin=False, **variables):
        """Starts a program of the user."""
        return self.computer.start(
            [*AS_USER, "env", f"--chdir={HOME}", *command],
            env=self.environment(**variables),
            stdin=stdin,
        )

    def run(self, *command, timeout=30, check=True, **more):
        """Runs a program of the user to its end."""
        variables = more.pop("variables", {})
        return run(
            self.computer.inside([*AS_USER, "env", f"--chdir={HOME}", *command]),
            popen=self.computer.popen,
            timeout=limit(timeout),
            check=check,
            env=self.environment(**variables),
            **more,
        )

    def write(self, path, text):
        """Writes a file in the user's home folder."""
        whole = f"{self.computer.root}{HOME}/{path}"
        self.run("mkdir", "-p", os.path.dirname(f"{HOME}/{path}"))
        with open(whole, "w", encoding="utf-8") as file:
            file.write(text)
        os.chown(whole, UID, UID)

    # ---- what a login starts ----

    def start_bus(self):
        """Starts the session bus; call it when the environment that services get is complete. Only
        the services of this desktop can be activated."""
        computer = self.computer
        folder = f"{computer.folder}/services"
        os.makedirs(folder)
        there = f"{computer.root}/usr/share/dbus-1/services"
        for pattern in self._services:
            for path in glob.glob(f"{there}/{pattern}.service"):
                shutil.copy(path, folder)
        conf = f"{computer.folder}/session.conf"
        with open(conf, "w", encoding="utf-8") as file:
            file.write(BUS_CONF.format(bus=BUS, services=folder))
        self.bus = self.start(
            "dbus-daemon", f"--config-file={conf}", "--nofork", "--nopidfile", "--print-address"
        )
        self.bus.wait_line(lambda x: x.text.startswith("unix:"), limit(20), what="the session bus")
        # As a desktop does when its screen reader is turned on.
        self.run(
            *("gdbus", "call", "--session", "--dest", "org.a11y.Bus", "--object-path", "/org/a11y/bus"),
            *("--method", "org.freedesktop.DBus.Properties.Set", "org.a11y.Status", "IsEnabled"),
            "<true>",
        )

    def start_screen(self, size=(1280, 900), tray=True, manager=True):
        """Starts an X server with, unless told otherwise, a window manager and a tray. These come from
        this computer; the desktop's programs see no difference."""
        # As X servers share /tmp/.X11-unix, but cannot see which numbers servers in other namespaces
        # use, it has the number of its network namespace, which is unique.
        number = os.stat(f"/proc/{self.computer.pid}/ns/net").st_ino - FIRST_NAMESPACE
        server = self.computer.start_beside(
            ["Xvfb", f":{number}", "-displayfd", "1", "-screen", "0", f"{size[0]}x{size[1]}x24"]
            + ["-ac", "-nolisten", "tcp", "-noreset"]
        )
        server.wait_line(lambda x: x.text == str(number), limit(20), what="Xvfb")
        self.screen = Screen(f":{number}")
        self.variables["DISPLAY"] = f":{number}"
        if manager:
            self._start_manager()
        if tray:
            self.computer.start_beside(
                ["trayer", "--edge", "bottom", "--align", "right", "--widthtype", "request"]
                + ["--height", "26", "--SetDockType", "true", "--SetPartialStrut", "true"],
                DISPLAY=self.screen.name,
            )
            selection = self.screen.atom("_NET_SYSTEM_TRAY_S0")
            wait_until(
                lambda: self.screen.display.get_selection_owner(selection), limit(10), "the tray"
            )

    def _start_manager(self):
        manager = self.computer.start_beside(
            ["openbox", "--sm-disable", "--config-file", "/etc/xdg/openbox/rc.xml"]
            + ["--startup", "echo ready"],
            DISPLAY=self.screen.name,
        )
        manager.wait_line(lambda x: x.text == "ready", limit(20), what="openbox")

    def helper(self, *arguments, **variables):
        """Starts the program and waits until it answers commands."""
        process = self.start("quillbox-helper", *arguments, **variables)
        wait_until(
            lambda: self.run("quillbox-helper", "status", check=False).returncode == 0,
            limit(20),
            "an answer of the program",
        )
        return process

    def wait_visible(self, count, timeout=20):
        """Waits until the program reports that many phones as visible."""
        text = f"ready: {count} Quillbox device{'' if count == 1 else 's'} visible in Finder"
        wait_until(
            lambda: text in self.run("quillbox-helper", "status", check=False).stdout,
            limit(timeout),
            text,
        )

    def processes(self, pattern):
        """The ids of the user's processes whose command line matches."""
        done = self.run("pgrep", "--euid", str(UID), "--full", pattern, check=False)
        return [int(x) for x in re.findall(r"\d+", done.stdout)]

    def close(self):
        if self.screen is not None:
            self.screen.close()
