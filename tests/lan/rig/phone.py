"""A phone: a real SMB server on port 4445 and DNS-SD announcements with python-zeroconf."""

import functools
import json
import os
import sys
import tempfile

from .network import TYPE_PHONE, Host, may_set_groups
from .process import run

PYTHON = "/usr/bin/python3"
HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.append(os.path.join(HERE, "..", "..", "..", "demo"))
import smb_server  # noqa: E402 needs the path above; same file server as the demo

USER = "nas"
PASSWORD = "secret"
PASSWORDS = "passdb.tdb"  # as smb_server.py names it


@functools.cache
def passwords():
    """The content of smbd's database of users, made once: smbpasswd takes long."""
    with tempfile.TemporaryDirectory() as folder:
        conf = smb_server.write_configuration(folder, folder)
        run(smb_server.password_command(conf), input=f"{PASSWORD}\n{PASSWORD}\n".encode())
        with open(os.path.join(os.path.dirname(conf), PASSWORDS), "rb") as file:
            return file.read()


class Phone(Host):
    """Shares the folder `share` as NAS, for the user nas."""

    def __init__(self, lan, name, number):
        super().__init__(lan, name, number)
        self.service_name = "Quillbox Office"
        self.port = 4445
        self.share = os.path.join(self.folder, "share")
        os.makedirs(self.share)
        self.smbd = None
        self._announcer = None

    # ---- files ----

    def serve(self, port=4445, guests=False):
        """Starts smbd and waits until it accepts connections; with `guests` also those without a
        login."""
        self.port = port
        conf = smb_server.write_configuration(self.folder, self.share, port, guests=guests)
        with open(os.path.join(os.path.dirname(conf), PASSWORDS), "wb") as file:
            file.write(passwords())
        env = self.environment()
        if not may_set_groups():
            # An unprivileged user's namespace has one user and forbids setgroups(2), which smbd
            # needs to start: uid_wrapper fakes both.
            env |= {"LD_PRELOAD": "libuid_wrapper.so", "UID_WRAPPER": "1", "UID_WRAPPER_ROOT": "1"}
        self.smbd = self.start(smb_server.server_command(conf), env=env)
        self.smbd.wait_line(
            lambda line: line.text.strip() == "waiting for connections", 20, what="smbd"
        )

    def stop_serving(self):
        """Kills smbd and all its connections; from then on the port is closed."""
        self.smbd.kill_group()

    # ---- announcements ----

    def announce(self, name=None, **more):
        """Announces the phone; returns when probing had succeeded and it was announced."""
        self.service_name = name or self.service_name
        return self._order("announce", self.service_name, **more)

    def change(self, **more):
        """Replaces the records announced under the name with new ones."""
        return self._order("change", self.service_name, **more)

    def goodbye(self):
        """Withdraws the announcement (RFC 6762, section 10.1); returns when."""
        said = self._order("goodbye", self.service_name)
        # The next announcement gets a new responder, as the phone's interfaces may have changed.
        self._announcer.process.stdin.close()
        self._announcer.wait(10)
        self._announcer = None
        return said

    def _order(self, what, name, **more):
        if self._announcer is None:
            self._announcer = self.start_quickly(f"{HERE}/announce.py")
        order = {
            "do": what,
            "name": name,
            "type": TYPE_PHONE,
            "port": self.port,
            "host": self.name,
            "addresses": [self.address4, self.address6],
        }
        since = self._announcer.mark()
        self._announcer.write(json.dumps(order | more) + "\n")
        line = self._announcer.wait_line(
            lambda line: line.text.startswith("{"), 10, since=since, what=what
        )
        return json.loads(line.text)["at"]

    def vanish(self):
        """Stops everything without a goodbye, like a phone that lost its network."""
        self._announcer.kill_group()
        self._announcer = None
        if self.smbd is not None:
            self.stop_serving()


def smb_command(address, port, command=None):
    """The smbclient command line for the share NAS at address and port."""
    # The default timeout of 20 s for an answer is short when other tests keep the disk busy.
    options = ["-p", str(port), "-U", f"nas%{PASSWORD}", "-m", "SMB3", "--timeout=60"]
    return ["smbclient", f"//{address}/NAS", *options, *(["-c", command] if command else [])]


def smbclient(host, address, port, command, timeout=60, **more):
    """Runs smbclient on `host` with the share NAS at address and port."""
    return host.run(*smb_command(address, port, command), timeout=timeout, **more)
