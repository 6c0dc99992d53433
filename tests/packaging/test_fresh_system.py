"""The Debian package on a minimal Debian system: installed by apt, used with a phone from a desktop, and
purged. The minimal system is kept in build/debian-bookworm."""

import os
import shutil

import pytest
from debian_root import DebianRoot
from rig.network import Host
from rig.phone import PASSWORD, Phone
from rig.process import wait_until
from session import Session
from test_packages import field, members, names_in

# A desktop also has a display and a session bus.
DESKTOP = ["xvfb", "dbus-daemon"]
# Files that apt and dpkg keep for themselves, and folders that are not part of the system.
NOTES = ("home", "proc", "sys", "dev", "run", "tmp", "root", "var/log", "var/cache", "var/lib/apt")


class FreshSystem(DebianRoot):
    """A Debian 12 with an ordinary user, on which the package is tried."""

    def __init__(self, folder):
        super().__init__("bookworm", folder)
        self.run("useradd", "--create-home", "--uid", "4711", "somebody")

    def install_package(self, deb, *more):
        shutil.copy(deb, f"{self.root}/root")
        self.run("apt-get", "install", "--yes", f"/root/{deb.name}", *more)

    def purge(self):
        self.run("apt-get", "purge", "--yes", "quillbox-helper")

    def listing(self):
        """All files and folders, with mode and owner."""
        found = set()
        for folder, folders, names in os.walk(self.root):
            inside = os.path.relpath(folder, self.root)
            folders[:] = [x for x in folders if os.path.normpath(f"{inside}/{x}") not in NOTES]
            for name in folders + names:
                status = os.lstat(os.path.join(folder, name))
                path = os.path.normpath(f"{inside}/{name}")
                found.add((path, status.st_mode, status.st_uid, status.st_gid))
        return found


@pytest.fixture
def system(debootstrap, tmp_path):
    made = FreshSystem(tmp_path)
    yield made
    made.close()


@pytest.fixture
def phone(lan):
    made = lan.host("phone", of=Phone)
    made.serve()
    made.announce("Quillbox Office")
    with open(os.path.join(made.share, "letter"), "w", encoding="utf-8") as file:
        file.write("Dear reader\n")
    return made


def use(system, host):
    """Starts the program on a desktop and opens the phone in the file browser (GVfs)."""
    session = Session(host, "fresh_system.sh", system.root)
    session.told("{ quillbox-helper >helper.log 2>&1 & }")
    ready = "Status: ready: 1 Quillbox device visible in Finder"
    wait_until(lambda: ready in session.ask("quillbox-helper status")[1], 30, "the phone")
    assert "without a window" not in session.told("cat helper.log")

    listed = "gio list --print-display-names dns-sd://local/"
    wait_until(lambda: session.ask(listed) == (0, "Quillbox Office"), 30, "the file browser's list")
    entry = session.told("gio list --print-uris --attributes=standard::target-uri dns-sd://local/")
    target = entry.split("standard::target-uri=")[1].split()[0]
    assert target.startswith("smb://")
    share = f"{target.rstrip('/').replace('smb://', 'smb://nas@')}/NAS"
    session.told(f"printf '\\n{PASSWORD}\\n' | gio mount '{share}'")
    assert session.told(f"gio cat '{share}/letter'") == "Dear reader"

    session.told("quillbox-helper quit")
    session.end()
    return target


@pytest.mark.long
def test_the_package_is_installed_used_and_purged(system, lan, phone, deb):
    system.install_package(deb, *DESKTOP)
    there = system.run("dpkg-query", "-W", "-f", "${Package}\n").split()
    wanted = names_in(field(deb, "Depends")) | names_in(field(deb, "Recommends"))
    assert {x.split(" | ")[0] for x in wanted} <= set(there)
    system.run("dpkg", "--verify", "quillbox-helper")

    target = use(system, lan.host("computer", of=Host))
    # The relay's host name, not an address.
    assert ".local:" in target

    system.purge()
    clean = system.listing()
    assert [path for path, *_ in clean if "quillbox" in path.lower()] == []

    system.install_package(deb)
    added = {path for path, *_ in system.listing() - clean}
    files = {name.rstrip("/") for name in members(deb, "files")} - {"", "."}
    notes = {f"var/lib/dpkg/info/quillbox-helper.{x}" for x in ("list", "md5sums")}
    assert added <= files | notes
    assert notes <= added and "usr/bin/quillbox-helper" in added

    system.purge()
    assert system.listing() == clean
