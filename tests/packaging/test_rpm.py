"""The RPM spec: that it parses for Fedora and openSUSE, asks for what CMake looks for, and that rpmbuild makes
a package of it with the files of the Debian package."""

import os
import re
import subprocess

import pytest
from packing import copy_source
from test_packages import field, members, names_in, version
from test_packaging import INSTALLED, PACKAGING, PROGRAMS, need, run
from test_source_package import content

pytestmark = pytest.mark.any_user

HERE = os.path.dirname(os.path.abspath(__file__))
SPEC = os.path.join(PACKAGING, "rpm/quillbox-helper.spec")
SYSTEMS = {"Fedora": [], "openSUSE": ["--define", "suse_version 1699"]}
LICENCE, DOCUMENTS = "LICENSE", {"CHANGELOG.md", "README.md"}

# The packages that the Debian package recommends, as each system calls them.
RECOMMENDED = {
    "avahi-daemon": ("avahi", "avahi"),
    "gvfs-backends | kio-extras": ("(gvfs-smb or kio-extras)", "(gvfs-backend-samba or kio-extras)"),
    "libcanberra0": ("libcanberra", "libcanberra0"),
    "libglib2.0-bin": ("glib2", "glib2-tools"),
    "libnss-mdns": ("nss-mdns", "nss-mdns"),
    "qt6-wayland": ("qt6-qtwayland", "qt6-wayland"),
    "xdg-utils": ("xdg-utils", "xdg-utils"),
}


def spec(system, *query):
    """What rpmspec says of the file on that system."""
    options = ["--load", f"{HERE}/fedora.macros", *SYSTEMS[system]]
    return run("rpmspec", *query, *options, SPEC)


def installed(zsh="site-functions"):
    """The files of the program; other systems than Debian have another folder for zsh."""
    return {x.replace("zsh/vendor-completions", f"zsh/{zsh}") for x in INSTALLED}


def as_installed(paths):
    """Paths of a package as those of INSTALLED: without /usr, with the manual page as it is."""
    return {x.removeprefix("/usr/").replace(".1.gz", ".1") for x in paths}


@pytest.mark.parametrize("system", SYSTEMS)
def test_the_spec_lists_every_file_and_no_other(system):
    section = spec(system, "--parse").partition("\n%files\n")[2].partition("\n%changelog\n")[0]
    lines = [x for x in section.splitlines() if x and not x.startswith(("#", "%"))]
    listed = as_installed(x.removesuffix("*") for x in lines)
    folder = "libexec/quillbox-helper/"
    assert listed == {x for x in installed() if not x.startswith(folder)} | {folder}
    assert re.findall(r"^%license (.*)$", section, re.MULTILINE) == [LICENCE]
    assert set(re.findall(r"^%doc (.*)$", section, re.MULTILINE)[0].split()) == DOCUMENTS


@pytest.mark.parametrize("system", SYSTEMS)
def test_the_build_requires_what_cmake_looks_for(system):
    required = dict(x.partition(" >= ")[::2] for x in spec(system, "-q", "--buildrequires").splitlines())
    lists = [content("CMakeLists.txt"), content("cmake/WaylandProtocols.cmake")]
    for folder in ("platform", "platform/dnssd/processes"):
        lists.append(content(f"{folder}/CMakeLists.txt"))
    modules = {
        name
        for text in lists
        for name in re.findall(r"pkg_check_modules\(\w+ REQUIRED IMPORTED_TARGET (\S+)\)", text)
    }
    assert {"xcb", "wayland-client", "avahi-core", "avahi-client", "libutf8proc"} == modules
    asked = {re.sub(r"pkgconfig\((.*)\)", r"\1", x) for x in required if x.startswith("pkgconfig(")}
    assert asked == modules | {"wayland-protocols", "wayland-scanner"}
    qt, components = re.search(
        r"find_package\(Qt6 ([\d.]+) REQUIRED COMPONENTS (.*)\)", content("cmake/QtOptions.cmake")
    ).groups()
    for component in components.split():
        assert required[f"cmake(Qt6{component})"] == qt
    (cmake,) = re.findall(r"cmake_minimum_required\(VERSION ([\d.]+)\)", lists[0])
    assert required["cmake"] == cmake
    private = {"Fedora": "qt6-qtbase-private-devel", "openSUSE": "qt6-gui-private-devel"}
    assert [x for x in required if "private" in x] == [private[system]]


@pytest.mark.parametrize("system", SYSTEMS)
def test_the_package_recommends_what_the_debian_package_does(system, deb):
    column = list(SYSTEMS).index(system)
    wanted = {RECOMMENDED[x][column] for x in names_in(field(deb, "Recommends"))}
    shown = spec(system, "-q", "--queryformat", "[%{RECOMMENDNAME}\n]")
    assert set(shown.splitlines()) == wanted


def test_the_version_of_the_spec_is_that_of_the_program():
    shown = spec("Fedora", "-q", "--srpm", "--queryformat", "%{VERSION}-%{RELEASE} %{URL} %{LICENSE}")
    assert shown == f"{version()}-1 https://quillbox.org/helper MIT"
    assert f"--prefix=quillbox-helper-{version()}/" in content("packaging/rpm/quillbox-helper.spec")


def rpmlint(*paths):
    said = run("rpmlint", f"--config={HERE}/rpmlint.toml", *paths)
    return [x for x in said.splitlines() if re.match(r"\S+: [EW]: ", x)]


def test_rpmlint_has_nothing_to_say_about_the_spec():
    assert rpmlint(SPEC) == []


# ---- rpmbuild ----


@pytest.fixture(scope="module")
def built(tmp_path_factory):
    """The package that rpmbuild makes of the source tree. Debian has no database of RPM packages, so
    it cannot look for those that the build requires; the libraries are here."""
    need("rpmbuild", "find-debuginfo", "eu-strip", "desktop-file-validate", "appstream-util")
    top = tmp_path_factory.mktemp("rpmbuild")
    tree = top / f"quillbox-helper-{version()}"
    copy_source(tree)
    (top / "SOURCES").mkdir()
    run("tar", "--create", "--gzip", f"--directory={top}", tree.name,
        f"--file={top}/SOURCES/{tree.name}.tar.gz")
    done = subprocess.run(
        ["rpmbuild", "-bb", "--nodeps", "--load", f"{HERE}/fedora.macros", "--define", f"_topdir {top}",
         SPEC],
        capture_output=True, text=True, timeout=3600, check=False,
        env=os.environ | {"CCACHE_DISABLE": "1"},
    )
    assert done.returncode == 0, done.stdout[-3000:] + done.stderr[-3000:]
    (path,) = top.glob("RPMS/*/quillbox-helper-[0-9]*.rpm")
    return path, done.stdout + done.stderr


def query(path, *options):
    # An empty database: rpm would make one in /var/lib/rpm.
    return run("rpm", "--dbpath", str(path.parent), "-qp", *options, str(path)).splitlines()


@pytest.mark.long
def test_the_rpm_has_the_files_of_the_debian_package(built, deb):
    path, _ = built
    shown = query(path, "--queryformat", "[%{FILEMODES:perms} %{FILEUSERNAME} %{FILENAMES}\n]")
    files = {}
    for line in shown:
        mode, owner, name = line.split(" ", 2)
        assert owner == "root"
        # Links to the programs by their build ID, and the folders that nobody else may have made.
        if not (name.startswith("/usr/lib/.build-id") or mode.startswith("d")):
            files[name] = mode
    documents = {f"/usr/share/doc/quillbox-helper-{version()}/{x}" for x in DOCUMENTS}
    documents.add(f"/usr/share/licenses/quillbox-helper-{version()}/{LICENCE}")
    ours = as_installed(files.keys() - documents)
    theirs = {name for name, (member, _) in members(deb, "files").items() if member.isfile()}
    theirs = {x for x in theirs if not x.startswith(("usr/share/doc/", "usr/share/lintian/"))}
    theirs = {x.removeprefix("usr/").replace(".1.gz", ".1") for x in theirs}
    assert {x.replace("zsh/site-functions", "zsh/vendor-completions") for x in ours} == theirs
    assert documents <= files.keys()
    for name, mode in files.items():
        is_program = name.removeprefix("/usr/") in PROGRAMS
        assert mode == ("-rwxr-xr-x" if is_program else "-rw-r--r--"), name


@pytest.mark.long
def test_the_rpm_requires_every_library_that_is_linked(built):
    required = "\n".join(query(built[0], "--requires"))
    for library in ("libQt6Widgets.so.6", "libQt6Svg.so.6", "libxcb.so.1", "libutf8proc.so.2",
                    "libavahi-client.so.3", "libavahi-core.so.7", "libwayland-client.so.0"):
        assert f"{library}()" in required, library
    assert "hicolor-icon-theme" in required


@pytest.mark.long
def test_the_flags_of_the_distribution_hold(built):
    _, output = built
    assert "warning:" not in output
    (compiled, *_) = [x for x in output.splitlines() if " -c " in x and "relay" in x]
    assert "-D_FORTIFY_SOURCE=3" in compiled
    assert "-D_FORTIFY_SOURCE=2" not in compiled
    assert "-DNDEBUG" in compiled


@pytest.mark.long
def test_the_debug_packages_have_the_symbols_and_the_sources(built):
    path, _ = built
    (symbols,) = path.parent.glob("quillbox-helper-debuginfo-*.rpm")
    listed = query(symbols, "--list")
    for name in PROGRAMS:
        assert any(x.startswith(f"/usr/lib/debug/usr/{name}-") for x in listed), name
    (sources,) = path.parent.glob("quillbox-helper-debugsource-*.rpm")
    assert any(x.endswith("/app/main.cpp") for x in query(sources, "--list"))


@pytest.mark.long
def test_rpmlint_has_nothing_to_say_about_the_rpm(built):
    assert rpmlint(str(built[0])) == []
