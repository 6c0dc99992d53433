"""How ./dev test runs the unit tests: many in each process, each with an outcome of its own."""

import subprocess
import sys
import xml.etree.ElementTree as ElementTree
from pathlib import Path

import pytest

pytestmark = pytest.mark.any_user

RUNNER = Path(__file__).parents[2] / "tools/unit_tests.py"

# Behaves like a GoogleTest program whose tests end as their names say.
PROGRAM = """#!/usr/bin/python3 -IS
import os, signal, sys
tests = {tests!r}
if "--gtest_list_tests" in sys.argv:
    print("Suite.", *tests, sep="\\n  ")
    sys.exit(0)
chosen = [word.split("=")[1] for word in sys.argv if word.startswith("--gtest_filter=")][-1].split(":")
failed = False
for test in tests:
    if "Suite." + test not in chosen:
        continue
    print(f"[ RUN      ] Suite.{{test}}", flush=True)
    if test == "crashes":
        os.kill(os.getpid(), signal.SIGABRT)
    if test == "skips":
        print("/path/suite_test.cpp:9: Skipped\\nno IPv6 here\\n")
    failed = failed or test == "fails"
    end = dict(fails="  FAILED  ", skips="  SKIPPED ").get(test, "       OK ")
    more = ", where GetParam() = (4, \\"x (2 ms)\\")" if test == "fails" else ""
    print(f"[{{end}}] Suite.{{test}}{{more}} (1 ms)")
sys.exit({code} if {code} is not None else int(failed))
"""


def run(folder, tests, *options, code=None):
    """(exit code, the outcomes by name) of a program with these tests."""
    program = folder / "program"
    program.write_text(PROGRAM.format(tests=tests, code=code))
    program.chmod(0o755)
    (folder / "CTestTestfile.cmake").write_text(
        f'add_test(tcp "{program}")\nset_tests_properties(tcp PROPERTIES LABELS "no-tsan")\n'
    )
    ended = subprocess.run(
        [sys.executable, RUNNER, folder, folder / "results.xml", *options],
        stdout=subprocess.DEVNULL,
        timeout=60,
        check=False,
    )
    cases = ElementTree.parse(folder / "results.xml").iter("testcase")
    return ended.returncode, {case.get("name"): outcome(case) for case in cases}


def outcome(case):
    if case.find("failure") is not None:
        return case.findtext("failure").splitlines()[-1]
    return case.find("skipped").get("message") if case.find("skipped") is not None else "passed"


def test_each_test_has_an_outcome(tmp_path):
    assert run(tmp_path, ["passes", "skips", "DISABLED_one"]) == (
        0,
        {"tcp.Suite.passes": "passed", "tcp.Suite.skips": "no IPv6 here"},
    )


def test_one_that_fails_or_crashes_does_not_take_the_others_with_it(tmp_path):
    assert run(tmp_path, ["before", "fails", "crashes", "after"]) == (
        1,
        {
            "tcp.Suite.before": "passed",
            "tcp.Suite.fails": '[  FAILED  ] Suite.fails, where GetParam() = (4, "x (2 ms)") (1 ms)',
            "tcp.Suite.crashes": "killed by signal 6",
            "tcp.Suite.after": "passed",
        },
    )


def test_more_tests_than_one_process_gets_all_run(tmp_path):
    tests = [f"number{number}" for number in range(100)]
    assert run(tmp_path, tests) == (0, {f"tcp.Suite.{test}": "passed" for test in tests})


def test_a_process_that_fails_after_its_tests_is_a_failure(tmp_path):
    assert run(tmp_path, ["one", "two"], code=23) == (
        1,
        {
            "tcp.Suite.one": "passed",
            "tcp.Suite.two": "passed",
            "tcp: after the last of 2 tests": "exit code 23",
        },
    )


def test_a_selection_can_be_made(tmp_path):
    tests = ["one", "two", "three"]
    assert run(tmp_path, tests, "--filter", "one|two", "--without", "two")[1].keys() == {"tcp.Suite.one"}
    assert run(tmp_path, tests, "--without-label", "no-tsan") == (0, {})


def test_after_a_problem_at_the_end_all_tests_of_the_program_can_run_again(tmp_path):
    """Any of them may have caused it, for example by a leak."""
    end = "tcp: after the last of 2 tests"
    run(tmp_path, ["one", "two"], code=23)
    first = tmp_path / "first.xml"
    (tmp_path / "results.xml").rename(first)
    again = ["--again", str(first)]
    both = {"tcp.Suite.one": "passed", "tcp.Suite.two": "passed"}
    assert run(tmp_path, ["one", "two"], *again) == (0, both | {end: "passed"})
    assert run(tmp_path, ["one", "two"], *again, code=23) == (1, both | {end: "exit code 23"})


def test_what_failed_can_run_again(tmp_path):
    run(tmp_path, ["one", "fails", "crashes"])
    (tmp_path / "results.xml").rename(tmp_path / "first.xml")
    again = run(tmp_path, ["one", "fails", "crashes"], "--again", str(tmp_path / "first.xml"))[1]
    assert again.keys() == {"tcp.Suite.fails", "tcp.Suite.crashes"}
