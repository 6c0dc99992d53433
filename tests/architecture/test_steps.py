"""How ./dev test counts steps that fail."""

import re
import subprocess
from pathlib import Path

TOOLS = Path(__file__).parents[2] / "tools"
FAILED_TEST = '<testsuite><testcase name="one"><failure/></testcase></testsuite>'


def steps(script, folder):
    """Runs a script in which test.sh is sourced and the results are in `folder`; returns its output."""
    done = subprocess.run(
        ["bash", "-c", 'set -euo pipefail; root=/; . "$1/test.sh"; results=$2\n' + script]
        + ["bash", str(TOOLS), str(folder)],
        capture_output=True,
        text=True,
        check=True,
        timeout=30,
    )
    return re.sub(r": \d+ s$", ": N s", done.stdout, flags=re.MULTILINE).splitlines()


def test_a_step_stops_at_its_first_error_and_counts_as_broken(tmp_path):
    told = steps('install() { false; echo "went on"; }; step packages install; echo "code $code"', tmp_path)
    assert told == ["---- packages", "---- packages: N s", "code 1"]
    assert (tmp_path / "broken").read_text() == "packages\n"


def test_a_step_that_reported_a_failed_test_is_not_counted_twice(tmp_path):
    (tmp_path / "unit tests.xml").write_text(FAILED_TEST)
    assert steps('step "unit tests" false; echo "code $code"', tmp_path) == [
        "---- unit tests",
        "---- unit tests: N s",
        "code 1",
    ]
    assert not (tmp_path / "broken").exists()


def test_a_step_that_succeeds_leaves_nothing(tmp_path):
    assert steps('step build true; echo "code $code"', tmp_path) == ["---- build", "---- build: N s", "code 0"]
    assert list(tmp_path.iterdir()) == []


def test_few_failures_are_worth_another_try(tmp_path):
    for count, answer in ((0, "no"), (1, "yes"), (5, "yes"), (6, "no")):
        (tmp_path / "x.xml").write_text(FAILED_TEST * count)  # pytest writes one line
        assert steps("if is_worth_another_try x; then echo yes; else echo no; fi", tmp_path) == [answer]
