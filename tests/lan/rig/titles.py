"""Prints the titles of all mapped windows of the display, one per line."""

import socket

from Xlib import X, display
from Xlib.support import unix_connect


def connect(address):
    made = socket.socket(socket.AF_UNIX)
    # Some versions of the library mark the address as abstract, where the path does not exist.
    made.connect("\0" + address.lstrip("\0"))
    return made


# The X server has an abstract socket only (desktop.py), which this library does not look for.
unix_connect._get_unix_socket = connect

screen = display.Display()
title = screen.intern_atom("_NET_WM_NAME")


def visit(window):
    for child in window.query_tree().children:
        if child.get_attributes().map_state == X.IsViewable:
            held = child.get_full_property(title, X.AnyPropertyType)
            if held:
                print(held.value.decode(), flush=True)
            visit(child)


visit(screen.screen().root)
