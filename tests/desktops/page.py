#!/usr/bin/env python3
"""Writes docs/desktops.md from the findings of ./dev test --desktops.

usage: page.py FINDINGS OUTPUT
"""

import json
import pathlib
import sys

RELEASES = {"bookworm": "Debian 12", "trixie": "Debian 13"}

# The tables, with their desktops and questions in this order.
TABLES = {
    "File managers": (
        ("Nautilus", "Nemo", "Caja", "Thunar", "PCManFM", "PCManFM-Qt", "Dolphin"),
        (
            "network view lists both phones",
            "both open from there",
            "“Open in Finder”",
            "`open`",
            "“Open in Finder”, no libnss-mdns",
            "`open`, no libnss-mdns",
            "“Open in Finder”, no avahi-daemon",
            "`open`, no avahi-daemon",
        ),
    ),
    "Compositors": (
        ("GNOME Shell", "KWin", "sway", "weston"),
        (
            *("no phone", "one phone", "two phones", "unfolded", "whole at start", "whole with phones"),
            *("second start, covered", "second start, closed"),
            *("status item", "item, late panel", "click on it"),
            *("menu shows the window", "menu opens the share", "“Open in Finder”"),
        ),
    ),
}

WIDEST = 9  # columns of answers: a table with more questions has them in its rows

HEAD = """# Desktops

What real desktops of Debian 12 and Debian 13 show, seen by `./dev test --desktops`, which writes this page. The
program is installed from its Debian package, two phones with files of their own are on the network, and the desktop
runs as an ordinary user without a physical screen. Times are from the click, or from the command, to the first
window, which asks for the password of the share. “yes” means that then the files of the right phone were seen, in one
window; those of Nautilus and PCManFM, whose views the accessibility bus does not show, were read from what they had
mounted. Without avahi-daemon there is no network view to try: all file managers browse through it.

"""


# What is to be said above the tables of a kind.
ABOUT = {
    "Compositors": """The compositors run on Wayland: GNOME Shell with a virtual monitor and the AppIndicator extension,
KWin with Plasma's panel, sway with its bar, and weston. All clicks are of a pointer; entries of Plasma's menu are
chosen with the keyboard. The first rows are sizes of the frame, with title bar and borders; it should be 440 wide and
340, 382, 404 and 584 high. “Whole” means that all texts and buttons are within the window and nothing scrolls. Before
the second start, the window is covered by another one, or closed. A late panel starts after the program. “Open in
Finder” is a click in the window; it is right, as is the menu, when the file manager gets the focus: Nautilus, or
Dolphin on KWin.

""",
}


def read(folder):
    found = {}
    for path in sorted(pathlib.Path(folder).glob("*.json")):
        data = json.loads(path.read_text("utf-8"))
        found[data["kind"], data["release"], data["desktop"]] = data
    return found


def cell(answer, reasons):
    """The text of a cell; a reason becomes a numbered note below the table."""
    if answer is None:
        return "not tried"
    if answer["answer"] == "no":
        raise SystemExit(f"page.py: there is no page with an answer \"no\": {answer['note']}")
    text = answer["answer"]
    if "seconds" in answer:
        text += f", {answer['seconds']:.1f} s"
    if "note" in answer:
        if answer["note"] not in reasons:
            reasons.append(answer["note"])
        text += f" ({reasons.index(answer['note']) + 1})"
    return text


def table(kind, release, found, pictures):
    desktops, questions = TABLES[kind]
    there = [x for x in desktops if (kind, release, x) in found]
    if not there:
        return ""
    asked = list(questions)
    for desktop in there:
        asked += [x for x in found[kind, release, desktop]["answers"] if x not in asked]
    rows = [["desktop", *asked]]
    reasons, shown = [], []
    for desktop in there:
        data = found[kind, release, desktop]
        name = " ".join([desktop, *[version for _, version in data["versions"][:1]]])
        cells = [cell(data["answers"].get(x), reasons) for x in asked]
        rows.append([name, *cells])
        name = f"{RELEASES[release].replace(' ', '').lower()}-{desktop.replace(' ', '-').lower()}.png"
        if (pictures / name).exists():
            shown.append(f"[{desktop}](screenshots/desktops/{name})")
    if len(asked) > WIDEST:
        rows = [*zip(*rows)]
    lines = [f"### {RELEASES[release]}", ""]
    lines += [f"| {' | '.join(x)} |" for x in rows]
    lines.insert(3, "|---" * len(rows[0]) + "|")
    lines.append("")
    lines += [f"{number}. {reason}" for number, reason in enumerate(reasons, 1)] + [""] * bool(reasons)
    if shown:
        lines += [f"Pictures: {', '.join(shown)}.", ""]
    used = {}
    for desktop in there:
        used |= dict(found[kind, release, desktop]["versions"])
    lines += ["Versions: " + ", ".join(f"{x} {used[x]}" for x in sorted(used)) + ".", ""]
    return "\n".join(lines) + "\n"


def main():
    folder, output = map(pathlib.Path, sys.argv[1:])
    found = read(folder)
    pictures = output.parent / "screenshots/desktops"
    text = HEAD
    for kind in TABLES:
        tables = "".join(table(kind, x, found, pictures) for x in RELEASES)
        if tables:
            text += f"## {kind}\n\n{ABOUT.get(kind, '')}{tables}"
    output.write_text(text.rstrip("\n") + "\n", "utf-8")


if __name__ == "__main__":
    main()
