"""Makes all files of a release from a tag of git, in the empty folder OUTPUT: tools/release.py TAG OUTPUT.
Needs root, and a mount namespace with which the mounts end."""

import gzip
import hashlib
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys

import sbom
from cross import cross_system
from debian_root import ROOT

FOREIGN = "arm64"
SPEC = "packaging/rpm/quillbox-helper.spec"


def run(*command, **more):
    print(f"---- {' '.join(command)}", flush=True)
    subprocess.run(command, check=True, stdin=subprocess.DEVNULL, **more)


def said(*command):
    return subprocess.run(command, check=True, capture_output=True, timeout=120).stdout


class Release:
    """The files of a release, which are made of the source in a folder beside them."""

    def __init__(self, tag, output):
        self.commit = said("git", "-C", ROOT, "rev-parse", f"refs/tags/{tag}^{{commit}}").decode().strip()
        self.output = output
        self.source = pathlib.Path(f"{output}.source")
        shutil.rmtree(self.source, ignore_errors=True)
        self.source.mkdir()
        archive = said("git", "-C", ROOT, "archive", self.commit)
        subprocess.run(["tar", "-x", "-C", str(self.source)], input=archive, check=True, timeout=120)
        lists = (self.source / "CMakeLists.txt").read_text("utf-8")
        (self.version,) = re.findall(r"^ *VERSION ([\d.]+)$", lists, re.MULTILINE)
        # For what is packed here and in the other system: the files have the time of the commit.
        time = said("git", "-C", ROOT, "log", "-1", "--format=%ct", self.commit)
        os.environ["SOURCE_DATE_EPOCH"] = time.decode().strip()

    def make(self):
        self.archive_source()
        self.pack_here()
        self.pack_elsewhere()
        self.sum_up()
        shutil.rmtree(self.source)

    def archive_source(self):
        """What an RPM is built from."""
        name = f"quillbox-helper-{self.version}"
        archive = said("git", "-C", ROOT, "archive", f"--prefix={name}/", self.commit)
        (self.output / f"{name}.tar.gz").write_bytes(gzip.compress(archive, mtime=0))
        shutil.copyfile(self.source / SPEC, self.output / os.path.basename(SPEC))

    def pack_here(self):
        build = self.source / "build/release"
        run("cmake", "--preset", "release", "-DQUILLBOX_TESTS=OFF", cwd=self.source)
        run("cmake", "--build", str(build), "--target", "quillbox-helper")
        run("tools/pack", str(build), str(self.output), cwd=self.source)
        self.list_libraries(said("dpkg", "--print-architecture").decode().strip(), "/var/lib/dpkg")

    def pack_elsewhere(self):
        with cross_system(FOREIGN, str(self.source)) as system:
            system.build("quillbox-helper", shown=True)
            system.pack(str(self.output), shown=True)
            self.list_libraries(FOREIGN, f"{system.root}/var/lib/dpkg")

    def list_libraries(self, architecture, database):
        (deb,) = self.output.glob(f"*_{architecture}.deb")
        text = json.dumps(sbom.document(deb, database), indent=2)
        deb.with_suffix(".spdx.json").write_text(f"{text}\n", "utf-8")

    def sum_up(self):
        lines = [
            f"{hashlib.sha256(path.read_bytes()).hexdigest()}  {path.name}\n"
            for path in sorted(self.output.iterdir())
        ]
        (self.output / "SHA256SUMS").write_text("".join(lines), "ascii")


def main():
    tag, output = sys.argv[1:]
    Release(tag, pathlib.Path(output)).make()


if __name__ == "__main__":
    main()
