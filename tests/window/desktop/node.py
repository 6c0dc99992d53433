"""The accessibility tree of the program's windows."""


class Node:
    """One element: role, name, states, place on the screen, and children."""

    def __init__(self, told, parent=None):
        # at-spi2-core 2.54 changed the name of the role.
        self.role = {"button": "push button"}.get(told["role"], told["role"])
        self.name = told["name"]
        self.description = told["description"]
        self.states = set(told["states"])
        self.relations = told["relations"]
        self.path = told["path"]
        self.place = told.get("place")
        self.text = told.get("text")
        self.actions = told.get("actions", [])
        self.value = told.get("value")
        self.parent = parent
        self.children = [Node(child, self) for child in told["children"]]

    def __repr__(self):
        return f"<{self.role} {self.name!r}>"

    def all(self):
        """This element and everything in it, from top to bottom."""
        yield self
        for child in self.children:
            yield from child.all()

    def having(self, role=None, name=None, showing=None):
        """All elements with this role and name; `showing` selects visible (or hidden) ones."""
        return [
            node
            for node in self.all()
            if role in (None, node.role)
            and name in (None, node.name)
            and (showing is None or showing == ("showing" in node.states))
        ]

    def find(self, role=None, name=None, showing=None):
        """The first such element; fails and prints the whole tree if there is none."""
        found = self.having(role, name, showing)
        assert found, f"no {role} {name!r} in:\n{self.outline()}"
        return found[0]

    def has(self, role=None, name=None, showing=None):
        return bool(self.having(role, name, showing))

    def centre(self):
        x, y, width, height = self.place
        return x + width // 2, y + height // 2

    def outline(self, depth=0):
        """The tree as text."""
        line = "  " * depth + f"{self.role} {self.name!r} {self.place} {sorted(self.states)}"
        return "\n".join([line] + [child.outline(depth + 1) for child in self.children])
