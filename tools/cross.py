"""Builds the program for another processor, in a Debian 12 that is kept in build/, so that this computer
gets no packages of another architecture: tools/cross.py ARCHITECTURE OUTPUT makes the Debian package and the
archive. Needs root, and a mount namespace with which the mounts end."""

import contextlib
import os
import pathlib
import subprocess
import sys

from debian_root import ROOT, KeptRoot, locked

RELEASE = "bookworm"
# For which architectures of Debian there is a preset, and how the names of their tools begin.
TOOLS = {"arm64": "aarch64-linux-gnu"}
# What only the unit tests need.
LIBRARIES = ["libgmock-dev", "libgtest-dev"]


class CrossSystem(KeptRoot):
    """A Debian with a compiler for another architecture, and with the libraries of that architecture.
    It builds the source tree in the folder `source`."""

    def __init__(self, architecture, source):
        super().__init__(kept_for(architecture), RELEASE)
        self.architecture = architecture
        self.source = source
        self.preset = architecture  # of the same name
        self.build_folder = os.path.join(source, "build", self.preset)
        self.mount_system()
        self.bind(source)

    def complete(self):
        """Installs what a build needs, unless that has been done for the debian/control of now."""
        stamp = pathlib.Path(f"{self.root}.complete")
        control = pathlib.Path(self.source, "debian/control")
        wanted = control.read_text("utf-8") + pathlib.Path(__file__).read_text("utf-8")
        if stamp.exists() and stamp.read_text("utf-8") == wanted:
            return
        self.run("dpkg", "--add-architecture", self.architecture)
        self.run("dpkg", "--configure", "--pending")
        self.go_online()
        libraries = [f"{name}:{self.architecture}" for name in LIBRARIES]
        self.install(f"crossbuild-essential-{self.architecture}", "xz-utils", *libraries)
        self.run(
            *("apt-get", "build-dep", "--yes", "--no-install-recommends"),
            *("--host-architecture", self.architecture, self.source),
        )
        self.run("apt-get", "clean")
        stamp.write_text(wanted, "utf-8")

    def build(self, *targets, shown=False):
        self.run("cmake", "--preset", self.preset, folder=self.source, shown=shown)
        self.run(
            *("cmake", "--build", self.build_folder, "--target", *targets),
            folder=self.source, timeout=6000, shown=shown,
        )

    def pack(self, output, shown=False):
        self.bind(output)
        self.run(
            *("tools/pack", self.build_folder, output, self.architecture),
            folder=self.source, shown=shown, CC=f"{TOOLS[self.architecture]}-gcc",
            DEB_BUILD_OPTIONS="nocheck", **self.time_of_files(),
        )

    def time_of_files(self):
        """The time of the last commit, for tools/pack, which finds no git in there."""
        if "SOURCE_DATE_EPOCH" in os.environ:
            return {"SOURCE_DATE_EPOCH": os.environ["SOURCE_DATE_EPOCH"]}
        command = ["git", "-C", self.source, "log", "-1", "--format=%ct"]
        done = subprocess.run(command, capture_output=True, text=True, timeout=60, check=False)
        return {"SOURCE_DATE_EPOCH": done.stdout.strip()} if done.returncode == 0 else {}


def kept_for(architecture):
    return os.path.join(ROOT, "build", f"debian-{RELEASE}-{architecture}")


@contextlib.contextmanager
def cross_system(architecture, source=ROOT):
    """Nobody else uses the system and its build at the same time."""
    with locked(kept_for(architecture)):
        system = CrossSystem(architecture, source)
        try:
            system.complete()
            yield system
        finally:
            system.close()


def main():
    architecture, output = sys.argv[1:]
    print(f"Preparing a Debian that builds for {architecture}; at first this takes minutes", flush=True)
    with cross_system(architecture) as system:
        system.build("quillbox-helper", shown=True)
        system.pack(os.path.abspath(output), shown=True)


if __name__ == "__main__":
    main()
