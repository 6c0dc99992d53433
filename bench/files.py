"""The part that copies real files over SMB."""

import os
import shutil
import time

from rig.phone import smbclient
from relays import FILES_PORT

MANY = 2000
SMALL = 16 << 10


class Files:
    """One big file and many small ones, in the computer's memory."""

    def __init__(self, host, big_bytes, many):
        self.many = many
        self.big_bytes = big_bytes
        self.folder = os.path.join(host.folder, "files")
        os.makedirs(self.folder)
        # In the host's own mount namespace, so it is unmounted when the host ends.
        host.run("mount", "-t", "tmpfs", "tmpfs", self.folder)
        script = (
            f'cd "{self.folder}" && mkdir many got && head -c {big_bytes} /dev/urandom >big && '
            f"head -c {SMALL} /dev/urandom >one && "
            f"i=0; while [ $i -lt {many} ]; do cp one many/$i; i=$((i+1)); done"
        )
        host.run("sh", "-ec", script, timeout=120)


def smb(run):
    place = run.place("network")
    relays = run.relays(place)
    files = Files(place.host, run.plan.pick(1 << 30, 128 << 20), run.plan.pick(MANY, 200))
    section = run.book.section("Real files over SMB")
    section.words = [
        f"smbclient against smbd: one file of {files.big_bytes >> 20:,} MiB, and {files.many:,} "
        "files of 16 KiB. The times are those of the whole run of smbclient."
    ]
    folder = files.folder
    many = f'prompt off; lcd "{folder}/many"; mkdir many; cd many; mput *'
    many_back = f'prompt off; lcd "{folder}/got"; cd many; mget *'
    rows = (
        ("big file, put", f'lcd "{folder}"; put big', files.big_bytes / 1e9, "GB/s", 2),
        ("big file, get", "get big /dev/null", files.big_bytes / 1e9, "GB/s", 2),
        ("small files, put", many, files.many, "files/s", 0),
        ("small files, get", many_back, files.many, "files/s", 0),
    )
    figures = [section.figure(title, unit, digits=digits) for title, _, _, unit, digits in rows]
    for relay in run.rounds(relays, section.title, run.plan.few()):
        for figure, (_, command, amount, _, _) in zip(figures, rows):
            figure.add(relay.name, amount / smb_seconds(relay, command))
        empty(place.phone.share)


def smb_seconds(relay, command):
    began = time.monotonic()
    smbclient(relay.place.host, relay.address(), relay.port(FILES_PORT), command, timeout=180)
    return time.monotonic() - began


def empty(share):
    """Removes the files that a round has left on the phone."""
    for name in os.listdir(share):
        path = os.path.join(share, name)
        if os.path.isdir(path):
            shutil.rmtree(path)
        else:
            os.remove(path)
