"""The user's computer with a desktop: a screen, a session bus, a panel and a file manager."""

import json
import os
import shlex

from .computer import MULTICAST_NAMES, Computer
from .network import SESSION_BUS
from .onlooker import HERE, PYTHON
from .process import limit, wait_until

# Every host can use display 1: abstract sockets belong to its network namespace. A lock file and a
# socket in the file system would be shared by the whole machine.
DISPLAY = ":1"
SCREEN = ["Xvfb", DISPLAY, "-displayfd", "1", "-nolock", "-screen", "0", "800x600x24"]
# A server that resets when its last client disconnects may refuse the next one during the reset.
SCREEN += ["-nolisten", "tcp", "-nolisten", "unix", "-noreset"]

BROWSER = """[Desktop Entry]
Type=Application
Name=Browser
Exec={program} %u
MimeType=x-scheme-handler/https;
"""

FILES = """[Desktop Entry]
Type=Application
Name=Files
Exec={program} %U
MimeType=inode/directory;
"""


class Desktop(Computer):
    """A computer whose user has logged in. desk.py plays the panel and the file manager."""

    def __init__(self, lan, name, number):
        super().__init__(lan, name, number)
        self._desk = None
        self._session = {}
        self._opened = os.path.join(self.folder, "opened")
        self._environment = os.path.join(self.folder, "environment")

    def environment(self, **more):
        return super().environment(**(self._session | more))

    def log_in(self, *parts):
        """With a panel; `parts` are those of desk.py that the desktop has, too."""
        self.set_name_service(MULTICAST_NAMES)
        screen = self.start(SCREEN)
        self.start_session_bus()
        screen.wait_line(lambda line: line.text.isdigit(), 20, what="the screen")
        self._session = {
            "DISPLAY": DISPLAY,
            "DBUS_SESSION_BUS_ADDRESS": SESSION_BUS,
            "XDG_CURRENT_DESKTOP": "GNOME",
        }
        self._desk = self.start_quickly(f"{HERE}/desk.py", *parts)
        self._told("ready", 10)

    def _told(self, event, timeout, since=0):
        """Waits for a report `event` of the panel or the file manager; returns it and its time."""

        def wanted(line):
            return line.text.startswith("{") and json.loads(line.text)["event"] == event

        line = self._desk.wait_line(wanted, timeout, since, event)
        return json.loads(line.text), line.at

    def choose(self, title):
        """Chooses an entry of the status item's menu; returns when."""
        self._told("item", limit(10))
        since = self._desk.mark()
        self._desk.write(title + "\n")
        return self._told("chosen", limit(5), since)[1]

    def shown_folder(self, timeout):
        """The folder that the file manager is asked to show, and when."""
        told, at = self._told("folder", timeout)
        return told["name"], at

    def shown_folders(self):
        """All folders that the file manager has been asked to show."""
        told = [json.loads(x.text) for x in self._desk.lines if x.text.startswith("{")]
        return [each["name"] for each in told if each["event"] == "folder"]

    def notification(self, timeout):
        """Title and text of the first notification."""
        told, _ = self._told("notification", timeout)
        return told["title"], told["text"]

    def asked_portal(self, timeout):
        """What the portal was asked for: whether to start at login, and with which command line."""
        told, _ = self._told("autostart", timeout)
        return told["wanted"], told["command"]

    def windows(self):
        """The titles of the windows that are on the screen."""
        return self.run(PYTHON, f"{HERE}/titles.py", env=self.environment()).stdout.splitlines()

    def install_browser(self):
        """Installs a browser that records its arguments, as the user's default for https."""
        self._install("browser", BROWSER, "x-scheme-handler/https")

    def install_file_manager(self):
        """Installs a file manager that records its arguments, as the user's default for folders."""
        self._install("files", FILES, "inode/directory")

    def _install(self, name, entry, opened_type):
        program = os.path.join(self.folder, name)
        opened, seen = shlex.quote(self._opened), shlex.quote(self._environment)
        with open(program, "w", encoding="utf-8") as file:
            file.write(f"#!/bin/sh\nenv >{seen}\nprintf '%s\\n' \"$#\" \"$@\" >>{opened}\n")
        os.chmod(program, 0o755)
        data = os.path.join(self.environment()["HOME"], ".local", "share", "applications")
        config = self.environment()["XDG_CONFIG_HOME"]
        os.makedirs(data)
        os.makedirs(config, exist_ok=True)
        with open(os.path.join(data, f"{name}.desktop"), "w", encoding="utf-8") as file:
            file.write(entry.format(program=program))
        with open(os.path.join(config, "mimeapps.list"), "w", encoding="utf-8") as file:
            file.write(f"[Default Applications]\n{opened_type}={name}.desktop\n")

    def opened_urls(self, timeout):
        """Waits until browser or file manager has been started; returns the URLs that it was given."""

        def read():
            if not os.path.exists(self._opened):
                return None
            with open(self._opened, encoding="utf-8") as file:
                text = file.read()
            return text.splitlines() if text.count("\n") > 1 else None

        lines = wait_until(read, timeout, "the program")
        assert lines[0::2] == ["1"] * (len(lines) // 2), lines
        return lines[1::2]

    def environment_of_opened(self):
        """The environment in which the browser or file manager was started."""
        with open(self._environment, encoding="utf-8") as file:
            return dict(line.split("=", 1) for line in file.read().splitlines() if "=" in line)

    def has_opened_nothing(self):
        return not os.path.exists(self._opened)
