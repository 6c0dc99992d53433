"""Runs in a session: looks for elements on the accessibility bus (AT-SPI).

usage: seen.py ORDER, a JSON object. {"text": TEXT} asks for the visible elements of all programs that contain
TEXT in name or text; "role" restricts them, "without" leaves a program out. Prints a JSON array: an element is its program, role,
name, text, place and states.
"""

import json
import signal
import sys

import gi

gi.require_version("Atspi", "2.0")
from gi.repository import Atspi, GLib  # noqa: E402 require_version must come first

MOST_ELEMENTS = 4000
ALWAYS = (Atspi.Role.ICON, Atspi.Role.APPLICATION)
TEXTS = ("text", "password text", "label")
MOST_SECONDS = 25  # busy programs do not answer; the caller tries again


def text_of(element):
    text = element.get_text_iface()
    return Atspi.Text.get_text(text, 0, min(text.get_character_count(), 500)) if text else ""


def place_of(element):
    component = element.get_component_iface()
    if component is None:
        return None
    place = component.get_extents(Atspi.CoordType.SCREEN)
    return [place.x, place.y, place.width, place.height]


class Search:
    def __init__(self, order):
        self.order = order
        self.left = MOST_ELEMENTS
        self.found = []

    def look(self, element, program):
        self.left -= 1
        if self.left < 0 or element is None:
            return
        states = element.get_state_set()
        # The icons of GTK 3's file managers do not have this state. What is in hidden elements, such as
        # closed menus, is many more than what is visible.
        shown = states.contains(Atspi.StateType.SHOWING) or element.get_role() in ALWAYS
        if not shown:
            return
        self.take(element, program, states)
        for index in range(min(element.get_child_count(), 300)):
            try:
                self.look(element.get_child_at_index(index), program)
            except GLib.Error:
                continue

    def take(self, element, program, states):
        order = self.order
        role, name = element.get_role_name(), element.get_name() or ""
        if order.get("role", role) != role:
            return
        # Only names, roles and states come without a call to the program for each.
        text = text_of(element) if role in TEXTS else ""
        if order.get("text", "") in name or order.get("text", "") in text:
            nicks = [x.value_nick for x in states.get_states()]
            self.found.append([program, role, name, text, place_of(element), nicks])


def obey(order):
    search = Search(order)
    desktop = Atspi.get_desktop(0)
    for index in range(desktop.get_child_count()):
        try:
            program = desktop.get_child_at_index(index)
            name = program.get_name()
            if order.get("without") != name:
                search.look(program, name)
        except (GLib.Error, AttributeError):
            continue
    return search.found


def main():
    # Elements may disappear while they are read, and calls may never be answered.
    Atspi.set_timeout(1500, 5000)
    signal.alarm(MOST_SECONDS)
    Atspi.init()
    print(json.dumps(obey(json.loads(sys.argv[1]))))


main()
