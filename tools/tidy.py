#!/usr/bin/env python3
"""Runs clang-tidy on C++ files, side by side, and remembers the ones that it found clean.

usage: tidy.py BUILD FILE...

BUILD holds compile_commands.json. What decides whether a file is clean is all that the compiler
reads for it, how it is called and what clang-tidy looks for; while that stays as it was, the file
stays clean. The exit code is 0 only when every file is.
"""

import argparse
import concurrent.futures
import hashlib
import json
import os
import pathlib
import shlex
import subprocess
import sys
import threading


class Tidy:
    """clang-tidy with the settings of this tree."""

    def __init__(self, build):
        self.build = build
        self.clean = build / "clean"
        self.clean.mkdir(exist_ok=True)
        self.root = pathlib.Path(__file__).resolve().parents[1]
        version = subprocess.run(["clang-tidy", "--version"], capture_output=True, check=True)
        self.settings = version.stdout + (self.root / ".clang-tidy").read_bytes()
        commands = json.loads((build / "compile_commands.json").read_text(encoding="utf-8"))
        self.commands = {entry["file"]: entry for entry in commands}

    def stamp(self, file):
        """The file that says that this one is clean; None where it cannot even be preprocessed."""
        entry = self.commands[file]
        command = shlex.split(entry["command"])
        call = command[: command.index("-o")] + ["-E", "-C", "-dD", "-P", file]
        read = subprocess.run(call, cwd=entry["directory"], capture_output=True, check=False)
        if read.returncode != 0:
            return None
        how = " ".join(command).replace(str(self.root), "").encode()
        return self.clean / hashlib.sha256(b"\0".join([self.settings, how, read.stdout])).hexdigest()

    def check(self, file):
        """(whether the file is clean, what clang-tidy says)"""
        if file not in self.commands:
            return False, f"{file}: no target compiles it\n"
        stamp = self.stamp(file)
        if stamp is not None and stamp.exists():
            return True, ""
        ran = subprocess.run(
            ["clang-tidy", "--quiet", "-p", self.build, file],
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            text=True,
            check=False,
        )
        if ran.returncode != 0:
            return False, ran.stdout
        if stamp is not None:
            stamp.touch()
        return True, ""


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("files", nargs="+")
    arguments = parser.parse_args()

    tidy = Tidy(arguments.build)
    printing = threading.Lock()
    checked = []

    def check(file):
        is_clean, said = tidy.check(file)
        with printing:
            checked.append(is_clean)
            if not is_clean:
                print(said, end="")
            progress = f"{len(checked)} of {len(arguments.files)}: {os.path.relpath(file, tidy.root)}"
            print(progress, file=sys.stderr)

    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        list(pool.map(check, arguments.files))
    return 0 if all(checked) else 1


if __name__ == "__main__":
    sys.exit(main())
