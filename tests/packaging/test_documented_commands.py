"""Every command in the documents exists, and those for users are executed."""

import glob
import os
import re
import shlex
import shutil
import subprocess
import sys

import pytest
from rig.network import NO_NAMESPACES, require_namespaces
from test_packaging import INSTALLED, PROGRAM, ROOT, described, run

sys.path.append(os.path.join(ROOT, "tests/architecture"))
from test_reliability import existing  # noqa: E402 the names of all tests

PAGES = ["README.md", "CONTRIBUTING.md", "SECURITY.md", "CHANGELOG.md"]
PAGES += [os.path.relpath(path, ROOT) for path in glob.glob(f"{ROOT}/docs/*.md")]
PAGES += ["debian/README.Debian", "packaging/tarball/README"]
OPTION = re.compile(r"--[a-z][a-z-]*")
# Exit statuses of valid commands when no copy of the program is running.
CHECK_FAILED = 1
NOT_RUNNING = 3


def content(path):
    with open(os.path.join(ROOT, path), encoding="utf-8") as file:
        return file.read()


def commands(text):
    """The command lines of a page, each a list of words: in fenced and indented blocks, and inline."""
    fenced = re.findall(r"^```(?:sh|console)?\n(.*?)^```$", text, re.MULTILINE | re.DOTALL)
    plain = re.sub(r"^```.*?^```$", "", text, flags=re.MULTILINE | re.DOTALL)
    lines = [line for block in fenced for line in block.splitlines()]
    lines += re.findall(r"^ {4}(\S.*)$", plain, re.MULTILINE)
    lines += re.findall(r"`([^`\n]+)`", plain)
    for line in lines:
        # Brackets mark optional arguments.
        line = re.sub(r"[\[\]]", "", line.removeprefix("$ "))
        try:
            words = shlex.split(line, comments=True)
        except ValueError:
            continue
        if words and words[0] == "sudo":
            words = words[1:]
        if words:
            yield words


def without_places(words):
    """Drops placeholders such as PHONE."""
    return [word for word in words if not re.fullmatch(r"[A-Z]+(\.\.\.)?", word)]


class Known:
    """The commands and options of ./dev and of the program, from their own help."""

    def __init__(self):
        self.help = run(os.path.join(ROOT, "dev"), "help")
        self.of_dev = set(re.findall(r"^  ([a-z]+)\b", self.help, re.MULTILINE))
        bench = run(sys.executable, os.path.join(ROOT, "bench/bench.py"), "--help")
        self.dev_options = set(OPTION.findall(self.help + bench))
        self.options, commands_of_program = described()
        self.of_program = {name: described(name)[0] for name in commands_of_program}
        self.tests = existing()

    def wrong(self, words):
        """What is wrong with a command, or None."""
        first, *rest = without_places(words) or [""]
        if first == "./dev":
            return self.wrong_for_dev(rest)
        if os.path.basename(first) == "quillbox-helper":
            return self.wrong_for_program(rest)
        if first in ("systemctl", "journalctl") and rest[-1].startswith("quillbox"):
            name = rest[-1].removesuffix(".service")
            unit = f"lib/systemd/user/{name}.service"
            return None if unit in INSTALLED else f"no service {name}"
        return None

    def wrong_for_dev(self, words):
        if not words:
            return None
        name, *rest = words
        if name not in self.of_dev:
            return f"./dev has no {name}"
        for word in rest:
            if OPTION.match(word):
                if OPTION.match(word)[0] not in self.dev_options:
                    return f"./dev has no {word}"
            elif name == "test" and not any(word in test for test in self.tests):
                return f"no test has {word} in its name"
        return None

    def wrong_for_program(self, words):
        name = next((word for word in words if not word.startswith("-")), None)
        if name is not None and name not in self.of_program:
            return f"the program has no {name}"
        options = self.of_program[name] if name else self.options
        for word in words:
            if word.startswith("-") and word.split("=")[0] not in options:
                return f"the program has no {word}"
        return None


@pytest.fixture(scope="module")
def known():
    return Known()


@pytest.mark.parametrize("page", PAGES)
def test_every_command_of_a_page_is_one_that_there_is(page, known):
    wrong = [f"{' '.join(x)}: {known.wrong(x)}" for x in commands(content(page)) if known.wrong(x)]
    assert wrong == []


def test_the_pages_are_really_looked_at():
    found = set()
    for words in (words for page in PAGES for words in commands(content(page))):
        found |= {tuple(words[:count]) for count in (1, 2, 3)}
    for command in (
        ("./dev", "run"),
        ("./dev", "package"),
        ("quillbox-helper", "status"),
        ("quillbox-helper", "--autostart=on"),
        ("systemctl", "--user"),
        ("systemctl", "--user", "disable"),
        ("bin/quillbox-helper",),
    ):
        assert command in found


@pytest.mark.parametrize(
    "text, complaint",
    [
        ("`./dev tset`", "./dev has no tset"),
        ("```\n./dev tset # runs\n```", "./dev has no tset"),
        ("`./dev test --lnog`", "./dev has no --lnog"),
        ("`./dev test no_such_test`", "no test has no_such_test"),
        ("Text:\n\n    ./dev tset\n", "./dev has no tset"),
        ("```\nquillbox-helper stauts\n```", "the program has no stauts"),
        ("`quillbox-helper open [--json]`", "the program has no --json"),
        ("`build/x/bin/quillbox-helper --hiden`", "the program has no --hiden"),
        ("`systemctl --user start quillbox`", "no service quillbox"),
    ],
)
def test_a_planted_command_is_found(text, complaint, known):
    (words,) = commands(text)
    assert complaint in known.wrong(words)


# ---- run for real ----


def examples():
    """The arguments of all commands of the program in the documents."""
    found = set()
    for page in PAGES:
        for first, *rest in commands(content(page)):
            if first == "quillbox-helper" and rest:
                found.add(" ".join(rest))
    return sorted(found)


@pytest.mark.parametrize("arguments", examples())
def test_what_a_user_is_told_to_type_runs(arguments, tmp_path):
    folder = tmp_path / "runtime"
    folder.mkdir(mode=0o700)
    words = [f"a {word.lower()}" if word.isupper() else word for word in arguments.split()]
    # Without a command the program would start and not exit.
    assert any(not word.startswith("--") or word.startswith(("--v", "--a", "--help")) for word in words)
    environment = os.environ | {"XDG_CONFIG_HOME": str(tmp_path), "XDG_RUNTIME_DIR": str(folder)}
    if words[0] == "doctor":
        require_namespaces()  # it sends packets, which must not reach the machine's network
    isolated = [] if NO_NAMESPACES else ["unshare", "--net"]
    done = subprocess.run(
        [*isolated, PROGRAM, *words],
        capture_output=True, text=True, timeout=60, env=environment, check=False,
    )
    expected = CHECK_FAILED if words[0] == "doctor" else NOT_RUNNING
    if words[0].startswith("--"):
        expected = 0
    assert done.returncode == expected, done.stdout + done.stderr


def test_the_packages_are_installed_as_the_readme_says(packages, tmp_path):
    deb, archive = packages
    (tmp_path / "build").mkdir()
    shutil.copytree(deb.parent, tmp_path / "build/package")
    told = list(commands(content("README.md")))
    (path,) = (x[2] for x in told if x[:2] == ["apt", "install"] and x[2].startswith("./"))
    assert (tmp_path / path).name == deb.name and (tmp_path / path).exists()
    (unpack,) = (x for x in told if x[0] == "tar")
    run(*unpack, cwd=tmp_path)
    (start,) = (x for x in told if x[0].endswith("bin/quillbox-helper"))
    assert run(str(tmp_path / start[0]), "--version") == run(PROGRAM, "--version")
    (remove,) = (x for x in told if x[:2] == ["apt", "purge"])
    assert remove[2:] == [deb.name.split("_")[0]]
    assert archive.name in unpack[-1]
