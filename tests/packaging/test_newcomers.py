"""The first steps of a newcomer on a fresh Debian 13, and other compilers than that of Debian 12."""

import os
import pathlib
import re
import shutil

import pytest
from debian_root import DebianRoot
from packing import copy_source
from test_packaging import ROOT

# One after another: each of them keeps all processors busy.
pytestmark = [pytest.mark.long, pytest.mark.xdist_group("newcomers")]

CHECKOUT = "/root/quillbox-helper"
WARNING = re.compile(r"^.*\bwarning: .*$", re.MULTILINE)


class Newcomer(DebianRoot):
    """A Debian with a checkout of this source tree and its history, as after a clone."""

    def __init__(self, release, folder):
        super().__init__(release, folder)
        self.mount_system()
        self.install("git")
        tree = pathlib.Path(self.root + CHECKOUT)
        tree.mkdir()
        copy_source(tree)
        shutil.copytree(os.path.join(ROOT, ".git"), tree / ".git")

    def dev(self, *words):
        return self.run("./dev", *words, folder=CHECKOUT)


@pytest.fixture
def newcomer(debootstrap, tmp_path):
    made = []

    def make(release):
        made.append(Newcomer(release, tmp_path))
        return made[-1]

    yield make
    for system in made:
        system.close()


def test_newcomers_on_debian13_run_test_and_package_the_program(newcomer):
    system = newcomer("trixie")
    started = system.dev("run", "--version")
    assert re.search(r"^quillbox-helper [\d.]+$", started, re.MULTILINE)
    tested = system.dev("test")
    assert WARNING.findall(tested) == []
    assert re.search(r"^\d{4} passed, 0 failed(, \d+ skipped)?$", tested, re.MULTILINE)
    packed = system.dev("package")
    assert re.search(r"quillbox-helper_\S+\.deb$", packed, re.MULTILINE)
    print(tested[tested.index("---- summary") :])


@pytest.mark.parametrize(
    "release, compiler, package, libraries",
    [
        ("bookworm", "clang++", "clang", ""),
        # It links an older standard library than that which Debian 13's Qt was built with.
        ("trixie", "g++-13", "g++-13", "-l:libstdc++.so.6"),
        ("trixie", "clang++", "clang", ""),
    ],
    ids=["Debian 12, Clang", "Debian 13, GCC 13", "Debian 13, Clang"],
)
def test_newcomers_with_another_compiler_build_everything_without_a_warning(
    newcomer, release, compiler, package, libraries
):
    system = newcomer(release)
    with open(os.path.join(ROOT, "tools/packages.txt"), encoding="utf-8") as file:
        needed = re.findall(r"^build (\S+)", file.read(), re.MULTILINE)
    system.install(*needed, package)
    system.run(
        *("cmake", "--preset", "release", f"-DCMAKE_CXX_COMPILER={compiler}"),
        *("-DCMAKE_COMPILE_WARNING_AS_ERROR=ON", f"-DCMAKE_CXX_STANDARD_LIBRARIES={libraries}"),
        folder=CHECKOUT,
    )
    built = system.run("cmake", "--build", "build/release", folder=CHECKOUT, timeout=6000)
    assert WARNING.findall(built) == []
    assert "quillbox-helper" in system.run(f"{CHECKOUT}/build/release/quillbox-helper", "--version")
