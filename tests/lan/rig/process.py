"""Child processes with waits for lines of their output, and the time limits of all waits."""

import os
import signal
import subprocess
import threading
import time

# Sanitizers make the program several times slower. The limits on the program's own actions are
# scaled by this factor, so that a sanitizer build does not fail just because it is slow.
SLOWDOWN = float(os.environ.get("QUILLBOX_SLOWDOWN", "1"))

# A shell starts background jobs with SIGINT ignored, and child processes inherit that: the programs
# under test would never get SIGINT. A handler here resets it to the default at exec.
signal.signal(signal.SIGINT, signal.default_int_handler)


def limit(seconds):
    """A time limit for the program, in seconds, scaled for slow builds."""
    return seconds * SLOWDOWN


class Line:
    """One line of output and the time (time.monotonic) at which it was read."""

    def __init__(self, text, stream, at):
        self.text = text
        self.stream = stream
        self.at = at


class OutputEnded(AssertionError):
    """No line is to come: both output streams have ended."""


class Process:
    """A child process; threads read its output as it arrives and keep it. `popen` starts it; `process`
    is one that has been started already."""

    def __init__(self, command, env=None, stdin=False, popen=subprocess.Popen, process=None):
        self.command = command
        self.lines = []
        self._changed = threading.Condition()
        self._open = 2
        self.process = process or popen(
            command,
            env=env,
            stdin=subprocess.PIPE if stdin else subprocess.DEVNULL,
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
            start_new_session=True,
        )
        self.pid = self.process.pid
        self._readers = [
            threading.Thread(target=self._read, args=(pipe, name), daemon=True)
            for pipe, name in ((self.process.stdout, "stdout"), (self.process.stderr, "stderr"))
        ]
        for reader in self._readers:
            reader.start()

    def _read(self, pipe, name):
        for raw in pipe:
            line = Line(raw.decode("utf-8", "replace").rstrip("\n"), name, time.monotonic())
            with self._changed:
                self.lines.append(line)
                self._changed.notify_all()
        with self._changed:
            self._open -= 1
            self._changed.notify_all()

    def mark(self):
        """The current position in the output; waits can start from it."""
        with self._changed:
            return len(self.lines)

    def wait_line(self, accepts, timeout, since=0, what="a line"):
        """Waits for the first line from `since` on that `accepts`; fails on timeout, or with
        OutputEnded."""
        end = time.monotonic() + timeout
        with self._changed:
            while True:
                for line in self.lines[since:]:
                    if accepts(line):
                        return line
                left = end - time.monotonic()
                if left <= 0 or self._open == 0:
                    failure, why = AssertionError, f"printed none within {timeout:g} s"
                    if self._open == 0:
                        failure, why = OutputEnded, "ended"
                    raise failure(
                        f"{what}: {os.path.basename(self.command[-1])} {why}; output:\n"
                        f"{self.output()}"
                    )
                self._changed.wait(left)

    def output(self, stream=None):
        return "\n".join(x.text for x in list(self.lines) if stream in (None, x.stream))

    def write(self, text):
        self.process.stdin.write(text.encode())
        self.process.stdin.flush()

    def wait(self, timeout):
        """Waits until the process has ended and all its output is read; returns the exit code."""
        code = self.process.wait(timeout)
        for reader in self._readers:
            reader.join(timeout)
        return code

    def running(self):
        return self.process.poll() is None

    def signal(self, number):
        self.process.send_signal(number)

    def end(self):
        """Ends the process and its children: closes standard input, SIGTERM, at last SIGKILL."""
        if self.process.stdin:
            try:
                self.process.stdin.close()
            except OSError:
                pass
        for number, seconds in ((signal.SIGTERM, 5), (signal.SIGKILL, 10)):
            if not self.running():
                break
            self.signal(number)
            try:
                self.process.wait(seconds)
            except subprocess.TimeoutExpired:
                continue
        self.kill_group()
        for reader in self._readers:
            reader.join(5)

    def kill_group(self):
        """Sends SIGKILL to the process group."""
        try:
            os.killpg(self.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
        self.process.wait(10)


def run(command, timeout=20, check=True, input=None, popen=subprocess.Popen, **more):
    """Runs a command to its end; returns the finished process with its output as text."""
    stdin = subprocess.DEVNULL if input is None else subprocess.PIPE
    pipes = {"stdin": stdin, "stdout": subprocess.PIPE, "stderr": subprocess.PIPE}
    with popen(command, **pipes, **more) as process:
        try:
            output = process.communicate(input, timeout)
        except BaseException:
            process.kill()
            raise
    stdout, stderr = (x.decode("utf-8", "replace") for x in output)
    if check and process.returncode != 0:
        raise AssertionError(f"{command} ended with {process.returncode}:\n{stdout}{stderr}")
    return subprocess.CompletedProcess(command, process.returncode, stdout, stderr)


def wait_until(check, timeout, what, pause=0.05):
    """Polls `check` until it returns something true. For state of other programs without events."""
    end = time.monotonic() + timeout
    while True:
        found = check()
        if found:
            return found
        if time.monotonic() > end:
            raise AssertionError(f"{what}: not within {timeout:g} s")
        time.sleep(pause)
