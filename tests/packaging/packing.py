"""Makes the packages that the tests look into."""

import os
import subprocess

from test_packaging import PROGRAM, ROOT


def pack(folder, source=None, **environment):
    """The paths of both packages, made of what is built, here or in another copy of the source."""
    build = f"{source}/build/release" if source else os.path.dirname(PROGRAM)
    subprocess.run(
        [os.path.join(source or ROOT, "tools/pack"), build, str(folder)],
        check=True,
        capture_output=True,
        timeout=600,
        env=os.environ | environment,
    )
    deb, archive = sorted(folder.iterdir(), key=lambda path: path.suffix)
    assert (deb.suffix, archive.suffixes[-2:]) == (".deb", [".tar", ".xz"])
    return deb, archive
