#!/usr/bin/env python3
"""Runs the unit tests of a build, several processes at a time and many tests in each process, because
starting a process for each test takes longer than most tests.

usage: unit_tests.py BUILD RESULTS [OPTIONS]

Writes a JUnit file. A test that crashes or says nothing for two minutes fails, and the tests after it
run in another process. The exit code is 0 if nothing failed, and 1 otherwise.
"""

import argparse
import concurrent.futures
import json
import os
import pathlib
import queue
import re
import signal
import subprocess
import sys
import threading
import time
import xml.etree.ElementTree as ElementTree

ROOT = pathlib.Path(__file__).parents[1]
PATIENCE = 120
TESTS_IN_A_PROCESS = 24

# "[  FAILED  ] Suite.test/0, where GetParam() = 42 (1 ms)" has more in between.
LINE = re.compile(r"\[ *(RUN|OK|FAILED|SKIPPED) *\] (\S+\.[^\s,]+)(?:, where .*?)?(?: \((\d+) ms\))?$")


class Outcome:
    def __init__(self, name, kind, seconds=0.0, output=""):
        self.name, self.kind, self.seconds, self.output = name, kind, seconds, output

    def element(self):
        case = ElementTree.Element("testcase", name=self.name, time=f"{self.seconds:.3f}")
        if self.kind == "failed":
            ElementTree.SubElement(case, "failure").text = printable(self.output)
        elif self.kind == "skipped":
            lines = [line.strip() for line in self.output.splitlines()]
            reasons = [after for line, after in zip(lines, lines[1:]) if line.endswith(": Skipped")]
            ElementTree.SubElement(case, "skipped", message=(reasons or [""])[0])
        return case


def printable(text):
    """Without the control characters that XML cannot contain."""
    return re.sub(r"[^\t\n -\ud7ff\ue000-\ufffd]", "?", text)


class Program:
    """A test that CMake has registered: a program with many GoogleTest tests, or, if `fuzz` is one of
    its labels, a fuzz target that replays its corpus."""

    def __init__(self, registered):
        properties = {each["name"]: each["value"] for each in registered["properties"]}
        self.name, self.command = registered["name"], registered.get("command")
        self.labels = properties.get("LABELS", [])
        self.end = f"{self.name}: after the last of "  # what went wrong there may be of any test
        self.environment = os.environ | dict(each.split("=", 1) for each in properties.get("ENVIRONMENT", []))

    def tests(self):
        if not self.command:
            sys.exit(f"{self.name} has not been built")
        if "fuzz" in self.labels:
            return [self.name]
        command = [*self.command, "--gtest_list_tests"]
        listed = subprocess.run(command, env=self.environment, stdout=subprocess.PIPE, text=True, check=True)
        found, suite = [], ""
        for line in listed.stdout.splitlines():
            name = line.split("#")[0].rstrip()
            if not name.startswith(" "):
                suite = name
            elif not name.strip().startswith("DISABLED_"):
                found.append(f"{self.name}.{suite}{name.strip()}")
        return found

    def run(self, names):
        """Yields the outcome of each of the tests."""
        while names:
            outcomes, problem = self.run_once(names)
            yield from outcomes
            left = names[len(outcomes) :]
            if problem and not left:
                yield Outcome(f"{self.end}{len(names)} tests", "failed", 0, problem)
            elif problem:
                yield Outcome(left.pop(0), "failed", 0, problem)
            names = left

    def run_once(self, names):
        """The outcomes of the tests that ended, and what went wrong with the process, if anything."""
        if "fuzz" in self.labels:
            return self.replay(names[0])
        tests = ":".join(name.removeprefix(f"{self.name}.") for name in names)
        command = [*self.command, "--gtest_color=no", f"--gtest_filter={tests}"]
        outcomes, output = [], []
        with Process(command, self.environment) as process:
            for line in process.lines():
                match = LINE.match(line)
                if match and match[1] == "RUN":
                    output = []
                output.append(line)
                # After the last test, GoogleTest lists the failed ones again, without the time.
                if match and match[3]:
                    kind = {"OK": "passed", "FAILED": "failed", "SKIPPED": "skipped"}[match[1]]
                    outcomes.append(
                        Outcome(f"{self.name}.{match[2]}", kind, int(match[3]) / 1000, "\n".join(output))
                    )
        has_failed = any(outcome.kind == "failed" for outcome in outcomes)
        if len(outcomes) == len(names) and process.code == (1 if has_failed else 0):
            return outcomes, ""
        return outcomes, "\n".join(output + [process.ending()])

    def replay(self, name):
        with Process(self.command, self.environment) as process:
            output = list(process.lines())
        if process.code == 0:
            return [Outcome(name, "passed")], ""
        return [], "\n".join(output + [process.ending()])


class Process:
    """A process, and what it prints; it is killed if it prints nothing for too long."""

    def __init__(self, command, environment):
        self.child = subprocess.Popen(
            command,
            cwd=ROOT,
            env=environment,
            stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            text=True,
            errors="replace",
        )
        self.is_late = False
        self.printed = queue.Queue()
        threading.Thread(target=self.read, daemon=True).start()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.child.kill()
        self.child.wait()

    def read(self):
        for line in self.child.stdout:
            self.printed.put(line.rstrip("\n"))
        self.printed.put(None)

    def lines(self):
        """Until the process has ended: something that it started may hold its output open longer."""
        last = time.monotonic()
        has_ended = False
        while True:
            try:
                line = self.printed.get(timeout=1)
            except queue.Empty:
                # Its last lines may come between the timeout and the end, so they get another second.
                if has_ended:
                    return
                has_ended = self.child.poll() is not None
                if not has_ended and time.monotonic() - last > PATIENCE:
                    self.is_late = True
                    self.child.kill()
                continue
            if line is None:
                self.child.wait()
                return
            last = time.monotonic()
            yield line

    @property
    def code(self):
        return self.child.returncode

    def ending(self):
        if self.is_late:
            return f"nothing was printed for {PATIENCE} seconds"
        return f"killed by signal {-self.code}" if self.code < 0 else f"exit code {self.code}"


def failed_in(path):
    cases = ElementTree.parse(path).iter("testcase")
    return {case.get("name") for case in cases if case.find("failure") is not None}


def registered_in(build):
    listed = subprocess.run(
        ["ctest", "--test-dir", build, "--show-only=json-v1"], stdout=subprocess.PIPE, text=True, check=True
    )
    return [Program(each) for each in json.loads(listed.stdout)["tests"]]


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("results", type=pathlib.Path)
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    parser.add_argument("--filter", default="", help="a pattern of names")
    parser.add_argument("--without", default="$.", help="a pattern of names to leave out")
    parser.add_argument("--without-label", help="a label of CMake")
    parser.add_argument("--again", type=pathlib.Path, help="only what failed there")
    arguments = parser.parse_args()

    # A shell that starts this in the background has them ignored, which programs inherit.
    for each in (signal.SIGHUP, signal.SIGINT, signal.SIGQUIT):
        if signal.getsignal(each) == signal.SIG_IGN:
            signal.signal(each, signal.SIG_DFL)

    again = failed_in(arguments.again) if arguments.again else None
    work, ended = [], []
    for program in registered_in(arguments.build):
        if arguments.without_label in program.labels:
            continue
        names = [
            name
            for name in program.tests()
            if re.search(arguments.filter, name) and not re.search(arguments.without, name)
        ]
        ends = [name for name in again or () if name.startswith(program.end)]
        if again is not None and not ends:
            names = [name for name in names if name in again]
        ended += ends
        # Dealt out, because the tests of one suite take about as long as each other.
        hands = -(-len(names) // TESTS_IN_A_PROCESS)
        work += [(hand / hands, program, names[hand::hands]) for hand in range(hands)]
    # Tests that compute run beside tests that wait, if each program's are spread over the whole run.
    work.sort(key=lambda each: each[0])

    started = time.monotonic()
    suite = ElementTree.Element("testsuite", name=arguments.results.stem)
    failures = 0
    outcomes = [Outcome(name, "passed") for name in ended]  # unless it fails again
    with concurrent.futures.ThreadPoolExecutor(arguments.jobs) as pool:
        running = [
            pool.submit(lambda program, names: list(program.run(names)), program, names)
            for _, program, names in work
        ]
        for done in concurrent.futures.as_completed(running):
            for outcome in done.result():
                outcomes.append(outcome)
                if outcome.kind == "failed":
                    failures += 1
                    print(f"FAILED {outcome.name}\n{outcome.output}\n", flush=True)
    last = {outcome.name: outcome for outcome in outcomes}
    for outcome in last.values():
        suite.append(outcome.element())
    ElementTree.ElementTree(suite).write(arguments.results, encoding="utf-8", xml_declaration=True)
    print(f"{len(suite)} unit tests in {time.monotonic() - started:.0f} s, {failures} failed")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
