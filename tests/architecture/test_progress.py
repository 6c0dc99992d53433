"""What ./dev prints while it installs packages or builds."""

import re
import subprocess
from pathlib import Path

TOOLS = Path(__file__).parents[2] / "tools"

# A command that takes longer than a moment, with the output of apt-get or ninja.
SLOW = """
set -euo pipefail
. "$1/progress.sh"
slow() {
    printf '%s\\n' "0 upgraded, 2 newly installed, 0 to remove" "Need to get 3 MB of archives." \\
        "After this operation, 12 MB of additional disk space will be used." "Unpacking one"
    sleep 1.1
    echo "[3/4] step"
    return "$1"
}
"""


def printed(script, folder, terminal=False):
    command = ["bash", "-c", SLOW + script, "bash", str(TOOLS), str(folder / "log")]
    if terminal:
        quoted = " ".join(f"'{x}'" for x in (*command[:2], "$SCRIPT", *command[3:]))
        command = ["script", "--quiet", "--return", "--command", quoted.replace("'$SCRIPT'", '"$SCRIPT"')]
        command.append("/dev/null")
    done = subprocess.run(
        command,
        capture_output=True,
        text=True,
        check=False,
        timeout=30,
        env={"PATH": "/usr/bin:/bin", "SCRIPT": SLOW + script},
        stdin=subprocess.DEVNULL,
    )
    return done.returncode, done.stdout + done.stderr


def test_a_long_step_says_what_it_does_and_how_long_it_took(tmp_path):
    code, text = printed('with_progress "Installing" "$2" read_apt slow 0', tmp_path)
    lines = text.splitlines()
    assert (code, lines[0]) == (0, "Installing ...")
    assert lines[1] == "  2 packages: 3 MB to download, 12 MB on disk"
    assert lines[2].startswith("Installing: ") and lines[2].endswith(" s")
    assert len(lines) == 3
    assert "Unpacking one" in (tmp_path / "log").read_text()


def test_a_terminal_shows_a_counter(tmp_path):
    _, text = printed('with_progress "Installing" "$2" read_apt slow 0', tmp_path, terminal=True)
    assert re.search("Installing: unpacking 1 of 2, [1-9][0-9]* s", text)
    _, text = printed('with_progress "Building" "$2" read_ninja slow 0', tmp_path, terminal=True)
    assert re.search("Building: step 3 of 4, [1-9][0-9]* s", text)


def test_a_step_that_fails_prints_its_output_and_ends_with_its_status(tmp_path):
    code, text = printed('with_progress "Installing" "$2" read_apt slow 7', tmp_path)
    assert code == 7
    assert "Unpacking one\n[3/4] step\n" in text
    assert text.endswith(f"Installing: failed; the output above is in {tmp_path}/log\n")


def test_a_step_without_work_prints_nothing(tmp_path):
    assert printed('with_progress "Building" "$2" read_ninja echo "[1/1] nothing"', tmp_path) == (0, "")
