"""The machine and the versions of the programs that were measured."""

import os
import platform
import re
import subprocess

from wire import PROGRAM

VERSIONS = {
    "Quillbox Helper": [PROGRAM, "--version"],
    "HAProxy": ["haproxy", "-v"],
    "nginx": ["nginx", "-v"],
    "socat": ["socat", "-V"],
    "Samba": ["smbd", "--version"],
}


def version_in(text):
    """The first part of a text that looks like a version."""
    found = re.search(r"\d+(\.\d+)+[\w.+~-]*", text)
    return found[0] if found else "unknown"


def version_of(command):
    path = os.environ.get("PATH", os.defpath) + ":/usr/sbin:/sbin"
    try:
        done = subprocess.run(
            command, capture_output=True, text=True, timeout=10, env=dict(os.environ, PATH=path)
        )
    except OSError:
        return "not installed"
    return version_in(done.stdout + done.stderr)


def processor():
    with open("/proc/cpuinfo", encoding="utf-8") as file:
        found = re.search(r"^model name\s*:\s*(.+)$", file.read(), re.MULTILINE)
    return found[1] if found else platform.machine()


def memory_gib():
    return os.sysconf("SC_PAGE_SIZE") * os.sysconf("SC_PHYS_PAGES") / (1 << 30)


def distribution():
    try:
        return platform.freedesktop_os_release().get("PRETTY_NAME", "unknown")
    except OSError:
        return "unknown"


def machine_lines():
    """Pairs of name and value, for the report."""
    lines = [
        ("processors", f"{len(os.sched_getaffinity(0))} × {processor()}"),
        ("memory", f"{memory_gib():.0f} GiB"),
        ("kernel", platform.release()),
        ("system", distribution()),
    ]
    return lines + [(name, version_of(command)) for name, command in VERSIONS.items()]
