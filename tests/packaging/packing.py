"""Makes the packages that the tests check."""

import os
import shutil
import subprocess

from test_packaging import PROGRAM, ROOT, need


def pack(folder, source=None, **environment):
    """Packs the finished build of this source tree, or of another; returns the paths of the Debian
    package and of the archive."""
    need("dh")
    build = f"{source}/build/release" if source else os.path.dirname(PROGRAM)
    subprocess.run(
        [os.path.join(source or ROOT, "tools/pack"), build, str(folder)],
        check=True,
        capture_output=True,
        timeout=600,
        env=os.environ | environment,
    )
    return packed_in(folder)


def packed_in(folder):
    """The Debian package and the archive in a folder."""
    deb, archive = sorted(folder.iterdir(), key=lambda path: path.suffix)
    assert (deb.suffix, archive.suffixes[-2:]) == (".deb", [".tar", ".xz"])
    return deb, archive


def copy_source(folder):
    """Copies the files of the source tree that belong to the project, committed or not."""
    listed = subprocess.run(
        ["git", "-C", ROOT, "ls-files", "-z", "--cached", "--others", "--exclude-standard"],
        capture_output=True,
        text=True,
        check=True,
        timeout=60,
    ).stdout
    for name in filter(None, listed.split("\0")):
        source, target = os.path.join(ROOT, name), folder / name
        if os.path.exists(source):
            target.parent.mkdir(parents=True, exist_ok=True)
            # As after a checkout, the files have the time of the copy.
            shutil.copyfile(source, target)
            shutil.copymode(source, target)
