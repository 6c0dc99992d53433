"""The Debian package and the archive: their files, owners, modes and dependencies, and that packing is
reproducible."""

import gzip
import hashlib
import io
import os
import re
import stat
import subprocess
import tarfile

import pytest
from rig.computer import LOOKING, Computer, Helper
from test_packaging import INSTALLED, PROGRAM, PROGRAMS, ROOT, run

pytestmark = pytest.mark.any_user

BUILD = os.path.dirname(PROGRAM)
TOP = "quillbox-helper-{version}-linux-{machine}"
DOCUMENTS = {
    "share/doc/quillbox-helper/README.Debian",
    "share/doc/quillbox-helper/changelog.Debian.gz",
    "share/doc/quillbox-helper/changelog.gz",
    "share/doc/quillbox-helper/copyright",
    "share/lintian/overrides/quillbox-helper",
}


def version():
    return run(PROGRAM, "--version").split()[1]


def members(deb, what):
    """The tar members of the package's control archive or of its files, each with its content."""
    option = {"control": "--ctrl-tarfile", "files": "--fsys-tarfile"}[what]
    data = subprocess.run(
        ["dpkg-deb", option, str(deb)], capture_output=True, check=True, timeout=60
    ).stdout
    with tarfile.open(fileobj=io.BytesIO(data)) as file:
        return {
            x.name.removeprefix("./"): (x, x.isfile() and file.extractfile(x).read()) for x in file
        }


def text_in(path):
    with open(path, encoding="utf-8") as file:
        return file.read()


def field(deb, name):
    return run("dpkg-deb", "--field", str(deb), name).strip()


def names_in(relations):
    """The package names of a field, without versions; alternatives stay in one text."""
    return {re.sub(r" \([^)]*\)", "", each.strip()) for each in relations.split(",")}


def check_mode(member):
    expected = 0o755 if member.isdir() or member.name.endswith(tuple(PROGRAMS)) else 0o644
    assert stat.S_IMODE(member.mode) == expected, member.name
    assert (member.uid, member.gid) == (0, 0), member.name


# ---- the Debian package ----


def test_the_package_is_named_by_its_version(deb):
    machine = run("dpkg", "--print-architecture").strip()
    assert field(deb, "Version") == f"{version()}-1"
    assert deb.name == f"quillbox-helper_{version()}-1_{machine}.deb"


def test_the_package_has_every_file_and_no_other(deb):
    found = {name for name, (member, _) in members(deb, "files").items() if not member.isdir()}
    page = "share/man/man1/quillbox-helper.1"
    assert found == {f"usr/{x}" for x in (INSTALLED - {page}) | {f"{page}.gz"} | DOCUMENTS}


def test_all_in_the_package_is_roots_and_readable(deb):
    for member, _ in members(deb, "files").values():
        check_mode(member)


def test_nothing_runs_when_the_package_is_installed_or_removed(deb):
    assert set(members(deb, "control")) - {"", "."} == {"control", "md5sums"}


def test_the_sums_in_the_package_are_those_of_its_files(deb):
    listed = members(deb, "control")["md5sums"][1].decode().splitlines()
    files = {x: data for x, (member, data) in members(deb, "files").items() if member.isfile()}
    assert sorted(listed) == sorted(
        f"{hashlib.md5(data).hexdigest()}  {name}" for name, data in files.items()
    )


def test_the_package_depends_on_every_library_that_is_linked(deb):
    owners = set()
    for program in PROGRAMS:
        file = os.path.join(BUILD, os.path.basename(program))
        for path in re.findall(r"=> (/\S+)", run("ldd", file)):
            # With the folder, which differs between architectures.
            name = "/".join(path.split("/")[-2:])
            if os.path.basename(path) in run("readelf", "-d", file):
                owners.add(run("dpkg", "-S", f"*/{name}").split(":")[0])
    assert {"libqt6widgets6", "libxcb1", "libutf8proc2"} <= owners
    assert {"libavahi-client3", "libavahi-common3", "libavahi-core7"} <= owners
    assert owners <= names_in(field(deb, "Depends"))


@pytest.mark.parametrize("program", sorted(x for x in PROGRAMS if x.startswith("libexec/")))
def test_the_programs_of_the_engines_are_linked_with_neither_qt_nor_the_other_s_library(program):
    linked = run("readelf", "-d", os.path.join(BUILD, os.path.basename(program)))
    assert "libQt" not in linked
    assert ("libavahi-client" in linked) != ("libavahi-core" in linked)


def test_the_package_depends_on_the_version_of_qt_s_private_interface(deb):
    provided = run("dpkg-query", "--show", "--showformat", "${Provides}, ", "libqt6core6*")
    (wanted,) = set(re.findall(r"qt6-base-(?:private-)?abi \(= [^)]+\)", provided))
    assert wanted in field(deb, "Depends").split(", ")


def test_the_package_recommends_what_a_click_needs(deb):
    recommended = names_in(field(deb, "Recommends"))
    assert {"avahi-daemon", "libnss-mdns", "gvfs-backends | kio-extras"} <= recommended
    with open(os.path.join(ROOT, "tools/packages.txt"), encoding="utf-8") as file:
        assert set(re.findall(r"^run (\S+)", file.read(), re.MULTILINE)) <= recommended


def check_programs(deb, folder):
    """Checks that the programs in a package are stripped, and linked with all hardening options."""
    for name in sorted(PROGRAMS):
        program = folder / os.path.basename(name)
        program.write_bytes(members(deb, "files")[f"usr/{name}"][1])
        sections = run("readelf", "-WS", str(program))
        assert ".symtab" not in sections and ".debug" not in sections and ".comment" not in sections
        shown = run("readelf", "-Wdlh", str(program))
        for feature in (r"Flags: NOW PIE", "GNU_RELRO", r"Type:\s+DYN", r"GNU_STACK\s.* RW "):
            assert re.search(feature, shown), (name, feature)
        for tag in ("RPATH", "RUNPATH"):
            assert tag not in shown, name


def test_the_programs_in_the_package_are_stripped_and_hardened(deb, tmp_path):
    check_programs(deb, tmp_path)


def test_the_documents_of_the_package_are_those_of_the_source(deb):
    files = members(deb, "files")
    folder = "usr/share/doc/quillbox-helper"
    with open(os.path.join(ROOT, "CHANGELOG.md"), "rb") as file:
        assert gzip.decompress(files[f"{folder}/changelog.gz"][1]) == file.read()
    newest = gzip.decompress(files[f"{folder}/changelog.Debian.gz"][1]).decode()
    assert newest.startswith(f"quillbox-helper ({version()}-1) ")
    with open(os.path.join(ROOT, "LICENSE"), encoding="utf-8") as file:
        licence = file.read().split("\n", 2)[2]
    copied = files[f"{folder}/copyright"][1].decode()
    assert re.sub(r"[\s.]+", " ", licence.partition("\n\n")[2]) in re.sub(r"[\s.]+", " ", copied)


def lintian(path):
    return run("lintian", "--allow-root", "--display-info", "--pedantic", str(path))


def test_lintian_has_nothing_to_say(deb):
    assert lintian(deb) == ""


def test_each_override_has_its_reason():
    path = os.path.join(ROOT, "debian/quillbox-helper.lintian-overrides")
    with open(path, encoding="utf-8") as file:
        lines = file.read().splitlines()
    assert lines and len(lines) % 2 == 0
    for reason, tag in zip(lines[0::2], lines[1::2]):
        assert re.match(r"# \S.*\.$", reason), tag
        assert re.fullmatch(r"[a-z-]+", tag)


# ---- the archive ----


def test_the_archive_holds_one_folder_with_everything(archive, unpacked):
    top = TOP.format(version=version(), machine=os.uname().machine)
    assert archive.name == f"{top}.tar.xz"
    assert unpacked.name == top
    found = {str(x.relative_to(unpacked)) for x in unpacked.rglob("*") if not x.is_dir()}
    assert found == INSTALLED | {"LICENSE", "README"}


def test_the_archive_is_in_order_and_roots(archive):
    with tarfile.open(archive) as file:
        all_members = file.getmembers()
    paths = [x.name.split("/") for x in all_members]
    assert paths == sorted(paths)
    assert len({x.mtime for x in all_members}) == 1
    for member in all_members:
        check_mode(member)


def test_the_program_of_the_archive_runs_where_it_was_unpacked(unpacked, tmp_path):
    program = str(unpacked / "bin/quillbox-helper")
    assert run(program, "--version", cwd=tmp_path) == run(PROGRAM, "--version")
    entry = tmp_path / "autostart/org.quillbox.Helper.desktop"
    run(program, "--autostart=on", env=os.environ | {"XDG_CONFIG_HOME": str(tmp_path)})
    assert program in entry.read_text(encoding="utf-8")


def test_the_program_of_the_archive_starts_the_engine_of_the_archive(unpacked, lan):
    computer = lan.host("computer", of=Computer)
    computer.write_settings({"dnsSd": "embedded"})
    program = str(unpacked / "bin/quillbox-helper")
    helper = Helper(computer.start([program], env=computer.environment()))
    helper.wait_status(LOOKING)
    children = f"/proc/{helper.pid}/task"
    engines = [
        os.readlink(f"/proc/{child}/exe")
        for task in os.listdir(children)
        for child in text_in(f"{children}/{task}/children").split()
    ]
    assert engines == [str(unpacked / "libexec/quillbox-helper/quillbox-dns-sd-responder")]
    assert helper.stop()[0] == 0


def test_the_archive_says_what_the_package_asks_for(deb, unpacked):
    text = (unpacked / "README").read_text(encoding="utf-8")
    named = set(re.findall(r"^ +apt install (.*)$", text, re.MULTILINE)[0].split())
    # Every system has the compiler's libraries; the others are dependencies of the packages named.
    common = {"libc6", "libgcc-s1", "libstdc++6", "libqt6core6", "libqt6gui6", "libavahi-common3"}
    # Qt's packages provide it for the version that they are of.
    common |= {"qt6-base-abi", "qt6-base-private-abi"}
    assert named == names_in(field(deb, "Depends")) - common
    for recommended in names_in(field(deb, "Recommends")):
        for name in recommended.split(" | "):
            assert name in text, name


# ---- other processors ----


def test_packages_for_unknown_processors_are_refused_before_anything_is_installed():
    said = run(os.path.join(ROOT, "dev"), "package", "--arch", "pdp11", code=2)
    assert said == './dev package: cannot build for the architecture "pdp11"\n'
    assert "--arch ARCHITECTURE" in run(os.path.join(ROOT, "dev"), "package", "--arch", code=2)


# ---- the same bytes everywhere ----


def digests(paths):
    return [hashlib.sha256(path.read_bytes()).hexdigest() for path in paths]


@pytest.mark.slow
def test_packing_again_elsewhere_gives_the_same_bytes(packages, tmp_path):
    script = 'umask 077; exec "$0" "$@"'
    folder = tmp_path / "another folder"
    done = subprocess.run(
        ["sh", "-c", script, os.path.join(ROOT, "tools/pack"), BUILD, str(folder)],
        capture_output=True,
        timeout=240,
        check=False,
        env=os.environ | {"TZ": "Pacific/Kiritimati", "LC_ALL": "C", "TMPDIR": str(tmp_path)},
    )
    assert done.returncode == 0, done.stderr
    again = sorted(folder.iterdir(), key=lambda path: path.suffix)
    assert digests(again) == digests(packages)


@pytest.mark.parametrize("name", sorted(PROGRAMS))
def test_a_program_does_not_say_where_it_was_built(name):
    with open(os.path.join(BUILD, os.path.basename(name)), "rb") as file:
        assert ROOT.encode() not in file.read()


# ---- one version ----


def test_every_document_is_of_one_version_and_day():
    found = {}
    for path, pattern in (
        ("CHANGELOG.md", r"^## \[([\d.]+)\] - ([\d-]+)$"),
        ("packaging/org.quillbox.Helper.metainfo.xml", r'<release version="([\d.]+)" date="([\d-]+)"'),
    ):
        with open(os.path.join(ROOT, path), encoding="utf-8") as file:
            found[path] = re.search(pattern, file.read(), re.MULTILINE).groups()
    with open(os.path.join(ROOT, "packaging/quillbox-helper.1"), encoding="utf-8") as file:
        day, number = re.match(r'\.TH \S+ 1 (\S+) "Quillbox Helper ([\d.]+)"', file.read()).groups()
    found["manual page"] = (number, day)
    with open(os.path.join(ROOT, "packaging/rpm/quillbox-helper.spec"), encoding="utf-8") as file:
        spec = file.read()
    day, number = re.search(r"\n%changelog\n\* (\w+ \w+ \d+ \d+) .* - ([\d.]+)-1\n", spec).groups()
    found["RPM"] = (number, run("date", "--utc", f"--date={day}", "+%F").strip())
    changelog = os.path.join(ROOT, "debian/changelog")
    seconds = run("dpkg-parsechangelog", "-l", changelog, "-S", "Timestamp").strip()
    day = run("date", "--utc", f"--date=@{seconds}", "+%F").strip()
    number = run("dpkg-parsechangelog", "-l", changelog, "-S", "Version").strip()
    found["Debian's changelog"] = (number.removesuffix("-1"), day)
    assert set(found.values()) == {(version(), found["manual page"][1])}, found
