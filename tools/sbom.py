"""Lists what the programs in a Debian package are linked with, as an SPDX document (version 2.3, JSON):
tools/sbom.py DEB [DATABASE]. DATABASE is dpkg's folder on the system that built the package."""

import datetime
import hashlib
import io
import json
import pathlib
import re
import subprocess
import sys
import tarfile
import tempfile

OURS = "SPDXRef-quillbox-helper"


def said(*command):
    return subprocess.run(command, capture_output=True, text=True, check=True, timeout=120).stdout


def programs_in(deb):
    """The content of each program, and the time of the newest file."""
    data = subprocess.run(["dpkg-deb", "--fsys-tarfile", deb], capture_output=True, check=True, timeout=120)
    with tarfile.open(fileobj=io.BytesIO(data.stdout)) as files:
        members = [x for x in files if x.isfile()]
        contents = [files.extractfile(x).read() for x in members]
    return [x for x in contents if x.startswith(b"\x7fELF")], max(x.mtime for x in members)


def libraries_of(programs):
    """The names of the libraries that the linker has entered in the programs."""
    found = set()
    with tempfile.TemporaryDirectory() as folder:
        path = pathlib.Path(folder, "program")
        for content in programs:
            path.write_bytes(content)
            found |= set(re.findall(r"\(NEEDED\).*\[(.*)\]", said("readelf", "-Wd", str(path))))
    return found


class Database:
    """What dpkg knows about the packages of an architecture."""

    def __init__(self, folder, architecture):
        self.query = ["dpkg-query", f"--admindir={folder}"]
        self.architecture = architecture

    def owner(self, library):
        """The package with a library; more than one cannot have it on the linker's path."""
        lines = said(*self.query, "--search", f"*/{library}").splitlines()
        suffix = f":{self.architecture}"
        (owner,) = {x.split(": ")[0] for x in lines if x.split(": ")[0].endswith(suffix)}
        return owner

    def described(self, package):
        names = ("Package", "Version", "source:Package", "source:Version", "Homepage")
        form = "\\t".join(f"${{{name}}}" for name in names)
        return said(*self.query, "--show", "--showformat", form, package).split("\t")


def library_entry(database, package):
    name, version, source, source_version, homepage = database.described(package)
    link = f"pkg:deb/debian/{name}@{version}?arch={database.architecture}".replace("+", "%2B")
    return {
        "SPDXID": "SPDXRef-" + re.sub(r"[^A-Za-z0-9.-]", "-", name),
        "name": name,
        "versionInfo": version,
        "sourceInfo": f"built from {source} {source_version}",
        "supplier": "Organization: Debian",
        "homepage": homepage or "NOASSERTION",
        "downloadLocation": "NOASSERTION",
        "filesAnalyzed": False,
        "licenseConcluded": "NOASSERTION",
        "licenseDeclared": "NOASSERTION",
        "copyrightText": "NOASSERTION",
        "externalRefs": [
            {"referenceCategory": "PACKAGE-MANAGER", "referenceType": "purl", "referenceLocator": link}
        ],
    }


def own_entry(deb, version, digest):
    return {
        "SPDXID": OURS,
        "name": "quillbox-helper",
        "versionInfo": version,
        "packageFileName": deb.name,
        "supplier": "Organization: The Quillbox Helper developers",
        "homepage": "https://quillbox.org/helper",
        "downloadLocation": "NOASSERTION",
        "filesAnalyzed": False,
        "checksums": [{"algorithm": "SHA256", "checksumValue": digest}],
        "licenseConcluded": "MIT",
        "licenseDeclared": "MIT",
        "copyrightText": "Copyright (c) 2026 The Quillbox Helper developers",
    }


def document(deb, folder="/var/lib/dpkg"):
    version, architecture = (said("dpkg-deb", "--field", str(deb), x).strip() for x in ("Version", "Architecture"))
    programs, newest = programs_in(str(deb))
    database = Database(folder, architecture)
    owners = sorted({database.owner(library) for library in libraries_of(programs)})
    linked = [library_entry(database, owner) for owner in owners]
    digest = hashlib.sha256(deb.read_bytes()).hexdigest()
    created = datetime.datetime.fromtimestamp(newest, datetime.timezone.utc)
    relations = [("SPDXRef-DOCUMENT", "DESCRIBES", OURS)]
    relations += [(OURS, "DYNAMIC_LINK", entry["SPDXID"]) for entry in linked]
    return {
        "spdxVersion": "SPDX-2.3",
        "dataLicense": "CC0-1.0",
        "SPDXID": "SPDXRef-DOCUMENT",
        "name": deb.stem,
        "documentNamespace": f"https://quillbox.org/helper/spdx/{deb.stem}-{digest}",
        "creationInfo": {
            "created": created.strftime("%Y-%m-%dT%H:%M:%SZ"),
            "creators": ["Organization: The Quillbox Helper developers"],
        },
        "packages": [own_entry(deb, version, digest), *linked],
        "relationships": [
            {"spdxElementId": one, "relationshipType": kind, "relatedSpdxElement": other}
            for one, kind, other in relations
        ],
    }


def main():
    deb, *folder = sys.argv[1:]
    json.dump(document(pathlib.Path(deb), *folder), sys.stdout, indent=2)
    print()


if __name__ == "__main__":
    main()
