"""The source tree as a Debian source package: dpkg-buildpackage builds it without network and display, and
the result has the same files as the package that tools/pack makes."""

import os
import re
import subprocess

import pytest
from packing import copy_source
from rig.network import require_namespaces
from test_packages import check_mode, check_programs, field, lintian, members, names_in, version
from test_packaging import ROOT, need, run

pytestmark = pytest.mark.any_user

# Where g++ comes from, what speeds up repeated builds, and what only the unit tests need.
NOT_FOR_PACKAGES = {"g++", "ccache", "libgtest-dev", "libgmock-dev"}
DISPLAY = {"DISPLAY", "WAYLAND_DISPLAY", "DBUS_SESSION_BUS_ADDRESS", "XDG_RUNTIME_DIR"}


def content(path):
    with open(os.path.join(ROOT, path), encoding="utf-8") as file:
        return file.read()


def control():
    """The fields of the source package."""
    paragraph = content("debian/control").split("\n\n")[0]
    return dict(re.findall(r"^(\S+?): ((?:.|\n )*)$", paragraph, re.MULTILINE))


def build_needs():
    """The packages of Build-Depends, each with its version or an empty text."""
    relations = control()["Build-Depends"].split(",")
    return dict(re.fullmatch(r"\s*([\w+-]+)(?: \((.*)\))?\s*", x).groups("") for x in relations)


# ---- the files of the source package ----


def test_the_package_names_its_homepage_and_maintainer():
    fields = control()
    assert fields["Homepage"] == "https://quillbox.org/helper"
    assert fields["Maintainer"].endswith("<helper@quillbox.org>")


def test_the_build_needs_the_packages_of_the_list():
    listed = set(re.findall(r"^build (\S+)", content("tools/packages.txt"), re.MULTILINE))
    assert set(build_needs()) == (listed - NOT_FOR_PACKAGES) | {"debhelper-compat"}


def test_the_build_needs_the_versions_that_cmake_asks_for():
    needs = build_needs()
    (cmake,) = re.findall(r"cmake_minimum_required\(VERSION ([\d.]+)\)", content("CMakeLists.txt"))
    (qt,) = re.findall(r"find_package\(Qt6 ([\d.]+) ", content("cmake/QtOptions.cmake"))
    assert needs["cmake"] == f">= {cmake}"
    assert needs["qt6-base-dev"] == needs["qt6-svg-dev"] == f">= {qt}"


def test_each_override_of_the_source_package_has_its_reason():
    lines = content("debian/source/lintian-overrides").splitlines()
    assert lines and len(lines) % 2 == 0
    for reason, tag in zip(lines[0::2], lines[1::2]):
        assert re.match(r"# \S.*\.$", reason), tag
        assert re.match(r"[a-z-]+", tag)


def test_the_debian_readme_names_every_setting_and_recommended_package(deb):
    text = content("debian/README.Debian")
    rows = content("README.md").partition("\n## Settings\n")[2].partition("\n## ")[0]
    keys = re.findall(r"^\| `(\w+)` \|", rows, re.MULTILINE)
    (listed,) = re.findall(r"keys are ([\w, \n]+);", text)
    assert re.findall(r"\b(?!and\b)\w+", listed) == keys
    described = set(re.findall(r"^  ([a-z0-9.-]+)  ", text, re.MULTILINE))
    wanted = {name for each in names_in(field(deb, "Recommends")) for name in each.split(" | ")}
    assert described == wanted
    for fact in ("settings.json", "enable-linger", "5353/udp", "purge", "quillbox-helper(1)"):
        assert fact in text, fact


# ---- dpkg-buildpackage ----


def prepare(folder):
    """A source tree with the archive of the original source beside it, as dpkg-source expects them."""
    tree = folder / f"quillbox-helper-{version()}"
    copy_source(tree)
    run("tar", "--create", "--gzip", f"--exclude={tree.name}/debian", f"--directory={folder}", tree.name,
        f"--file={folder}/quillbox-helper_{version()}.orig.tar.gz")
    return tree


def build_package(tree, *options):
    """Runs dpkg-buildpackage in an empty network namespace and without a display."""
    require_namespaces()
    need("dpkg-buildpackage", "dh")
    environment = {x: y for x, y in os.environ.items() if x not in DISPLAY | {"SOURCE_DATE_EPOCH"}}
    done = subprocess.run(
        # Without -d it would ask for build-essential, which ./dev does not install.
        ["unshare", "--net", "dpkg-buildpackage", "-us", "-uc", "-d", *options],
        cwd=tree, capture_output=True, text=True, timeout=3600, check=False,
        env=environment | {"CCACHE_DISABLE": "1"},
    )
    assert done.returncode == 0, done.stdout[-3000:] + done.stderr[-3000:]
    return done.stdout + done.stderr


@pytest.mark.slow
def test_lintian_has_nothing_to_say_about_the_source_package(tmp_path):
    tree = prepare(tmp_path)
    build_package(tree, "-S")
    (description,) = tmp_path.glob("*.dsc")
    assert "\nFormat: 3.0 (quilt)\n" in "\n" + description.read_text(encoding="utf-8")
    (changes,) = tmp_path.glob("*_source.changes")
    assert lintian(changes) == ""


@pytest.fixture(scope="module")
def built(tmp_path_factory):
    """The folder of a complete build, and what the build printed."""
    folder = tmp_path_factory.mktemp("built")
    return folder, build_package(prepare(folder))


def package_in(folder):
    (path,) = folder.glob(f"quillbox-helper_{version()}-1_*.deb")
    return path


@pytest.mark.long
def test_a_build_from_source_has_the_files_that_packing_a_build_has(built, deb):
    def summary(path):
        return {name: (member.mode, member.type) for name, (member, _) in members(path, "files").items()}

    again = package_in(built[0])
    assert summary(again) == summary(deb)
    for member, _ in members(again, "files").values():
        check_mode(member)
    for name in ("Depends", "Recommends", "Homepage", "Description"):
        assert field(again, name) == field(deb, name), name
    assert set(members(again, "control")) - {"", "."} == {"control", "md5sums"}


@pytest.mark.long
def test_a_build_from_source_is_hardened(built, tmp_path):
    folder, output = built
    check_programs(package_in(folder), tmp_path)
    (compiled, *_) = [x for x in output.splitlines() if " -c " in x and "relay" in x]
    for flag in ("-fstack-protector-strong", "-D_FORTIFY_SOURCE=2", "-fstack-clash-protection"):
        assert flag in compiled, flag


@pytest.mark.long
def test_lintian_has_nothing_to_say_about_a_build_from_source(built):
    (changes,) = [x for x in built[0].glob("*.changes") if "_source" not in x.name]
    assert lintian(changes) == ""


@pytest.mark.long
def test_another_build_from_source_gives_the_same_bytes(built, tmp_path):
    folder = tmp_path / "a folder of another length"
    folder.mkdir()
    build_package(prepare(folder), "-b")
    assert package_in(folder).read_bytes() == package_in(built[0]).read_bytes()
