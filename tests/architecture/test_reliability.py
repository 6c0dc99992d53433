"""The tests that docs/reliability.md names exist."""

import os
import re

import pytest

ROOT = os.path.abspath(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", ".."))
PAGE = os.path.join(ROOT, "docs", "reliability.md")
GOOGLE_TEST = re.compile(r"^TEST(?:_F|_P)?\((\w+),\s*(\w+)\)", re.MULTILINE)
PYTHON_TEST = re.compile(r"^def (test_\w+)\(", re.MULTILINE)


def existing():
    """The names of all tests: `test_…` for pytest, `Suite.name` for GoogleTest."""
    found = set()
    for folder, _, names in os.walk(os.path.join(ROOT, "tests")):
        for name in names:
            if not name.endswith((".py", ".cpp")):
                continue
            with open(os.path.join(folder, name), encoding="utf-8") as file:
                text = file.read()
            if name.endswith(".py"):
                found.update(PYTHON_TEST.findall(text))
            else:
                found.update(".".join(x) for x in GOOGLE_TEST.findall(text))
    return found


def rows(text):
    """The rows of the tables, each a list of its four cells."""
    for line in text.splitlines():
        if line.startswith("|") and not re.match(r"\|[-| ]+\|$|\| fault \|", line):
            yield [cell.strip() for cell in line.strip("|").split("|")]


def missing(text, there):
    """Yields the errors in the tables."""
    for cells in rows(text):
        if len(cells) != 4 or not all(cells):
            yield f"not four cells: {cells}"
            continue
        named = re.findall(r"`([^`]+)`", cells[3])
        if not named:
            yield f"no test: {cells[0]}"
        yield from (f"{name} is no test: {cells[0]}" for name in named if name not in there)


def test_every_fault_of_the_table_has_a_test_that_is_there():
    with open(PAGE, encoding="utf-8") as file:
        text = file.read()
    assert len(list(rows(text))) > 80
    assert list(missing(text, existing())) == []


@pytest.mark.parametrize(
    "row, complaint",
    [
        ("| a fault | how | what | `test_that_is_gone` |", "is no test"),
        ("| a fault | how | what | `Suite.gone` |", "is no test"),
        ("| a fault | how | what | by hand |", "no test"),
        ("| a fault | how | what |", "not four cells"),
        ("| a fault | | what | `test_that_is_there` |", "not four cells"),
    ],
)
def test_a_planted_row_is_found(row, complaint):
    there = {"test_that_is_there"}
    good = "| fault | injected by | what happens | test |\n|---|---|---|---|\n"
    good += "| a fault | how | what | `test_that_is_there` |\n"
    assert list(missing(good, there)) == []
    (found,) = missing(good + row + "\n", there)
    assert complaint in found
