"""Minimal Debian systems to build and try things on: made by debootstrap, kept in build/, used through
overlays. Needs root, and a mount namespace with which the mounts end."""

import contextlib
import fcntl
import glob
import os
import pathlib
import shutil
import subprocess

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
MIRROR = "http://deb.debian.org/debian"


def mount(*arguments):
    subprocess.run(["mount", *arguments], check=True, timeout=60)


def mount_overlay(lower, changed, work, target):
    for path in (changed, work, target):
        os.makedirs(path, exist_ok=True)
    options = f"lowerdir={':'.join(lower)},upperdir={changed},workdir={work}"
    mount("-t", "overlay", "overlay", "-o", options, target)


@contextlib.contextmanager
def locked(path):
    """Keeps other processes from changing a kept folder at the same time."""
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(f"{path}.lock", "w", encoding="ascii") as file:
        fcntl.flock(file, fcntl.LOCK_EX)
        yield


def base_of(release):
    """The folder of a minimal Debian, which is made at its first use. It installs packages from the
    same sources as this computer."""
    base = os.path.join(ROOT, "build", f"debian-{release}")
    with locked(base):
        if not os.path.isdir(base):
            make_base(release, base)
    return base


def make_base(release, base):
    made = base + ".part"
    shutil.rmtree(made, ignore_errors=True)
    subprocess.run(
        ["debootstrap", "--variant=minbase", release, made, MIRROR],
        check=True,
        capture_output=True,
        timeout=1800,
    )
    for path in glob.glob("/etc/apt/apt.conf.d/*"):
        # dpkg would ask what to do about a file that comes with a package as well.
        owned = subprocess.run(["dpkg", "--search", path], check=False, capture_output=True)
        if owned.returncode != 0 and "Acquire" in pathlib.Path(path).read_text("utf-8"):
            shutil.copy(path, f"{made}/etc/apt/apt.conf.d")
    policy = f"{made}/usr/sbin/policy-rc.d"
    with open(policy, "w", encoding="ascii") as file:
        file.write("#!/bin/sh\nexit 101\n")  # starts no service when packages are installed
    os.chmod(policy, 0o755)
    os.rename(made, base)


class DebianRoot:
    """A copy of a minimal Debian in `folder`. Its mounts end with the mount namespace."""

    def __init__(self, release, folder):
        self.root = str(folder / "root")
        mount_overlay([base_of(release)], f"{folder}/changed", f"{folder}/work", self.root)
        self.go_online()

    def go_online(self):
        """Gives it the name servers of this computer, and the newest lists of packages."""
        shutil.copy("/etc/resolv.conf", f"{self.root}/etc/resolv.conf")
        self.run("apt-get", "update")

    def mount_system(self):
        """Mounts /proc, /sys and /dev, which a build and the network tests need."""
        mount("-t", "proc", "proc", f"{self.root}/proc")
        for name in ("sys", "dev"):
            mount("--rbind", f"/{name}", f"{self.root}/{name}")

    def bind(self, *paths):
        """Lets it use folders of this computer, at the same paths."""
        for path in paths:
            os.makedirs(path, exist_ok=True)
            os.makedirs(f"{self.root}{path}", exist_ok=True)
            mount("--bind", path, f"{self.root}{path}")

    def run(self, *command, folder="/", timeout=3000, shown=False, **variables):
        """Runs a command as root in the system; returns its output, with that to standard error last,
        or shows it instead."""
        environment = {
            "PATH": "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin",
            "HOME": "/root",
            "DEBIAN_FRONTEND": "noninteractive",
            "LC_ALL": "C.UTF-8",
        }
        done = subprocess.run(
            ["chroot", self.root, "env", f"--chdir={folder}", *command],
            stdin=subprocess.DEVNULL,
            capture_output=not shown,
            text=True,
            timeout=timeout,
            check=False,
            env=environment | variables,
        )
        said = ["", ""] if shown else [done.stdout, done.stderr]
        assert done.returncode == 0, f"{command}:\n{said[0][-5000:]}{said[1][-5000:]}"
        return "".join(said)

    def install(self, *packages):
        self.run("apt-get", "install", "--yes", "--no-install-recommends", *packages)

    def close(self):
        subprocess.run(["umount", "--recursive", self.root], check=True, timeout=60)


class KeptRoot(DebianRoot):
    """A Debian in a folder that stays. Its mounts end with the mount namespace."""

    def __init__(self, root, release):
        # The base of all is not changed: DebianRoot's own constructor makes an overlay.
        self.root = root
        if not os.path.isdir(root):
            part = f"{root}.part"
            shutil.rmtree(part, ignore_errors=True)
            os.makedirs(os.path.dirname(root), exist_ok=True)
            subprocess.run(["cp", "--archive", f"{base_of(release)}/.", part], check=True, timeout=600)
            os.rename(part, root)

    def mount_system(self):
        mount("--bind", self.root, self.root)
        super().mount_system()
