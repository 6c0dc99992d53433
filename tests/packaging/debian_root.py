"""Minimal Debian systems to try things on: made by debootstrap, kept in build/, used through overlays."""

import glob
import os
import pathlib
import shutil
import subprocess

from test_packaging import ROOT, need, run

MIRROR = "http://deb.debian.org/debian"


def base_of(release):
    """The folder of a minimal Debian, which is made at its first use. It installs packages from the
    same sources as this computer."""
    base = os.path.join(ROOT, "build", f"debian-{release}")
    if os.path.isdir(base):
        return base
    need("debootstrap")
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
    return base


class DebianRoot:
    """A copy of a minimal Debian in `folder`. Its mounts end with the mount namespace of the tests."""

    def __init__(self, release, folder):
        self.root = str(folder / "root")
        for name in ("root", "changed", "work"):
            (folder / name).mkdir()
        options = f"lowerdir={base_of(release)},upperdir={folder}/changed,workdir={folder}/work"
        run("mount", "-t", "overlay", "overlay", "-o", options, self.root)
        shutil.copy("/etc/resolv.conf", f"{self.root}/etc/resolv.conf")
        self.run("apt-get", "update")

    def mount_system(self):
        """Mounts /proc, /sys and /dev, which a build and the network tests need."""
        run("mount", "-t", "proc", "proc", f"{self.root}/proc")
        for name in ("sys", "dev"):
            run("mount", "--rbind", f"/{name}", f"{self.root}/{name}")

    def run(self, *command, folder="/", timeout=3000, **variables):
        """Runs a command as root in the system; returns its output, with that to standard error last."""
        environment = {
            "PATH": "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin",
            "HOME": "/root",
            "DEBIAN_FRONTEND": "noninteractive",
            "LC_ALL": "C.UTF-8",
        }
        done = subprocess.run(
            ["chroot", self.root, "env", f"--chdir={folder}", *command],
            stdin=subprocess.DEVNULL,
            capture_output=True,
            text=True,
            timeout=timeout,
            check=False,
            env=environment | variables,
        )
        assert done.returncode == 0, f"{command}:\n{done.stdout[-5000:]}{done.stderr[-5000:]}"
        return done.stdout + done.stderr

    def install(self, *packages):
        self.run("apt-get", "install", "--yes", "--no-install-recommends", *packages)

    def close(self):
        run("umount", "--recursive", self.root)
