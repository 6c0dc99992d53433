"""Runs on a session bus: a panel for status items and what else the arguments name, as on a desktop.

    file-manager        shows folders and says so
    hanging-manager     does not answer
    notifications       shows notifications, and would interpret markup
    granting-portal     a portal that starts programs at login, and says what it was asked for
    refusing-portal     does so, but refuses it

Reports on standard output, one JSON object per line, the status item that registers, the folders
that the file manager is asked to show, the notifications and what the portal is asked for. Each line
of standard input is the title of an entry of that item's menu, which is then chosen.
"""

import json
import sys

import gi

gi.require_version("Gio", "2.0")
from gi.repository import Gio, GLib  # noqa: E402 require_version must come first

PANEL = """<node><interface name="org.kde.StatusNotifierWatcher">
  <method name="RegisterStatusNotifierItem"><arg type="s" direction="in"/></method>
  <property name="IsStatusNotifierHostRegistered" type="b" access="read"/>
</interface></node>"""

FILE_MANAGER = """<node><interface name="org.freedesktop.FileManager1">
  <method name="ShowFolders">
    <arg type="as" direction="in"/><arg type="s" direction="in"/>
  </method>
</interface></node>"""

NOTIFICATIONS = """<node><interface name="org.freedesktop.Notifications">
  <method name="GetCapabilities"><arg type="as" direction="out"/></method>
  <method name="Notify">
    <arg type="s" direction="in"/><arg type="u" direction="in"/><arg type="s" direction="in"/>
    <arg type="s" direction="in"/><arg type="s" direction="in"/><arg type="as" direction="in"/>
    <arg type="a{sv}" direction="in"/><arg type="i" direction="in"/>
    <arg type="u" direction="out"/>
  </method>
</interface></node>"""

PORTAL = """<node><interface name="org.freedesktop.portal.Background">
  <method name="RequestBackground">
    <arg type="s" direction="in"/><arg type="a{sv}" direction="in"/>
    <arg type="o" direction="out"/>
  </method>
</interface></node>"""
PORTAL_NAME = "org.freedesktop.portal.Desktop"
PORTAL_PATH = "/org/freedesktop/portal/desktop"

MENU = "com.canonical.dbusmenu"


NO_ANSWER = object()


def tell(event, **more):
    print(json.dumps({"event": event, **more}), flush=True)


class Desk:
    def __init__(self, parts):
        self.bus = Gio.bus_get_sync(Gio.BusType.SESSION)
        self.item = None
        self.offer(PANEL, "/StatusNotifierWatcher", self.register)
        if "file-manager" in parts:
            self.offer(FILE_MANAGER, "/org/freedesktop/FileManager1", self.show)
        if "hanging-manager" in parts:
            self.offer(FILE_MANAGER, "/org/freedesktop/FileManager1", self.hang)
        if "notifications" in parts:
            self.offer(NOTIFICATIONS, "/org/freedesktop/Notifications", self.notify)
        if "granting-portal" in parts:
            self.offer(PORTAL, PORTAL_PATH, self.grant, PORTAL_NAME)
        if "refusing-portal" in parts:
            self.offer(PORTAL, PORTAL_PATH, self.refuse, PORTAL_NAME)

    def offer(self, description, path, answer, name=None):
        interface = Gio.DBusNodeInfo.new_for_xml(description).interfaces[0]

        def called(_bus, sender, _path, _interface, _method, parameters, invocation):
            result = answer(sender, *parameters.unpack())
            if result is not NO_ANSWER:
                invocation.return_value(result)

        def asked(*_):
            return GLib.Variant("b", True)

        self.bus.register_object(path, interface, called, asked, None)
        self.bus.call_sync(
            *("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus"),
            "RequestName",
            GLib.Variant("(su)", (name or interface.name, 0)),
            *(None, Gio.DBusCallFlags.NONE, 5000, None),
        )

    def register(self, sender, _name):
        self.item = sender
        tell("item")

    def show(self, _sender, folders, token):
        for folder in folders:
            tell("folder", name=folder, token=token)

    def hang(self, sender, folders, token):
        self.show(sender, folders, token)
        return NO_ANSWER

    def notify(self, _sender, *arguments):
        if not arguments:
            return GLib.Variant("(as)", (["body", "body-markup"],))
        tell("notification", title=arguments[3], text=arguments[4])
        return GLib.Variant("(u)", (1,))

    def grant(self, sender, _window, options):
        return self.respond(sender, options, 0, options["autostart"])

    def refuse(self, sender, _window, options):
        return self.respond(sender, options, 1, False)

    def respond(self, sender, options, response, is_on):
        tell("autostart", wanted=options["autostart"], command=options["commandline"])
        caller = sender[1:].replace(".", "_")
        request = f"{PORTAL_PATH}/request/{caller}/{options['handle_token']}"
        results = {name: GLib.Variant("b", is_on) for name in ("background", "autostart")}
        signal = ("org.freedesktop.portal.Request", "Response")
        self.bus.emit_signal(
            sender, request, *signal, GLib.Variant("(ua{sv})", (response, results))
        )
        return GLib.Variant("(o)", (request,))

    def call(self, path, interface, method, *arguments):
        return self.bus.call_sync(
            self.item, path, interface, method, *arguments, Gio.DBusCallFlags.NONE, 5000
        )

    def choose(self, title):
        owner = "org.kde.StatusNotifierItem"
        path = self.call(
            "/StatusNotifierItem",
            "org.freedesktop.DBus.Properties",
            "Get",
            GLib.Variant("(ss)", (owner, "Menu")),
            None,
        ).unpack()[0]
        _, (_, _, entries) = self.call(
            path, MENU, "GetLayout", GLib.Variant("(iias)", (0, -1, [])), None
        ).unpack()
        (number,) = (x[0] for x in entries if x[1].get("label") == title)
        event = GLib.Variant("(isvu)", (number, "clicked", GLib.Variant("i", 0), 0))
        self.call(path, MENU, "Event", event, None)
        tell("chosen", name=title)

    def obey(self, source, _condition):
        line = source.readline()
        if not line:
            loop.quit()
            return False
        self.choose(line.strip())
        return True


desk = Desk(sys.argv[1:])
loop = GLib.MainLoop()
GLib.io_add_watch(sys.stdin, GLib.PRIORITY_DEFAULT, GLib.IO_IN | GLib.IO_HUP, desk.obey)
tell("ready")
loop.run()
