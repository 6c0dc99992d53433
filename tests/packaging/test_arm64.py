"""The program for 64-bit ARM: cross-built and packed, and run with qemu-user together with its unit tests.
qemu-user translates the processor and the system calls; the kernel is this computer's, with pages of 4 KiB."""

import json
import os
import pathlib
import re
import shutil
import subprocess

import pytest
from cross import cross_system
from debian_root import DebianRoot, mount_overlay
from packing import packed_in
from rig.computer import Computer, Helper, visible
from rig.onlooker import Onlooker
from rig.phone import Phone, smbclient
from test_packages import DOCUMENTS, check_mode, check_programs, field, lintian, members
from test_packaging import INSTALLED, PROGRAMS, run

# One after another: they share a build that keeps all processors busy.
pytestmark = [pytest.mark.long, pytest.mark.xdist_group("arm64")]

SCRIPT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "emulated.sh")
UNIT_TESTS = ["platform", "dispatch", "netlink", "tcp", "dial", "dnssd", "relay", "discovery", "control"]
# What qemu-user 7.2 does not pass on to the kernel, or is too slow for.
LEFT_OUT = {
    "dial": [  # SO_BINDTOIFINDEX
        "ConnectorRoutes.dialsAgainAtOnceWhenARecordArrivesOnABetterInterface",
        "ConnectorRoutes.reachesAPhoneByTheInterfaceOfItsRecordWhereTheKernelWouldTakeAnother",
    ],
    "discovery": ["ManagementUrl.encodesEachByteOfTheZoneThatIsReservedInUrls"],  # SIOCSIFNAME
    "tcp": [
        # Makes 32 MiB of bytes for longer than a connection that is being closed waits for its peer.
        "LingeringClose.discardsInputThatThePeerInsistsOnSendingFirst",
        # SO_BINDTODEVICE, and TCP_INFO except for the first 4 bytes.
        "SocketCalls.confineAListenerToThisComputer",
        "SocketCalls.measureTheSilenceOfAPeerOnlyWhileTheKernelRepeatsBytes",
        "SocketCalls.tellWhetherTheRequestForAConnectionWasRepeated",
    ],
}
ENGINES = {"daemon": "quillbox-dns-sd-daemon", "embedded": "quillbox-dns-sd-responder"}
MEBIBYTE = 1 << 20


class Emulated(DebianRoot):
    """A copy of the system with the cross compiler, in which programs for arm64 run."""

    def __init__(self, system, folder):
        self.root = str(folder / "root")
        mount_overlay([system.root], f"{folder}/changed", f"{folder}/work", self.root)
        self.go_online()
        # Installed, it could change what the machine's kernel does with programs for arm64.
        self.run("apt-get", "download", "qemu-user-static", folder="/root")
        self.run("sh", "-c", "dpkg --extract /root/qemu-user-static_*.deb /")
        self.install("iproute2", "netbase")  # for the unit tests
        self.build_folder = system.build_folder

    def install_package(self, deb):
        shutil.copy(deb, f"{self.root}/root")
        self.install(f"/root/{deb.name}")
        self.mount_system()
        self.bind(self.build_folder)

    def command(self, *words, network=False):
        """The command line that runs a program of the system, if wanted in a network of its own."""
        namespaces = ["unshare", "--user", "--map-root-user", "--mount"]
        enter = ["sh", SCRIPT, self.root, *words]
        if network:
            namespaces.append("--net")
            enter = ["sh", "-c", 'ip link set lo up && exec "$@"', "sh", *enter]
        return namespaces + enter


@pytest.fixture(scope="module")
def system(debootstrap):
    with cross_system("arm64") as made:
        made.build("quillbox-helper", *(f"test_{name}" for name in UNIT_TESTS))
        yield made


@pytest.fixture(scope="module")
def packed(system, tmp_path_factory):
    """The Debian package and the archive."""
    folder = tmp_path_factory.mktemp("arm64-packages")
    system.pack(str(folder))
    return packed_in(folder)


@pytest.fixture(scope="module")
def emulated(system, packed, tmp_path_factory):
    made = Emulated(system, tmp_path_factory.mktemp("arm64"))
    made.install_package(packed[0])
    yield made
    made.close()


# ---- the packages ----


def test_the_package_for_arm64_has_every_file_and_no_other(packed):
    deb, archive = packed
    version = field(deb, "Version")
    assert field(deb, "Architecture") == "arm64"
    assert deb.name == f"quillbox-helper_{version}_arm64.deb"
    assert archive.name == f"quillbox-helper-{version.split('-')[0]}-linux-aarch64.tar.xz"
    files = members(deb, "files")
    page = "share/man/man1/quillbox-helper.1"
    found = {name for name, (member, _) in files.items() if not member.isdir()}
    assert found == {f"usr/{x}" for x in (INSTALLED - {page}) | {f"{page}.gz"} | DOCUMENTS}
    for member, _ in files.values():
        check_mode(member)
    assert lintian(deb) == ""


def test_the_programs_for_arm64_are_stripped_and_hardened(system, packed, tmp_path):
    check_programs(packed[0], tmp_path)
    for name in PROGRAMS:
        shown = run("readelf", "-h", str(tmp_path / os.path.basename(name)))
        assert re.search(r"Machine:\s+AArch64", shown), name
    commands = json.loads(pathlib.Path(system.build_folder, "compile_commands.json").read_text("utf-8"))
    compiled = [x["command"] for x in commands if "/platform/tcp/" in x["file"]]
    assert compiled and all("-mbranch-protection=standard" in x for x in compiled)
    assert not any("-fcf-protection" in x for x in compiled)


# ---- run with qemu-user ----


@pytest.mark.parametrize("name", UNIT_TESTS)
def test_the_unit_tests_pass_on_arm64(emulated, name):
    program = os.path.join(emulated.build_folder, f"test_{name}")
    words = [program, "--gtest_brief=1", f"--gtest_filter=-{':'.join(LEFT_OUT.get(name, ()))}"]
    done = subprocess.run(
        emulated.command(*words, network=True),
        capture_output=True, text=True, errors="replace", timeout=900, check=False,
    )
    failed = re.findall(r"^\[  FAILED  \] (\w\S*)(?: \(|,|$)", done.stdout, re.MULTILINE)
    assert failed == [], done.stdout[-5000:]
    assert done.returncode == 0, done.stdout[-5000:] + done.stderr[-2000:]
    assert re.search(r"^\[  PASSED  \] [1-9]\d* tests?\.$", done.stdout, re.MULTILINE)


def emulated_in(pid):
    """The files of programs and libraries that a process with qemu-user has mapped."""
    assert os.path.basename(os.readlink(f"/proc/{pid}/exe")) == "qemu-aarch64-static"
    maps = pathlib.Path(f"/proc/{pid}/maps").read_text("utf-8")
    return {os.path.basename(x.split()[-1]) for x in maps.splitlines() if "/" in x}


def children_of(pid):
    tasks = pathlib.Path(f"/proc/{pid}/task").glob("*/children")
    return [int(x) for task in tasks for x in task.read_text("ascii").split()]


def test_the_program_on_arm64_finds_a_phone_and_carries_64_mebibytes_each_way(
    emulated, lan, engine, tmp_path
):
    phone = lan.host("phone", of=Phone)
    phone.serve()
    onlooker = lan.host("onlooker", of=Onlooker)
    onlooker.watch()
    computer = lan.host("computer", of=Computer)
    computer.prepare(engine)
    environment = computer.environment(HOME="/root", XDG_CONFIG_HOME="/root/.config")
    helper = Helper(computer.start(emulated.command("quillbox-helper"), env=environment))

    phone.announce("Quillbox Office")

    helper.wait_status(visible(1), 60)
    port = onlooker.wait("resolved", "Quillbox Office", 60)["port"]
    there, back = tmp_path / "there", tmp_path / "back"
    there.write_bytes(os.urandom(64 * MEBIBYTE))
    commands = f"put {there} there; get there {back}"
    smbclient(onlooker, computer.address4, port, commands, timeout=300)
    assert pathlib.Path(phone.share, "there").read_bytes() == there.read_bytes()
    assert back.read_bytes() == there.read_bytes()

    assert "quillbox-helper" in emulated_in(helper.pid)
    engines = [emulated_in(child) for child in children_of(helper.pid)]
    assert sum(ENGINES[engine] in files for files in engines) == 1
    assert helper.stop(timeout=60)[0] == 0
