"""A session manager that restores the programs of a session at login (X Session Management Protocol)."""

import contextlib
import os
import signal

from rig.computer import LOOKING, PROGRAM
from rig.desktop import Desktop
from rig.process import limit, wait_until


# A file of xsm with one program.
NOTED = f"""3
29e49182a-e3e8-4522-a917-3f357bc12708
1
236561f54-875f-45c4-a7a8-cebbe4205ce3
local/computer
Program
ARRAY8
\t{PROGRAM}
UserID
ARRAY8
\troot
RestartStyleHint
CARD8
\t0
CloneCommand
LISTofARRAY8
\t{PROGRAM}
RestartCommand
LISTofARRAY8
\t{PROGRAM}
\t-session
\t236561f54-875f-45c4-a7a8-cebbe4205ce3

0
"""


def name_of(pid):
    with contextlib.suppress(OSError), open(f"/proc/{pid}/comm", encoding="utf-8") as file:
        return file.read().strip()
    return None


class Session:
    """A login of xsm. The first one of a user starts the programs of `startup`, later ones those that
    were noted at the last logout."""

    def __init__(self, desktop, startup=()):
        home = desktop.environment()["HOME"]
        self._saved = os.path.join(home, ".XSM-Default")
        os.makedirs(home, exist_ok=True)
        with open(os.path.join(home, ".xsmstartup"), "w", encoding="utf-8") as file:
            file.writelines(f"{command}\n" for command in startup)
        self._manager = desktop.start(["xsm", "-session", "Default"])

    def wait_line(self, text):
        """Waits for output of one of the programs."""
        self._manager.wait_line(lambda line: line.text == text, limit(20), what=text)

    def wait_restored(self, program):
        """Waits until the program has been started again."""
        children = f"/proc/{self._manager.pid}/task/{self._manager.pid}/children"

        def started():
            with open(children, encoding="ascii") as file:
                return any(name_of(pid) == program for pid in file.read().split())

        wait_until(started, limit(20), program)

    def log_out(self):
        """Ends the programs, and returns what was noted of them."""
        self._manager.signal(signal.SIGTERM)
        assert self._manager.wait(limit(20)) == 0
        with open(self._saved, encoding="utf-8") as file:
            return file.read()


def test_a_restored_session_does_not_start_the_program(lan):
    desktop = lan.host("computer", of=Desktop)
    desktop.log_in()
    session = Session(desktop, [PROGRAM, 'openbox --startup "echo ready"'])
    session.wait_line(f"status: {LOOKING}")
    session.wait_line("ready")

    noted = session.log_out()

    assert "\topenbox\n" in noted
    assert "quillbox-helper" not in noted
    wait_until(lambda: not desktop.helper_processes(), limit(5), "the end of the program")
    session = Session(desktop)
    session.wait_restored("openbox")
    assert not desktop.helper_processes()


def test_a_session_that_was_noted_with_the_program_starts_it_once_more(lan):
    """Versions of the program that did not ask to be left out were noted like this."""
    desktop = lan.host("computer", of=Desktop)
    desktop.log_in()
    home = desktop.environment()["HOME"]
    os.makedirs(home, exist_ok=True)
    with open(os.path.join(home, ".XSM-Default"), "w", encoding="utf-8") as file:
        file.write(NOTED)
    session = Session(desktop)
    session.wait_line(f"status: {LOOKING}")

    noted = session.log_out()

    assert "quillbox-helper" not in noted
    wait_until(lambda: not desktop.helper_processes(), limit(5), "the end of the program")
