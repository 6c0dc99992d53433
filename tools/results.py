#!/usr/bin/env python3
"""Sums up JUnit files and lists the tests that failed; the last line is "N passed, N failed".

usage: results.py FOLDER [--broken STEP]... [--title TITLE]

Every *.xml below FOLDER counts. NAME.again.xml contains the second run of tests that failed in
NAME.xml: a test that passes there is listed as unstable and counts as passed. A step that failed
before it reported any test counts as one failure. The exit code is 0 only if at least one test
passed and none failed.
"""

import argparse
import pathlib
import sys
import xml.etree.ElementTree as ElementTree

AGAIN = ".again"


def cases(path):
    """(name, outcome) of each test case in one JUnit file of CTest or pytest."""
    for case in ElementTree.parse(path).getroot().iter("testcase"):
        # CTest repeats the test name as the class name; pytest's class name is the module.
        parts = dict.fromkeys([case.get("classname", ""), case.get("name", "")])
        name = "::".join(part for part in parts if part)
        found = {child.tag for child in case}
        status = case.get("status", "run")
        if found & {"failure", "error"} or status == "fail":
            yield name, "failed"
        elif "skipped" in found or status in ("notrun", "disabled"):
            yield name, "skipped"
        else:
            yield name, "passed"


def outcomes(path):
    """The same as a list; the file may be malformed or missing."""
    if not path.exists():
        return []
    try:
        return list(cases(path))
    except ElementTree.ParseError as error:
        return [(f"unreadable results: {error}", "failed")]


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("folder", type=pathlib.Path)
    parser.add_argument("--broken", action="append", default=[])
    parser.add_argument("--title", default="")
    arguments = parser.parse_args()

    counts = {"passed": 0, "failed": 0, "skipped": 0}
    for path in sorted(arguments.folder.rglob("*.xml")):
        if path.suffixes[-2:-1] == [AGAIN]:
            continue
        step = path.relative_to(arguments.folder).with_suffix("")
        again = dict(outcomes(path.with_suffix(f"{AGAIN}.xml")))
        # A pytest case that fails in its body and in its teardown is listed, and counts, twice.
        for name, first in outcomes(path):
            outcome = again.get(name, first) if first == "failed" else first
            counts[outcome] += 1
            if outcome == "failed":
                print(f"FAILED {step}: {name}")
            elif first == "failed":
                print(f"UNSTABLE {step}: {name} ({outcome} at the second try)")
    for step in arguments.broken:
        counts["failed"] += 1
        print(f"FAILED {step}")

    line = f"{counts['passed']} passed, {counts['failed']} failed"
    if counts["skipped"]:
        line += f", {counts['skipped']} skipped"
    print(arguments.title + line)
    return 0 if counts["passed"] and not counts["failed"] else 1


if __name__ == "__main__":
    sys.exit(main())
