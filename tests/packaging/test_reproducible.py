"""Another build of the same source, in another folder, gives byte-identical packages."""

import hashlib
import os
import subprocess

import pytest
from packing import copy_source, pack
from test_packaging import ROOT


def last_change():
    command = ["git", "-C", ROOT, "log", "-1", "--format=%ct"]
    return subprocess.run(
        command, capture_output=True, text=True, check=True, timeout=60
    ).stdout.strip()


@pytest.mark.long
def test_another_build_in_another_folder_gives_the_same_bytes(packages, tmp_path):
    source = tmp_path / "a folder of another length"
    copy_source(source)
    # Objects from the cache were built in another folder.
    environment = os.environ | {"CCACHE_DISABLE": "1"}
    for command in (
        ["cmake", "--preset", "release", "-DQUILLBOX_TESTS=OFF"],
        ["cmake", "--build", "build/release", "--target", "quillbox-helper"],
    ):
        done = subprocess.run(
            command, cwd=source, capture_output=True, text=True, timeout=3600, env=environment
        )
        assert done.returncode == 0, done.stdout[-3000:] + done.stderr
    again = pack(tmp_path / "packages", source=str(source), SOURCE_DATE_EPOCH=last_change())
    for one, other in zip(packages, again):
        assert one.name == other.name
        assert hashlib.sha256(one.read_bytes()).digest() == hashlib.sha256(other.read_bytes()).digest()
