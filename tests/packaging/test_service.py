"""The user service: systemd accepts it, and the program works within its restrictions."""

import os
import re
import shutil
import sys

import pytest
from rig.computer import Computer
from rig.onlooker import Onlooker
from rig.phone import Phone, smb_command
from rig.process import limit, wait_until
from session import Session
from test_packaging import PACKAGING, PROGRAM, run, text_of

UNIT = "quillbox-helper.service"
LIMITS = os.path.join(os.path.dirname(os.path.abspath(__file__)), "namespace_limits.py")


@pytest.fixture
def analyze(tmp_path):
    """Runs systemd-analyze on the unit, with the path of the built program."""
    path = tmp_path / UNIT
    path.write_text(text_of(UNIT).replace("=quillbox-helper ", f"={PROGRAM} "), encoding="utf-8")
    environment = os.environ | {"XDG_RUNTIME_DIR": str(tmp_path)}

    def ask(*options):
        return run("systemd-analyze", "--user", *options, str(path), env=environment)

    return ask


def test_systemd_understands_the_service(analyze):
    assert analyze("--man=no", "verify") == ""


def test_the_service_is_confined_as_far_as_the_documentation_says(analyze):
    said = analyze("security", "--offline=true", "--no-pager")
    (figure,) = re.findall(r"Overall exposure level for \S+: ([\d.]+)", said)
    version = re.match(r"systemd (\d+)", run("systemd-analyze", "--version")).group(1)
    documented = re.findall(
        r"([\d.]+) \(systemd\s(\d+)\)", content(f"{PACKAGING}/../docs/security.md")
    )
    assert documented
    if version not in dict(map(reversed, documented)):
        pytest.skip(f"docs/security.md has no figure for systemd {version}")
    assert (figure, version) in documented


# ---- the real thing ----


def content(path):
    with open(path, encoding="utf-8") as file:
        return file.read()


class UserManager(Session):
    """A logged-in user of a host, with a running service manager."""

    def __init__(self, host, installed, *limits):
        self.address = host.address4
        self.home = os.path.join(host.folder, "home")
        os.makedirs(self.home)
        for folder in (host.lan.folder, host.folder):
            os.chmod(folder, 0o755)
        copy = os.path.join(host.folder, "installed")
        shutil.copytree(installed, copy)
        (tree, *_) = run("findmnt", "-n", "-t", "cgroup2", "-o", "TARGET").split()
        self._cgroup = f"{tree}/quillbox-test-{host.pid}"
        super().__init__(host, "user_manager.sh", self._cgroup, copy, self.home, *limits)
        wait_until(
            lambda: self.ask("systemctl --user is-system-running") == (0, "running"), 60, "systemd"
        )

    def state(self):
        shown = self.told(f"systemctl --user show -p ActiveState,Result,NRestarts,MainPID {UNIT}")
        return dict(line.split("=") for line in shown.splitlines())

    def namespaces(self, pid="self"):
        """The user and the mount namespace of a process, by default of the user's shell."""
        return [self.told(f"readlink /proc/{pid}/ns/{kind}") for kind in ("user", "mnt")]

    def wait_ready(self, count):
        text = f"Status: ready: {count} Quillbox device"
        wait_until(lambda: text in self.ask("quillbox-helper status")[1], limit(30), text)

    def close(self):
        self.end()
        events = f"{self._cgroup}/cgroup.events"
        wait_until(lambda: "populated 0" in content(events), 20, "the end of all its processes")
        for folder, _, _ in os.walk(self._cgroup, topdown=False):
            os.rmdir(folder)


@pytest.fixture
def user(lan, real_root, unpacked):
    made = []

    def log_in(engine, *limits):
        host = lan.host("computer", of=Computer)
        host.prepare(engine)
        made.append(UserManager(host, unpacked, *limits))
        return made[0]

    yield log_in
    for manager in made:
        manager.close()


@pytest.fixture
def phone(lan):
    made = lan.host("phone", of=Phone)
    made.serve()
    made.announce("Quillbox Office")
    return made


DROP_INS = f"$XDG_RUNTIME_DIR/systemd/user/{UNIT}.d"
DROP_IN = f"{DROP_INS}/no-namespaces.conf"


def check_its_filter(manager, pid):
    status = manager.told(f"cat /proc/{pid}/status")
    assert re.search(r"NoNewPrivs:\s+1", status) and re.search(r"Seccomp:\s+2", status)


@pytest.mark.long
def test_the_service_relays_a_phone(lan, user, phone, engine):
    with open(os.path.join(phone.share, "letter"), "w", encoding="utf-8") as file:
        file.write("Dear reader")
    onlooker = lan.host("onlooker", of=Onlooker)
    onlooker.watch()
    manager = user(engine)
    assert manager.state()["ActiveState"] == "inactive"
    # As a desktop does with its session.
    manager.told("systemctl --user set-environment DISPLAY=:77 WAYLAND_DISPLAY=wayland-7")

    # What an earlier start found out.
    manager.told(f"mkdir -p {DROP_INS} && printf '[Service]\\nPrivateUsers=no\\n' >{DROP_IN}")

    manager.told("systemctl --user enable --now quillbox-helper")
    manager.wait_ready(1)

    relay = onlooker.wait("resolved", "Quillbox Office", 20)
    got = onlooker.run(*smb_command(manager.address, relay["port"], "get letter -"), timeout=60)
    assert "Dear reader" in got.stdout
    pid = manager.state()["MainPID"]
    check_its_filter(manager, pid)
    assert not set(manager.namespaces(pid)) & set(manager.namespaces())
    assert manager.ask(f"test -e {DROP_IN}")[0] == 1
    manager.told("quillbox-helper restart")
    settings = "cat .config/org.quillbox.Helper/settings.json"
    wait_until(lambda: '"showInFinder": true' in manager.ask(settings)[1], limit(5), settings)
    # A second copy exits with status 0, and the first one keeps running.
    assert manager.ask("quillbox-helper --hidden")[0] == 0
    assert manager.state()["MainPID"] == pid
    # systemd restarts the program after a crash, but not after "quit".
    manager.told(f"kill -SEGV {pid}")
    manager.wait_ready(1)
    assert manager.state()["NRestarts"] == "1"
    manager.told("quillbox-helper quit")
    wait_until(lambda: manager.state()["ActiveState"] == "inactive", limit(10), "the end")
    assert manager.state()["Result"] == "success"


@pytest.mark.long
def test_the_service_leaves_a_copy_of_the_desktops_alone(user, phone):
    manager = user("embedded")
    manager.told("{ quillbox-helper --hidden >copy.log 2>&1 & }")
    manager.wait_ready(1)
    manager.told(f"systemctl --user start {UNIT}")
    wait_until(lambda: manager.state()["ActiveState"] == "inactive", limit(10), "its end")
    assert manager.state() | {"MainPID": ""} == {
        "ActiveState": "inactive",
        "Result": "success",
        "NRestarts": "0",
        "MainPID": "",
    }
    manager.wait_ready(1)
    manager.told("quillbox-helper quit")


@pytest.mark.long
@pytest.mark.parametrize("limits", ["none", "powerless"])
def test_the_service_starts_where_users_have_no_namespaces(user, phone, limits):
    manager = user("embedded", sys.executable, LIMITS, limits)
    assert manager.ask("unshare --user --map-root-user --mount true")[0] != 0
    # There is no journal.
    folder = f".config/systemd/user/{UNIT}.d"
    manager.told(f"mkdir -p {folder}")
    manager.told(f"printf '[Service]\\nStandardError=append:%%h/journal\\n' >{folder}/journal.conf")

    for _ in range(2):
        manager.told("rm -f journal")
        manager.told("systemctl --user restart quillbox-helper")

        manager.wait_ready(1)
        shown = manager.state()
        assert (shown["ActiveState"], shown["NRestarts"]) == ("active", "0")
        check_its_filter(manager, shown["MainPID"])
        (line,) = (x for x in manager.told("cat journal").splitlines() if "Less confined" in x)
        assert line.startswith("<4>This system denies namespaces")
        missing = line.rpartition(": ")[2].split()
        assert manager.told(f"cat {DROP_IN}").split() == ["[Service]", *missing]
        # All the other options hold.
        names = [x.partition("=")[0] for x in missing]
        assert {"PrivateUsers", "ProtectSystem", "ProtectHome", "PrivateTmp"} < set(names)
        assert not set(names) & {"NoNewPrivileges", "SystemCallFilter", "RestrictAddressFamilies"}
        assert manager.told("ls $XDG_RUNTIME_DIR/org.quillbox.Helper | grep -v socket") == "lock"
    manager.told("quillbox-helper quit")
    wait_until(lambda: manager.state()["ActiveState"] == "inactive", limit(10), "the end")
    assert manager.state()["Result"] == "success"
