"""Runs on a session bus: mounts shares as a file manager does, as ordered on standard input.

Each line is a JSON object: `mount` a URL, with a user's `password` that is to be remembered for ever
or without one, `unmount` a URL, or `list` one. Each is answered with one: the `names` in a folder, or
how often a password was `asked` for, and an `error` if it failed.
"""

import json
import sys

import gi

gi.require_version("Gio", "2.0")
from gi.repository import Gio, GLib  # noqa: E402 require_version must come first


class Login(Gio.MountOperation):
    """The dialog that asks for a password. Without a password its user closes it."""

    def __init__(self, password):
        super().__init__()
        self.asked = 0
        self._password = password
        self.connect("ask-password", self._ask)

    def _ask(self, _operation, _message, _user, _domain, _flags):
        self.asked += 1
        if self._password is None or self.asked > 1:
            self.reply(Gio.MountOperationResult.ABORTED)
            return
        self.set_password(self._password)
        self.set_password_save(Gio.PasswordSave.PERMANENTLY)
        self.reply(Gio.MountOperationResult.HANDLED)


def finished(start, finish):
    """Starts an asynchronous operation and waits for its end."""
    loop = GLib.MainLoop()
    results = []

    def done(_source, result):
        results.append(result)
        loop.quit()

    start(done)
    loop.run()
    finish(results[0])


def mount(url, password=None):
    folder = Gio.File.new_for_uri(url)
    login = Login(password)
    answer = {}
    try:
        finished(
            lambda done: folder.mount_enclosing_volume(0, login, None, done),
            folder.mount_enclosing_volume_finish,
        )
    except GLib.Error as error:
        answer["error"] = error.message
    return answer | {"asked": login.asked}


def unmount(url):
    mounted = Gio.File.new_for_uri(url).find_enclosing_mount()
    finished(
        lambda done: mounted.unmount_with_operation(0, None, None, done),
        mounted.unmount_with_operation_finish,
    )
    return {}


def list_folder(url):
    try:
        entries = Gio.File.new_for_uri(url).enumerate_children("standard::name", 0)
        return {"names": sorted(entry.get_name() for entry in entries)}
    except GLib.Error as error:
        return {"error": error.message}


for line in sys.stdin:
    order = json.loads(line)
    work = {"mount": mount, "unmount": unmount, "list": list_folder}[order.pop("do")]
    print(json.dumps(work(**order)), flush=True)
