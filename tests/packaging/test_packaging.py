"""The files installed beside the program: that they are valid, complete, and agree with the program."""

import configparser
import os
import re
import shlex
import shutil
import subprocess
from xml.etree import ElementTree

import pytest

ROOT = os.path.abspath(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", ".."))
PACKAGING = os.path.join(ROOT, "packaging")
COMPLETIONS = os.path.join(PACKAGING, "completions")
PROGRAM = os.environ.get("QUILLBOX_HELPER", os.path.join(ROOT, "build/release/quillbox-helper"))
COMMANDS = ["status", "open", "manage", "restart", "quit", "doctor"]

INSTALLED = {
    "bin/quillbox-helper",
    "libexec/quillbox-helper/quillbox-dns-sd-daemon",
    "libexec/quillbox-helper/quillbox-dns-sd-responder",
    "lib/systemd/user/quillbox-helper.service",
    "share/applications/org.quillbox.Helper.desktop",
    "share/bash-completion/completions/quillbox-helper",
    "share/fish/vendor_completions.d/quillbox-helper.fish",
    "share/icons/hicolor/scalable/apps/org.quillbox.Helper.svg",
    "share/icons/hicolor/symbolic/apps/org.quillbox.Helper-symbolic.svg",
    "share/man/man1/quillbox-helper.1",
    "share/metainfo/org.quillbox.Helper.metainfo.xml",
    "share/zsh/vendor-completions/_quillbox-helper",
}
PROGRAMS = {x for x in INSTALLED if x.startswith(("bin/", "libexec/"))}


def need(*tools):
    """Skips the calling test if one of the programs that check packages is not installed."""
    for tool in tools:
        if shutil.which(tool) is None:
            pytest.skip("tools for packages are not installed (./dev test --all installs them)")


def run(*command, code=0, **more):
    if not os.path.isabs(command[0]):
        need(command[0])
    done = subprocess.run(
        command, capture_output=True, text=True, timeout=60, check=False, **more
    )
    assert done.returncode == code, f"{command}: {done.returncode}\n{done.stdout}{done.stderr}"
    return done.stdout + done.stderr


def text_of(*path):
    with open(os.path.join(PACKAGING, *path), encoding="utf-8") as file:
        return file.read()


def described(*arguments):
    """The options and commands that the program's help describes, each without its value."""
    shown = run(PROGRAM, *arguments, "--help")
    options = set(re.findall(r"^  (?:-[a-z], )?(--[a-z-]+)", shown, re.MULTILINE))
    return options, re.findall(r"^  ([a-z]+) ", shown, re.MULTILINE)


# ---- the entry of the menu ----


def entry():
    parser = configparser.ConfigParser(interpolation=None, delimiters="=")
    parser.optionxform = str
    parser.read_string(text_of("org.quillbox.Helper.desktop"))
    return parser


def test_the_desktop_entry_is_valid():
    # Hints do not change its exit status.
    assert run("desktop-file-validate", f"{PACKAGING}/org.quillbox.Helper.desktop") == ""


def test_the_desktop_entry_starts_the_program():
    main = entry()["Desktop Entry"]
    assert main["Exec"] == "quillbox-helper"
    assert main["StartupNotify"] == "true"


def test_the_actions_are_commands_that_the_program_has():
    parser = entry()
    names = parser["Desktop Entry"]["Actions"].strip(";").split(";")
    assert names == ["open", "manage", "restart", "quit"]
    for name in names:
        command = shlex.split(parser[f"Desktop Action {name}"]["Exec"])
        assert command == ["quillbox-helper", name]
        assert run(PROGRAM, name, "--help").startswith(f"Usage: {command[0]} {name}")


def test_the_autostart_entry_is_valid(tmp_path):
    environment = dict(os.environ, XDG_CONFIG_HOME=str(tmp_path))
    said = run(PROGRAM, "--autostart=on", env=environment)
    path = tmp_path / "autostart" / "org.quillbox.Helper.desktop"
    assert str(path) in said
    assert run("desktop-file-validate", str(path)) == ""


# ---- the entry of the software centre ----


METAINFO = "org.quillbox.Helper.metainfo.xml"
ACCEPTED = {
    # The bus name and the names of the installed files contain the same ID.
    "cid-contains-uppercase-letter org.quillbox.Helper",
    # AppStream 1.0 replaced <developer_name> with <developer>. Older versions know only the first, and
    # newer ones may note that it is deprecated; the file has both.
    "unknown-tag developer",
    "developer-name-tag-deprecated",
}


def metainfo():
    return ElementTree.fromstring(text_of(METAINFO))


def test_the_metainfo_is_valid():
    said = run("appstreamcli", "validate", "--no-net", "--pedantic", f"{PACKAGING}/{METAINFO}")
    complaints = re.findall(r"^[EWIP]: [\w.]+:[\d~]+: (.*?) *$", said, re.MULTILINE)
    assert set(complaints) <= ACCEPTED, said


def test_both_names_of_the_developer_are_the_same():
    assert metainfo().findtext("developer/name") == metainfo().findtext("developer_name")
    assert metainfo().find("developer").get("id") == "org.quillbox"


def test_the_metainfo_has_the_homepage_of_the_package():
    homepage = metainfo().findtext("url[@type='homepage']")
    with open(os.path.join(ROOT, "debian/control"), encoding="utf-8") as file:
        assert f"\nHomepage: {homepage}\n" in file.read()


def test_the_screenshots_of_the_metainfo_are_those_of_the_source():
    shown = metainfo().findall("screenshots/screenshot")
    assert [x.get("type") for x in shown].count("default") == 1 and len(shown) > 1
    base = metainfo().findtext("url[@type='homepage']") + "/screenshots/"
    for screenshot in shown:
        assert re.fullmatch(r"[A-Z].*[^.]", screenshot.findtext("caption"))
        address = screenshot.findtext("image")
        assert address.startswith(base)
        assert os.path.exists(os.path.join(ROOT, "docs/screenshots", address.removeprefix(base)))


def test_the_metainfo_names_this_version():
    version = run(PROGRAM, "--version").split()[1]
    assert f'<release version="{version}"' in text_of(METAINFO)


# ---- the manual page ----


def test_the_manual_page_is_sound():
    path = f"{PACKAGING}/quillbox-helper.1"
    environment = dict(os.environ, LC_ALL="C.UTF-8", MANROFFSEQ="", MANWIDTH="80")
    need("man")
    done = subprocess.run(
        ["man", "--warnings", "-E", "UTF-8", "-l", "-Tutf8", "-Z", path],
        capture_output=True,
        text=True,
        timeout=60,
        check=True,
        env=environment,
    )
    assert done.stderr == ""
    assert run("mandoc", "-T", "lint", "-W", "warning", path) == ""


def test_the_manual_page_is_of_this_version():
    assert f'"Quillbox Helper {run(PROGRAM, "--version").split()[1]}"' in text_of("quillbox-helper.1")


def manual_page():
    return re.sub(r".\x08", "", run("mandoc", "-T", "utf8", f"{PACKAGING}/quillbox-helper.1"))


def test_the_manual_page_describes_what_the_help_does():
    page = manual_page()
    # The options of other programs.
    page = re.sub(r"^ +(systemctl|journalctl|loginctl) .*$", "", page, flags=re.MULTILINE)
    options, commands = described()
    for command in commands:
        options |= described(command)[0]
    assert {"--hidden", "--json", "--autostart", "--dns-sd"} <= options
    shown = set(re.findall(r"--[a-z-]+", page))
    assert shown == options
    for command in commands:
        assert re.search(rf"^ +{command}\b", page, re.MULTILINE), command
    codes = re.findall(r"^  (\d)  ", run(PROGRAM, "--help"), re.MULTILINE)
    assert codes == list("0123456")
    assert re.findall(r"^ +(\d) +[A-Z]", page, re.MULTILINE) == codes


def settings():
    """The table of settings in README.md: of each key its type and its default."""
    with open(os.path.join(ROOT, "README.md"), encoding="utf-8") as file:
        section = file.read().partition("\n## Settings\n")[2].partition("\n## ")[0]
    rows = re.findall(r"^\| `(\w+)` \| (\w+) \| (\S+) \|", section, re.MULTILINE)
    return {key: (kind, default.strip("`")) for key, kind, default in rows}


def test_the_manual_page_lists_the_settings():
    assert {"showInFinder", "host"} <= set(settings())
    section = manual_page().partition("\nFILES\n")[2].partition("\nUSER SERVICE\n")[0]
    listed = re.findall(r"^ +(\w+) \((\w+), default (\S+)\)$", section, re.MULTILINE)
    assert {key: (kind, default) for key, kind, default in listed} == settings()


def test_the_help_names_every_command():
    assert described()[1] == COMMANDS


# ---- completions ----


def bash(line):
    """What bash offers at the end of a line, which readline has split into words."""
    parted = re.findall(r"=|[^\s=]+", line)
    if line.endswith(" "):
        parted.append("")
    words = " ".join(shlex.quote(word) for word in parted)
    script = f"""
        source {shlex.quote(COMPLETIONS)}/quillbox-helper.bash
        COMP_WORDS=({words}); COMP_CWORD={len(parted) - 1}
        COMP_LINE={shlex.quote(line)}; COMP_POINT={len(line)}
        _quillbox_helper
        printf '%s\\n' "${{COMPREPLY[@]}}"
    """
    return set(run("bash", "--norc", "-uc", script).split())


def fish(line, tmp_path):
    environment = dict(os.environ, HOME=str(tmp_path), XDG_CONFIG_HOME=str(tmp_path))
    script = f"source {COMPLETIONS}/quillbox-helper.fish; complete -C {shlex.quote(line)}"
    offered = run("fish", "--no-config", "-c", script, env=environment)
    return {each.split("\t")[0] for each in offered.splitlines()}


@pytest.mark.parametrize("shell", ["bash", "fish"])
def test_a_shell_offers_what_the_help_describes(shell, tmp_path):
    offer = bash if shell == "bash" else lambda line: fish(line, tmp_path)
    options, commands = described()
    assert {x for x in offer("quillbox-helper ") if not x.startswith("-")} == set(commands)
    assert {x.rstrip("=") for x in offer("quillbox-helper --")} == options
    for command in commands:
        expected = described(command)[0]
        assert offer(f"quillbox-helper {command} --") == expected
    values = {x.split("=")[-1] for x in offer("quillbox-helper --dns-sd=")}
    assert values == {"auto", "daemon", "embedded"}
    assert {x.split("=")[-1] for x in offer("quillbox-helper --autostart=o")} == {"on", "off"}


def test_what_bash_inserts_keeps_the_option():
    script = f"""
        source {shlex.quote(COMPLETIONS)}/quillbox-helper.bash
        COMP_WORDS=(quillbox-helper --dns-sd=d); COMP_CWORD=1
        COMP_LINE='quillbox-helper --dns-sd=d'; COMP_POINT=26
        _quillbox_helper
        printf '%s\\n' "${{COMPREPLY[@]}}"
    """
    assert run("bash", "--norc", "-uc", script).split() == ["--dns-sd=daemon"]


def test_zsh_knows_what_the_help_describes():
    text = text_of("completions", "_quillbox-helper")
    options, commands = described()
    for command in commands:
        options |= described(command)[0]
    assert set(re.findall(r"(?:'(?:\*|\([^)]*\))?|,)(--[a-z-]+)", text)) == options
    assert re.findall(r"^ +'([a-z]+):", text, re.MULTILINE) == commands


@pytest.mark.parametrize(
    "shell, file",
    [
        ("bash", "quillbox-helper.bash"),
        ("zsh", "_quillbox-helper"),
        ("fish", "quillbox-helper.fish"),
    ],
)
def test_a_completion_parses(shell, file):
    assert run(shell, "-n", os.path.join(COMPLETIONS, file)) == ""


# ---- the installed tree ----


def test_everything_is_installed_at_its_place(tmp_path):
    build = os.path.dirname(PROGRAM)
    run("cmake", "--install", build, "--prefix", str(tmp_path))
    found = {
        os.path.relpath(os.path.join(folder, name), tmp_path)
        for folder, _, names in os.walk(tmp_path)
        for name in names
    }
    assert found == INSTALLED
    assert all(os.access(tmp_path / x, os.X_OK) for x in PROGRAMS)
    assert run(str(tmp_path / "bin/quillbox-helper"), "--version") == run(PROGRAM, "--version")


def test_the_icon_of_the_entries_is_installed():
    name = entry()["Desktop Entry"]["Icon"]
    assert f"share/icons/hicolor/scalable/apps/{name}.svg" in INSTALLED
    assert f"share/icons/hicolor/symbolic/apps/{name}-symbolic.svg" in INSTALLED
