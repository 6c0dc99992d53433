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
        (),
    ),
}

HEAD = """# Desktops

What real desktops of Debian 12 and Debian 13 show, seen by `./dev test --desktops`, which writes this page. The
program is installed from its Debian package, two phones with files of their own are on the network, and the desktop
runs as an ordinary user without a physical screen. Times are from the click, or from the command, to the first
window, which asks for the password of the share. “yes” means that then the files of the right phone were seen, in one
window. Without avahi-daemon there is no network view to try: all file managers browse through it.

"""


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
    lines = [f"### {RELEASES[release]}", "", f"| desktop | {' | '.join(asked)} |"]
    lines.append("|---" * (len(asked) + 1) + "|")
    reasons, shown = [], []
    for desktop in there:
        data = found[kind, release, desktop]
        name = " ".join([desktop, *[version for _, version in data["versions"][:1]]])
        cells = [cell(data["answers"].get(x), reasons) for x in asked]
        lines.append(f"| {name} | {' | '.join(cells)} |")
        name = f"{RELEASES[release].replace(' ', '').lower()}-{desktop.replace(' ', '-').lower()}.png"
        if (pictures / name).exists():
            shown.append(f"[{desktop}](screenshots/desktops/{name})")
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
            text += f"## {kind}\n\n{tables}"
    output.write_text(text.rstrip("\n") + "\n", "utf-8")


if __name__ == "__main__":
    main()
