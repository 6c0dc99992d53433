"""The systems on which desktops run: made by debootstrap, kept in build/desktops between runs."""

import os
import pathlib
import shutil

import debian_root
from debian_root import DebianRoot, locked, mount_overlay
from packing import pack
from test_packaging import ROOT

RELEASES = ("bookworm", "trixie")
NAMES = {"bookworm": "Debian 12", "trixie": "Debian 13"}
KEPT = os.path.join(ROOT, "build", "desktops")
HERE = os.path.dirname(os.path.abspath(__file__))
USER, UID = "somebody", 4711


def listed(path, *kinds):
    """The packages of a list whose first column is one of `kinds`."""
    with open(path, encoding="utf-8") as file:
        rows = [x.split(None, 2) for x in file if x.strip() and not x.startswith("#")]
    return [row[1] for row in rows if row[0] in kinds]


class KeptRoot(debian_root.KeptRoot):
    """A Debian that stays in KEPT when the tests end."""

    def __init__(self, name, release):
        super().__init__(os.path.join(KEPT, name), release)

    def complete(self, packages):
        """Installs what is missing; also after an installation that was interrupted."""
        states = self.run("dpkg-query", "--show", "-f", "${db:Status-Status} ${Package}\n")
        there = {x.split()[1] for x in states.splitlines() if x.startswith("installed ")}
        missing = sorted(set(packages) - there)
        if missing:
            self.mount_system()
            self.run("dpkg", "--configure", "--pending")
            self.go_online()
            self.install(*missing)
            self.run("apt-get", "clean")
            self.close()


def desktop_root(release):
    """The folder of a Debian with all desktops, which is made at its first use."""
    with locked(os.path.join(KEPT, release)):
        made = KeptRoot(release, release)
        made.complete(listed(os.path.join(HERE, "..", "packages.txt"), "all", release))
    return made.root


def package_for(release, folder):
    """The program's Debian package for a release. Where this computer has another release, it is built
    in a system that is kept as well; only what has changed is compiled."""
    if f"VERSION_CODENAME={release}\n" in pathlib.Path("/etc/os-release").read_text("utf-8"):
        return pack(folder)[0]
    name = f"{release}-build"
    with locked(os.path.join(KEPT, name)):
        system = KeptRoot(name, release)
        system.complete(listed(os.path.join(ROOT, "tools/packages.txt"), "build", "package"))
        system.mount_system()
        try:
            return build_in(system, release, folder)
        finally:
            system.close()


def build_in(system, release, folder):
    cache = os.environ.get("CCACHE_DIR", os.path.expanduser("~/.cache/ccache"))
    system.bind(ROOT, cache, str(folder))
    build = f"{ROOT}/build/release-{release}"
    variables = {x: y for x, y in os.environ.items() if x.startswith("CCACHE_")}
    variables |= {"CCACHE_DIR": cache}
    launcher = "-DCMAKE_CXX_COMPILER_LAUNCHER=ccache"
    for command in (
        ["cmake", "--preset", "release", "-B", build, launcher],
        ["cmake", "--build", build, "--target", "quillbox-helper"],
        ["tools/pack", build, str(folder)],
    ):
        system.run("nice", *command, folder=ROOT, **variables)
    (deb,) = pathlib.Path(folder).glob("*.deb")
    return deb


class Installed(DebianRoot):
    """A release with the program installed from its package, and with an ordinary user. `layers` are the
    folders of an overlay, the kept system last."""

    def __init__(self, release, folder):
        base = desktop_root(release)
        self.release = release
        self.root = f"{folder}/root"
        self.layers = [f"{folder}/changed", base]
        deb = package_for(release, folder / "package")
        mount_overlay([base], self.layers[0], f"{folder}/work", self.root)
        shutil.copy(deb, f"{self.root}/root")
        self.run("dpkg", "--install", f"/root/{deb.name}")
        self.run("useradd", "--create-home", "--shell", "/bin/sh", "--uid", str(UID), USER)
        self.run("dbus-uuidgen", "--ensure=/etc/machine-id")
        self.close()

    def versions(self, *packages):
        """The versions of installed packages, without Debian's own part."""
        with open(f"{self.layers[1]}/var/lib/dpkg/status", encoding="utf-8") as file:
            paragraphs = file.read().split("\n\n")
        found = {}
        for paragraph in paragraphs:
            fields = dict(x.split(": ", 1) for x in paragraph.splitlines() if ": " in x)
            if fields.get("Package") in packages:
                upstream = fields["Version"].split(":")[-1].rpartition("-")[0]
                found[fields["Package"]] = upstream.split("+")[0]
        return found
