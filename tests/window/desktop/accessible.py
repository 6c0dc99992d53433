"""Runs on a desktop: reads the accessibility tree (AT-SPI), as ordered on standard input.

Reads one JSON object per line. {"do": "tree", "pid": N} is answered with the tree of that process,
or null while it has none; {"do": "menu"} with the tree of the menu that contains the entry focused
last. {"do": "act", "pid": N, "path": [...], "action": NAME} performs an action of an element.
{"do": "listen", "event": NAME} reports such events from then on.
"""

import json
import sys

import gi

gi.require_version("Atspi", "2.0")
from gi.repository import Atspi, GLib  # noqa: E402 require_version must come first

MOST_ELEMENTS = 3000
FOCUS = "object:state-changed:focused"


def tell(what):
    print(json.dumps(what), flush=True)


def application(pid):
    desktop = Atspi.get_desktop(0)
    for index in range(desktop.get_child_count()):
        child = desktop.get_child_at_index(index)
        if child is not None and child.get_process_id() == pid:
            return child
    return None


def interfaces(element):
    """The properties of the optional interfaces that the element implements."""
    component = element.get_component_iface()
    if component is not None:
        place = component.get_extents(Atspi.CoordType.SCREEN)
        yield "place", [place.x, place.y, place.width, place.height]
    text = element.get_text_iface()
    if text is not None:
        yield "text", Atspi.Text.get_text(text, 0, text.get_character_count())
    action = element.get_action_iface()
    if action is not None:
        count = action.get_n_actions()
        yield "actions", [Atspi.Action.get_action_name(action, i) for i in range(count)]
    value = element.get_value_iface()
    if value is not None:
        yield "value", value.get_current_value()


class Reader:
    def __init__(self):
        self.left = 0
        self.focused = None
        self.listener = Atspi.EventListener.new(self.focus)
        self.listener.register(FOCUS)

    def focus(self, event):
        """Remembers the focused element: popup menus are not in the tree of any window, but can be
        found from the entry that has the focus."""
        if event.detail1:
            self.focused = event.source

    def menu(self):
        if self.focused is None:
            # A program that has just connected to the bus may have missed the registration.
            self.listener.deregister(FOCUS)
            self.listener.register(FOCUS)
            return None
        above = self.focused.get_parent()
        if above is None or above.get_role() not in (Atspi.Role.POPUP_MENU, Atspi.Role.MENU):
            return None
        return self.tree(above, [])

    def tree(self, element, path):
        self.left -= 1
        element.clear_cache()
        states = element.get_state_set().get_states()
        node = {
            "role": element.get_role_name(),
            "name": element.get_name(),
            "description": element.get_description(),
            "states": [state.value_nick for state in states],
            "relations": [
                [relation.get_relation_type().value_nick]
                + [relation.get_target(i).get_name() for i in range(relation.get_n_targets())]
                for relation in element.get_relation_set()
            ],
            "path": path,
            "children": [],
        }
        # Each property is a call to the program, and nobody asks for those of what is hidden.
        if Atspi.StateType.SHOWING in states:
            node.update(interfaces(element))
        for index in range(element.get_child_count()):
            child = element.get_child_at_index(index)
            if child is not None and self.left > 0:
                node["children"].append(self.tree(child, [*path, index]))
        return node

    def obey(self, order):
        if order["do"] == "listen":
            Atspi.EventListener.new(heard).register(order["event"])
            return True
        self.left = MOST_ELEMENTS
        if order["do"] == "menu":
            return self.menu()
        element = application(order["pid"])
        if element is None:
            return None
        if order["do"] == "tree":
            return self.tree(element, [])
        for index in order["path"]:
            element = element.get_child_at_index(index)
        names = [
            Atspi.Action.get_action_name(element, i) for i in range(element.get_n_actions())
        ]
        return Atspi.Action.do_action(element, names.index(order["action"]))


def heard(event):
    name = event.source.get_name() if event.source else None
    detail = event.any_data if isinstance(event.any_data, str) else None
    tell({"event": event.type, "name": name, "detail": [event.detail1, event.detail2, detail]})


def main():
    # Elements may disappear while they are read, so calls have a timeout.
    Atspi.set_timeout(2000, 10000)
    Atspi.init()
    # The library asks for the states before each other property, and for the interfaces with each of
    # them, unless it has them. All else may be out of date, so it is not cached.
    Atspi.get_desktop(0).set_cache_mask(Atspi.Cache.STATES | Atspi.Cache.INTERFACES)
    reader = Reader()
    loop = GLib.MainLoop()

    def read(channel, _condition):
        line = sys.stdin.readline()
        if not line:
            loop.quit()
            return False
        try:
            tell({"answer": reader.obey(json.loads(line))})
        except (GLib.Error, AttributeError, ValueError) as error:
            tell({"answer": None, "why": str(error)})
        return True

    GLib.io_add_watch(sys.stdin.fileno(), GLib.IO_IN | GLib.IO_HUP, read)
    loop.run()


main()
