#!/usr/bin/env python3
"""Runs clang-tidy on C++ files in parallel, and caches which files are clean.

usage: tidy.py BUILD FILE...

BUILD contains compile_commands.json. The cache key of a file is a hash of its preprocessed source,
its compiler options, and the version and configuration of clang-tidy. The exit code is 0 only if
every file is clean.

Nearly all of the time goes into the headers of the system and of Qt, which every check traverses
for each file. Therefore files of one folder with the same compiler options are first concatenated
and checked as one translation unit. If that does not compile or gives warnings, the files concerned
are checked one by one, and only those results are reported.
"""

import argparse
import collections
import concurrent.futures
import hashlib
import json
import os
import pathlib
import re
import shlex
import shutil
import subprocess
import sys
import threading

# Large enough that parsing the headers is cheap per file, small enough to keep all processors busy.
TOGETHER = 16

# Compiler diagnostics only, plus one cheap check, as clang-tidy needs at least one.
COMPILING = "--checks=-*,clang-diagnostic-*,misc-new-delete-overloads"

COMPLAINT = re.compile(r"^(/[^:\n]+):(\d+):\d+: (?:warning|error|fatal error): ", re.MULTILINE)


class Tidy:
    """clang-tidy with the configuration of this source tree."""

    def __init__(self, build):
        self.build = build
        self.clean = build / "clean"
        self.clean.mkdir(exist_ok=True)
        self.together = build / "together"
        self.together.mkdir(exist_ok=True)
        self.root = pathlib.Path(__file__).resolve().parents[1]
        version = subprocess.run(["clang-tidy", "--version"], capture_output=True, check=True)
        settings = [self.root / ".clang-tidy", *sorted(self.root.glob("*/.clang-tidy"))]
        self.settings = version.stdout + b"\0".join(file.read_bytes() for file in settings)
        for file in settings:
            self.copy_settings(file)
        commands = json.loads((build / "compile_commands.json").read_text(encoding="utf-8"))
        self.commands = {entry["file"]: entry for entry in commands}

    def copy_settings(self, file):
        """Copies a configuration file for the joined files: clang-tidy looks for it in the folders
        above a file."""
        copy = self.together / file.relative_to(self.root)
        copy.parent.mkdir(exist_ok=True)
        shutil.copyfile(file, copy)

    def flags(self, file):
        """The compiler command for the file, without the names of the file and its output."""
        command = shlex.split(self.commands[file]["command"])
        return command[: command.index("-o")]

    def stamp(self, file, flags):
        """The path of the cache entry that marks the file as clean; None if it cannot be
        preprocessed."""
        call = [*flags, "-E", "-C", "-dD", "-P", file]
        read = subprocess.run(call, capture_output=True, check=False)
        if read.returncode != 0:
            return None
        how = " ".join(flags).replace(str(self.root), "").encode()
        return self.clean / hashlib.sha256(b"\0".join([self.settings, how, read.stdout])).hexdigest()

    def run(self, *arguments):
        """(whether clang-tidy has no complaints, its output)"""
        ran = subprocess.run(
            ["clang-tidy", "--quiet", *arguments],
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            text=True,
            check=False,
        )
        return ran.returncode == 0, ran.stdout

    def check(self, file):
        """(whether the file is clean, the output of clang-tidy)"""
        return self.run("-p", self.build, file)

    def check_together(self, files):
        """Checks files with the same compiler options as one; returns those known to be clean."""
        text, owners = self.join(files)
        arguments = [text, "--", *self.flags(files[0])[1:]]
        compiles, said = self.run(COMPILING, *arguments)
        if compiles:
            content, said = self.run(*arguments)
            if content:
                return files
        named = set()
        for path, line in COMPLAINT.findall(said):
            named.add(owners[int(line) - 1] if path == str(text) else path)
        rest = [file for file in files if file not in named]
        if compiles:
            # A warning in a header may be caused by any of the files.
            return rest if named and named <= set(files) else []
        return self.check_together(rest) if 1 < len(rest) < len(files) else []

    def join(self, files):
        """Concatenates the files; returns the resulting path, and the original file of each line.

        Repeated #include lines of later files are dropped, as clang-tidy would warn about them."""
        owners, lines, included = [], [], set()
        for file in files:
            own = set()
            for line in pathlib.Path(file).read_text("utf-8").splitlines():
                if line.startswith("#include"):
                    is_again = line in included and line not in own
                    own.add(line)
                    line = "" if is_again else line
                lines.append(line)
                owners.append(file)
            included |= own
        folder = self.together / os.path.relpath(os.path.dirname(files[0]), self.root)
        folder.mkdir(parents=True, exist_ok=True)
        name = hashlib.sha256("\0".join(files).encode()).hexdigest()
        text = folder / f"{name}.cpp"
        text.write_text("\n".join(lines) + "\n", encoding="utf-8")
        return text, owners

    def check_all(self, files, progress):
        """Checks files that have the same compiler options, and reports each."""
        flags = self.flags(files[0])
        together = self.stamp(self.join(files)[0], flags)
        if together is not None and together.exists():
            for file in files:
                progress.tell(file, True)
            return
        stamps = {file: self.stamp(file, flags) for file in files}
        unknown = [file for file in files if stamps[file] is None or not stamps[file].exists()]
        clean = set(files) - set(unknown)
        clean |= set(self.check_together(unknown)) if len(unknown) > 1 else set()
        for file in files:
            is_clean, said = (True, "") if file in clean else self.check(file)
            if is_clean:
                clean.add(file)
                if stamps[file] is not None:
                    stamps[file].touch()
            progress.tell(file, is_clean, said)
        if together is not None and len(clean) == len(files):
            together.touch()


class Progress:
    """Counts and prints the results so far."""

    def __init__(self, tidy, count):
        self.tidy = tidy
        self.count = count
        self.done = 0
        self.all_clean = True
        self.lock = threading.Lock()

    def tell(self, file, is_clean, said=""):
        with self.lock:
            self.done += 1
            self.all_clean = self.all_clean and is_clean
            if not is_clean:
                print(said, end="", flush=True)
            shown = os.path.relpath(file, self.tidy.root)
            print(f"{self.done} of {self.count}: {shown}", file=sys.stderr)


def batches(tidy, files):
    """Groups of files that can be joined: same folder, same compiler options."""
    alike = collections.defaultdict(list)
    for file in files:
        alike[os.path.dirname(file), tuple(tidy.flags(file))].append(file)
    for group in alike.values():
        yield from (group[i : i + TOGETHER] for i in range(0, len(group), TOGETHER))


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("files", nargs="+")
    arguments = parser.parse_args()

    tidy = Tidy(arguments.build)
    progress = Progress(tidy, len(arguments.files))
    compiled = [file for file in arguments.files if file in tidy.commands]
    for file in set(arguments.files) - set(compiled):
        progress.tell(file, False, f"{file}: no target compiles it\n")

    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        list(pool.map(lambda files: tidy.check_all(files, progress), batches(tidy, compiled)))
    return 0 if progress.all_clean else 1


if __name__ == "__main__":
    sys.exit(main())
