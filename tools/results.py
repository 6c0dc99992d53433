#!/usr/bin/env python3
"""Sums up JUnit files and lists the tests that failed; the last line is "N passed, N failed", with
", N skipped" if any were skipped.

usage: results.py FOLDER

Every *.xml below FOLDER counts; each folder in it also gets a line of its own. NAME.again.xml
contains the second run of tests that failed in NAME.xml: a test that passes there is listed as
unstable and counts as passed. Files named "broken" list steps that failed before they reported a
failed test; each counts as one failure. The exit code is 0 only if at least one test passed and none
failed.
"""

import argparse
import collections
import pathlib
import sys
import xml.etree.ElementTree as ElementTree

AGAIN = ".again"


def cases(path):
    """(name, outcome, reason for skipping) of each test case in one JUnit file."""
    for case in ElementTree.parse(path).getroot().iter("testcase"):
        name = "::".join(filter(None, [case.get("classname"), case.get("name")]))
        found = {child.tag: child for child in case}
        if found.keys() & {"failure", "error"}:
            yield name, "failed", ""
        elif "skipped" in found:
            yield name, "skipped", found["skipped"].get("message") or "no reason given"
        else:
            yield name, "passed", ""


def outcomes(path):
    """The same as a list; the file may be malformed or missing."""
    if not path.exists():
        return []
    try:
        return list(cases(path))
    except ElementTree.ParseError as error:
        return [(f"unreadable results: {error}", "failed", "")]


def line(count):
    skipped = f", {count['skipped']} skipped" if count["skipped"] else ""
    return f"{count['passed']} passed, {count['failed']} failed{skipped}"


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("folder", type=pathlib.Path)
    arguments = parser.parse_args()

    counts = collections.defaultdict(collections.Counter)  # by folder; "." is FOLDER itself
    reasons = collections.Counter()
    for path in sorted(arguments.folder.rglob("*.xml")):
        if path.suffixes[-2:-1] == [AGAIN]:
            continue
        step = path.relative_to(arguments.folder).with_suffix("")
        folder = step.parts[0] if len(step.parts) > 1 else "."
        again = {name: outcome for name, outcome, _ in outcomes(path.with_suffix(f"{AGAIN}.xml"))}
        # A pytest case that fails in its body and in its teardown is listed, and counts, twice.
        for name, first, reason in outcomes(path):
            outcome = again.get(name, first) if first == "failed" else first
            counts[folder][outcome] += 1
            if outcome == "skipped":
                reasons[reason] += 1
            if outcome == "failed":
                print(f"FAILED {step}: {name}")
            elif first == "failed":
                print(f"UNSTABLE {step}: {name} ({outcome} at the second try)")
    for path in sorted(arguments.folder.rglob("broken")):
        folder = path.relative_to(arguments.folder).parent.as_posix()
        for step in path.read_text(encoding="utf-8").splitlines():
            counts[folder]["failed"] += 1
            print(f"FAILED {step if folder == '.' else f'{folder}/{step}'}")

    for reason, count in reasons.most_common():
        print(f"SKIPPED {count}: {reason}")
    for folder in sorted(counts):
        if folder != ".":
            print(f"{folder}: {line(counts[folder])}")
    total = sum(counts.values(), collections.Counter())
    print(line(total))
    return 0 if total["passed"] and not total["failed"] else 1


if __name__ == "__main__":
    sys.exit(main())
