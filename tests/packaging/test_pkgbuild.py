"""The PKGBUILD: that its fields are right, and that makepkg makes a package of it with the files of the
Debian package."""

import os
import pathlib
import shutil
import subprocess
import tempfile

import pytest
from packing import copy_source
from rig.network import AS_NOBODY, NOBODY
from test_packages import field, names_in, version
from test_packaging import INSTALLED, PACKAGING, need, run
from test_source_package import build_needs

pytestmark = pytest.mark.any_user

PKGBUILD = os.path.join(PACKAGING, "arch/PKGBUILD")

# The build dependencies and recommended packages of Debian, as Arch calls them.
BUILT_FROM = {
    "cmake": "cmake",
    "debhelper-compat": None,
    "libavahi-client-dev": "avahi",
    "libavahi-core-dev": "avahi",
    "libutf8proc-dev": "libutf8proc",
    "libwayland-bin": "wayland",
    "libwayland-dev": "wayland",
    "libxcb1-dev": "libxcb",
    "ninja-build": "ninja",
    "pkg-config": None,  # of base-devel, which every build has
    "qt6-base-dev": "qt6-base",
    "qt6-base-private-dev": "qt6-base",
    "qt6-svg-dev": "qt6-svg",
    "wayland-protocols": "wayland-protocols",
}
RECOMMENDED = {
    "avahi-daemon": [],  # of avahi, which is a dependency
    "gvfs-backends | kio-extras": ["gvfs-smb", "kio-extras"],
    "libcanberra0": ["libcanberra"],
    "libglib2.0-bin": ["glib2"],
    "libnss-mdns": ["nss-mdns"],
    "qt6-wayland": ["qt6-wayland"],
    "xdg-utils": ["xdg-utils"],
}


def fields(name):
    """The words of a variable after a clean shell has read the file."""
    script = f'set -eu; source "$1"; printf "%s\\n" "${{{name}[@]}}"'
    return run("env", "-i", "bash", "--norc", "-c", script, "bash", PKGBUILD).splitlines()


def test_the_pkgbuild_is_of_this_version():
    run("bash", "-n", PKGBUILD)
    assert fields("pkgname") == ["quillbox-helper"]
    assert fields("pkgver") == [version()]
    assert fields("source") == [f"quillbox-helper-{version()}.tar.gz"]
    assert len(fields("sha256sums")) == len(fields("source"))
    assert fields("license") == ["MIT"]
    assert fields("url") == ["https://quillbox.org/helper"]
    with open(PKGBUILD, encoding="utf-8") as file:
        assert f"--prefix=quillbox-helper-{version()}/" in file.read()


def test_the_pkgbuild_depends_on_what_the_build_needs():
    assert set(build_needs()) == set(BUILT_FROM)
    wanted = set(filter(None, BUILT_FROM.values())) | {"gcc-libs", "glibc", "hicolor-icon-theme"}
    assert set(fields("depends") + fields("makedepends")) == wanted


def test_the_optional_dependencies_are_what_the_debian_package_recommends(deb):
    wanted = [y for x in names_in(field(deb, "Recommends")) for y in RECOMMENDED[x]]
    assert sorted(x.partition(": ")[0] for x in fields("optdepends")) == sorted(wanted)


@pytest.mark.long
def test_makepkg_builds_the_files_of_the_debian_package():
    need("makepkg", "bsdtar", "desktop-file-validate")
    if os.geteuid() == 0 and not NOBODY:
        pytest.skip("makepkg refuses to run as root, and this namespace has no other user")
    folder = pathlib.Path(tempfile.mkdtemp(prefix="quillbox-makepkg-"))
    try:
        name = f"quillbox-helper-{version()}"
        copy_source(folder / name)
        run("tar", "--create", "--gzip", f"--directory={folder}", name, f"--file={folder}/{name}.tar.gz")
        shutil.rmtree(folder / name)
        shutil.copy(PKGBUILD, folder)
        # makepkg refuses to run as root. Without pacman it cannot look for the dependencies.
        folder.chmod(0o777)
        environment = {"PATH": os.environ["PATH"], "HOME": str(folder), "PACMAN": "true",
                       "PKGEXT": ".pkg.tar", "CCACHE_DISABLE": "1"}
        command = ["makepkg", "--nodeps", "--noconfirm"]
        done = subprocess.run(
            [*AS_NOBODY, *command] if os.geteuid() == 0 else command,
            cwd=folder, capture_output=True, text=True, timeout=3600, check=False, env=environment,
        )
        assert done.returncode == 0, done.stdout[-3000:] + done.stderr[-3000:]
        assert "warning:" not in done.stdout + done.stderr
        (package,) = folder.glob("*.pkg.tar")
        listed = run("bsdtar", "-tf", str(package)).splitlines()
    finally:
        # What makepkg made belongs to nobody.
        shutil.rmtree(folder)
    found = {x.removeprefix("usr/").replace(".1.gz", ".1") for x in listed if x.startswith("usr/")}
    replaced = (("libexec/", "lib/"), ("zsh/vendor-completions", "zsh/site-functions"))
    wanted = set(INSTALLED) | {"share/licenses/quillbox-helper/LICENSE"}
    for ours, theirs in replaced:
        wanted = {x.replace(ours, theirs) for x in wanted}
    assert {x for x in found if x and not x.endswith("/")} == wanted
