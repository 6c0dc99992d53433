"""What the summary of a test run counts."""

import subprocess
import sys
from pathlib import Path

RESULTS = Path(__file__).parents[2] / "tools/results.py"


def case(name, outcome=""):
    return f'<testcase classname="lan.test_x" name="{name}">{outcome and f"<{outcome}/>"}</testcase>'


def write(path, *cases):
    path.write_text(f"<testsuites><testsuite>{''.join(cases)}</testsuite></testsuites>")


def summary(folder, *arguments):
    """(exit code, printed lines)"""
    ended = subprocess.run(
        [sys.executable, RESULTS, folder, *arguments], capture_output=True, text=True, check=False
    )
    assert ended.stderr == ""
    return ended.returncode, ended.stdout.splitlines()


def test_what_passes_fails_and_is_skipped_is_counted_over_all_files(tmp_path):
    write(tmp_path / "a.xml", case("one"), case("two", "failure"))
    write(tmp_path / "b.xml", case("three"), case("four", "skipped"), case("five", "error"))
    assert summary(tmp_path) == (
        1,
        ["FAILED a: lan.test_x::two", "FAILED b: lan.test_x::five", "SKIPPED 1: no reason given"]
        + ["2 passed, 2 failed, 1 skipped"],
    )


def test_the_reasons_for_skipping_are_listed_once_each(tmp_path):
    skipped = '<testcase name="{}"><skipped message="no namespaces: do this"/></testcase>'
    write(tmp_path / "a.xml", case("zero"), skipped.format("one"), skipped.format("two"))
    assert summary(tmp_path) == (
        0,
        ["SKIPPED 2: no namespaces: do this", "1 passed, 0 failed, 2 skipped"],
    )


def test_each_folder_has_a_line_of_its_own(tmp_path):
    write(tmp_path / "a.xml", case("one"))
    (tmp_path / "user").mkdir()
    write(tmp_path / "user" / "a.xml", case("one"), case("two", "failure"))
    write(tmp_path / "user" / "a.again.xml", case("two"))
    assert summary(tmp_path) == (
        0,
        ["UNSTABLE user/a: lan.test_x::two (passed at the second try)"]
        + ["user: 2 passed, 0 failed", "3 passed, 0 failed"],
    )


def test_a_test_that_passes_at_its_second_try_is_named_and_counts_once(tmp_path):
    write(tmp_path / "a b.xml", case("one"), case("two", "failure"))
    write(tmp_path / "a b.again.xml", case("two"))
    assert summary(tmp_path) == (
        0,
        ["UNSTABLE a b: lan.test_x::two (passed at the second try)", "2 passed, 0 failed"],
    )


def test_a_test_that_fails_twice_has_failed_once(tmp_path):
    write(tmp_path / "a.xml", case("one"), case("two", "failure"))
    write(tmp_path / "a.again.xml", case("two", "failure"))
    assert summary(tmp_path) == (1, ["FAILED a: lan.test_x::two", "1 passed, 1 failed"])


def test_a_second_try_that_ran_something_else_excuses_nothing(tmp_path):
    write(tmp_path / "a.xml", case("one"), case("two", "failure"))
    write(tmp_path / "a.again.xml", case("one"))
    assert summary(tmp_path) == (1, ["FAILED a: lan.test_x::two", "1 passed, 1 failed"])


def test_broken_steps_and_unreadable_files_are_failures(tmp_path):
    write(tmp_path / "a.xml", case("one"))
    (tmp_path / "b.xml").write_text("<testsuites>")
    (tmp_path / "broken").write_text("build\n")
    (tmp_path / "user").mkdir()
    (tmp_path / "user" / "broken").write_text("release build\npackages\n")
    code, lines = summary(tmp_path)
    assert code == 1
    assert lines[0].startswith("FAILED b: unreadable results")
    assert lines[1:4] == ["FAILED build", "FAILED user/release build", "FAILED user/packages"]
    assert lines[4:] == ["user: 0 passed, 2 failed", "1 passed, 4 failed"]


def test_nothing_at_all_is_no_success(tmp_path):
    assert summary(tmp_path) == (1, ["0 passed, 0 failed"])
