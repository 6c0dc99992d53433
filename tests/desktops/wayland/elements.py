"""Runs in a session: prints the accessibility tree of a process as JSON, or null if it has none.

usage: elements.py PID DEPTH. It speaks to the accessibility bus itself: libatspi also handles the events of all
programs, and has been seen to wait for itself while GNOME Shell sends some.
"""

import json
import sys

import gi

gi.require_version("Gio", "2.0")
from gi.repository import Gio, GLib  # noqa: E402 require_version must come first

STATES = {1: "active", 11: "focusable", 12: "focused", 25: "showing", 30: "visible"}
MOST_ELEMENTS = 3000
MILLISECONDS = 3000  # for each answer
ACCESSIBLE = "org.a11y.atspi.Accessible"
ROOT = ("org.a11y.atspi.Registry", "/org/a11y/atspi/accessible/root")


class Tree:
    def __init__(self):
        session = Gio.bus_get_sync(Gio.BusType.SESSION)
        self.bus = session
        (address,) = self.call(("org.a11y.Bus", "/org/a11y/bus"), "org.a11y.Bus", "GetAddress")
        flags = Gio.DBusConnectionFlags.AUTHENTICATION_CLIENT
        flags |= Gio.DBusConnectionFlags.MESSAGE_BUS_CONNECTION
        self.bus = Gio.DBusConnection.new_for_address_sync(address, flags)
        self.left = MOST_ELEMENTS

    def call(self, element, interface, method, arguments=None):
        name, path = element
        flags = Gio.DBusCallFlags.NONE
        return self.bus.call_sync(
            name, path, interface, method, arguments, None, flags, MILLISECONDS
        ).unpack()

    def get(self, element, name):
        arguments = GLib.Variant("(ss)", (ACCESSIBLE, name))
        return self.call(element, "org.freedesktop.DBus.Properties", "Get", arguments)[0]

    def children(self, element):
        return self.call(element, ACCESSIBLE, "GetChildren")[0]

    def pid(self, element):
        arguments = GLib.Variant("(s)", (element[0],))
        bus = ("org.freedesktop.DBus", "/org/freedesktop/DBus")
        return self.call(bus, bus[0], "GetConnectionUnixProcessID", arguments)[0]

    def read(self, element, path, depth):
        self.left -= 1
        (words,) = self.call(element, ACCESSIBLE, "GetState")
        told = {
            "role": self.call(element, ACCESSIBLE, "GetRoleName")[0],
            "name": self.get(element, "Name"),
            "description": "",
            "states": [x for bit, x in STATES.items() if words[bit // 32] >> bit % 32 & 1],
            "relations": [],
            "path": path,
            "children": [],
        }
        if "org.a11y.atspi.Component" in self.call(element, ACCESSIBLE, "GetInterfaces")[0]:
            on_screen = GLib.Variant("(u)", (0,))
            component = "org.a11y.atspi.Component"
            told["place"] = self.call(element, component, "GetExtents", on_screen)[0]
        # What is hidden, such as closed menus, has hundreds of elements.
        goes_on = depth > 0 and (not path or "showing" in told["states"])
        for index, child in enumerate(self.children(element) if goes_on else ()):
            if self.left > 0:
                try:
                    told["children"].append(self.read(child, [*path, index], depth - 1))
                except GLib.Error:  # it has gone, or does not answer
                    continue
        return told


def main():
    tree = Tree()
    pid, depth = map(int, sys.argv[1:])
    for program in tree.children(ROOT):
        try:
            if tree.pid(program) == pid:
                return tree.read(program, [], depth)
        except GLib.Error:
            continue
    return None


print(json.dumps(main()))
