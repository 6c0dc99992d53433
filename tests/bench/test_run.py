"""A whole run of ./dev bench up to its report, with very short measurements."""

import os
import re
import subprocess
import tempfile

import pytest

from rig.network import require_namespaces

pytestmark = pytest.mark.any_user

ROOT = os.path.abspath(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", ".."))
BENCH = os.path.join(ROOT, "bench", "bench.py")


def run(folder, *arguments):
    """Runs it with its own folder for temporary files."""
    require_namespaces()
    return subprocess.run(
        ["/usr/bin/python3", "-B", BENCH, *arguments],
        env=dict(os.environ, TMPDIR=str(folder)),
        capture_output=True,
        text=True,
        timeout=120,
    )


NUMBER = r"[\d,.]+"


def measured(page, *parts):
    """Runs parts of it, with very short measurements, up to the page; returns what it has printed."""
    # The relays run as other users and must be able to enter; pytest's folders are private.
    with tempfile.TemporaryDirectory() as folder:
        os.chmod(folder, 0o755)
        done = run(
            folder,
            *("--quick", "--only", *parts),
            *("--relays", "direct", "ours", "--rounds", "1", "--seconds", "0.1"),
            f"--output={page}",
        )
        assert done.returncode == 0, done.stderr
        assert os.listdir(folder) == []  # no temporary files remain
    assert page.read_text(encoding="utf-8") in done.stdout
    return done


def rows_of(done):
    return [line for line in done.stdout.splitlines() if line.startswith("| ")]


def test_the_program_is_measured_beside_a_direct_connection(tmp_path):
    done = measured(tmp_path / "page.md", "throughput", "round-trips", "sessions")
    rows = rows_of(done)
    for start in ("1 stream to the phone, GB/s", "1 stream from the phone, GB/s", "8 at a time"):
        assert any(re.match(rf"\| {start}.* \| {NUMBER} \| {NUMBER} \|", row) for row in rows), start
    assert "Round trips over the network, 128 B, 1 stream, round 1 of 1" in done.stderr


def test_the_program_is_measured_at_the_speeds_of_a_wifi(tmp_path):
    rows = rows_of(measured(tmp_path / "page.md", "paced", "paced-smb", "round-trips-pinned"))
    ways = [f"100 Mbit/s{what} {way}" for what in ("", ", 1 stream") for way in ("to the phone", "from the phone")]
    films = ["film of 25 Mbit/s", "film of 25 Mbit/s, over 400 Mbit/s"]
    for title in ways + films:
        values = {
            "s/GB": rf"\| {title}, s/GB \| {NUMBER} \|",
            "wake-ups": rf"\| {title}: wake-ups per second \| {NUMBER} \|",
            "latency": rf"\| {title}, p99, µs \| {NUMBER} \| {NUMBER} \([+-]{NUMBER}\) \|",
            "speed": rf"\| {title}, Mbit/s \| {NUMBER} \| {NUMBER} \|",
        }
        for name, pattern in values.items():
            assert any(re.match(pattern, row) for row in rows), f"{title}: {name}"
    # Once on a processor of its own, and once on the client's, if there are two.
    expected = 2 if len(os.sched_getaffinity(0)) > 1 else 0
    assert sum(row.startswith("| 128 B, 1 stream, p50, µs |") for row in rows) == expected


def test_a_part_that_does_not_exist_is_refused(tmp_path):
    done = run(tmp_path, "--only", "everything")
    assert done.returncode == 2
    assert "round-trips" in done.stderr
