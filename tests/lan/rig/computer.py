"""The user's computer, with the program under test."""

import json
import os
import re
import shutil
import signal
import time

from .network import Host
from .onlooker import HERE, PYTHON
from .process import limit

# As on desktops with libnss-mdns, so that programs can resolve .local host names.
MULTICAST_NAMES = "files mdns4_minimal [NOTFOUND=return] dns"

ROOT = os.path.abspath(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", ".."))
PROGRAM = os.environ.get("QUILLBOX_HELPER", os.path.join(ROOT, "build/release/quillbox-helper"))

# The programs of its DNS-SD engines, beside it in a build.
ENGINES = [
    os.path.join(os.path.dirname(PROGRAM), name)
    for name in ("quillbox-dns-sd-daemon", "quillbox-dns-sd-responder")
]

# Must never appear in the program's output: complaints of sanitizers, the C library and Qt.
COMPLAINT = re.compile(
    r"(Address|Leak|Thread|UndefinedBehavior)Sanitizer|runtime error:|Assertion .* failed|"
    r"terminate called|free\(\): |malloc\(\): |stack smashing|QObject|QTimer|QSocketNotifier"
)

LOOKING = "not ready: Looking for Quillbox on this network…"


def visible(count):
    return f"ready: {count} Quillbox device{'' if count == 1 else 's'} visible in Finder"


class Helper:
    """One running instance of the program."""

    def __init__(self, process):
        self.process = process
        self.pid = process.pid

    def wait_status(self, text, timeout=10, since=0):
        """Waits for the status report `text`; returns its line."""
        wanted = f"status: {text}"
        return self.process.wait_line(
            lambda line: line.stream == "stderr" and line.text == wanted,
            limit(timeout),
            since,
            wanted,
        )

    def wait_message(self, text, timeout=10):
        """Waits for a line on standard error that contains `text`."""
        return self.process.wait_line(
            lambda line: line.stream == "stderr" and text in line.text, limit(timeout), what=text
        )

    def statuses(self, since=0):
        start = "status: "
        lines = [x.text for x in self.process.lines[since:] if x.stream == "stderr"]
        return [text.removeprefix(start) for text in lines if text.startswith(start)]

    def mark(self):
        return self.process.mark()

    def running(self):
        return self.process.running()

    def stop(self, number=signal.SIGTERM, timeout=10):
        """Ends it with a signal; returns the exit code and how many seconds it took."""
        start = time.monotonic()
        self.process.signal(number)
        code = self.process.wait(limit(timeout))
        return code, time.monotonic() - start


class Computer(Host):
    """Runs the program without a display, with or without a DNS-SD daemon."""

    def __init__(self, lan, name, number):
        super().__init__(lan, name, number)
        config = os.path.join(self.folder, "config", "org.quillbox.Helper")
        self.settings_file = os.path.join(config, "settings.json")
        self._helpers = []

    def prepare(self, engine):
        """Starts what the DNS-SD engine needs: bus and avahi-daemon for "daemon", else nothing."""
        if engine == "daemon":
            self.start_bus()
            self.start_avahi()

    def set_name_service(self, hosts, server=None):
        """Configures how host names are looked up: `hosts` is the line of nsswitch.conf, `server` the
        DNS server: "answering" knows no names, "local" is responsible for that domain, and
        "unreachable" is not there."""
        self._provide("nsswitch.conf", f"passwd: files\ngroup: files\nhosts: {hosts}\n")
        if server in ("answering", "local"):
            process = self.start([PYTHON, f"{HERE}/name_server.py", server])
            process.wait_line(lambda line: line.text == "ready", 10, what="the DNS server")
            self._provide("resolv.conf", "nameserver 127.0.0.53\n")
        elif server == "unreachable":
            self._provide("resolv.conf", "nameserver 10.77.0.250\n")

    def limit_ephemeral_ports(self, count):
        """Leaves the host so many ports for the connections that it opens (ip(7))."""
        values = f"32768 {32768 + count - 1}"
        self.run("sh", "-c", f"echo {values} >/proc/sys/net/ipv4/ip_local_port_range")

    def _provide(self, name, text):
        """Gives the host its own file in /etc."""
        path = os.path.join(self.folder, name)
        with open(path, "w", encoding="utf-8") as file:
            file.write(text)
        self.run("mount", "--bind", path, f"/etc/{name}")

    def write_settings(self, settings):
        """Writes the settings file: a dictionary as JSON, a string unchanged."""
        os.makedirs(os.path.dirname(self.settings_file), exist_ok=True)
        text = settings if isinstance(settings, str) else json.dumps(settings)
        with open(self.settings_file, "w", encoding="utf-8") as file:
            file.write(text)

    def read_settings(self):
        with open(self.settings_file, encoding="utf-8") as file:
            return json.load(file)

    def helper(self, *arguments, open_files=None, **environment):
        """Starts the program, with another limit of open files if there is one."""
        if not os.access(PROGRAM, os.X_OK):
            raise AssertionError(f"{PROGRAM} does not exist: build it first (./dev build)")
        command = [PROGRAM, *arguments]
        if open_files is not None:
            command = ["prlimit", f"--nofile={open_files}:{open_files}", "--", *command]
        helper = Helper(self.start(command, env=self.environment(**environment)))
        self._helpers.append(helper)
        return helper

    def shared_program(self):
        """The path of a copy of the program that every user of the host may run, wherever the build
        and the folders of the tests are."""
        for program in (PROGRAM, *ENGINES):
            copy = os.path.join(self.folder, "program")
            shutil.copy(program, copy)
            self.run("install", "-m", "755", copy, f"/run/{os.path.basename(program)}")
        return f"/run/{os.path.basename(PROGRAM)}"

    def check_helpers(self):
        """Ends the instances that still run with SIGTERM, as a desktop does at logout. Fails if one
        exits with an error or too slowly, or if the output of any instance contains a complaint of
        a sanitizer, the C library or Qt."""
        for helper in self._helpers:
            if helper.running():
                code, seconds = helper.stop()
                assert code == 0, f"exit code {code}:\n{helper.process.output()}"
                assert seconds < limit(1), f"took {seconds:.2f} s to end"
            complaint = COMPLAINT.search(helper.process.output())
            assert complaint is None, helper.process.output()

    def manual_helper(self, host, port, **more):
        """Starts the program in manual mode with the phone's host and port."""
        self.write_settings({"automaticDiscovery": False, "host": host, "port": str(port)})
        return self.helper(**more)

    def helper_processes(self):
        """The process ids of all instances of the program in this host, and of their engines."""
        mine = os.readlink(f"/proc/{self.pid}/ns/net")
        programs = [os.stat(x) for x in (PROGRAM, *ENGINES)]
        found = []
        for entry in os.listdir("/proc"):
            try:
                if entry.isdigit() and os.readlink(f"/proc/{entry}/ns/net") == mine:
                    # Not by path, which in a chroot is another one for processes of this host.
                    running = os.stat(f"/proc/{entry}/exe")
                    if any(os.path.samestat(running, x) for x in programs):
                        found.append(int(entry))
            except OSError:
                continue
        return found
