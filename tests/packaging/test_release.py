"""What ./dev release makes of a tag: the list of linked libraries, and the same bytes a second time."""

import os
import re
import shutil
import subprocess

import pytest
import sbom
from debian_root import locked, mount
from test_packages import field, names_in, version
from test_packaging import ROOT, run

DEV = os.path.join(ROOT, "dev")


# ---- the list of linked libraries ----


@pytest.fixture(scope="module")
def listed(deb):
    return sbom.document(deb)


def test_every_linked_library_is_listed_with_its_version(deb, listed):
    own, *others = listed["packages"]
    assert (own["name"], own["versionInfo"]) == ("quillbox-helper", field(deb, "Version"))
    names = {x["name"] for x in others}
    provided = {"qt6-base-abi", "qt6-base-private-abi"}
    assert names == names_in(field(deb, "Depends")) - provided
    for entry in others:
        shown = run("dpkg-query", "--show", "--showformat", "${Version} ${Architecture}", entry["name"])
        found, architecture = shown.split()
        assert entry["versionInfo"] == found
        (reference,) = entry["externalRefs"]
        link = f"pkg:deb/debian/{entry['name']}@{found}?arch={architecture}"
        assert reference["referenceLocator"].replace("%2B", "+") == link


def test_the_list_is_an_spdx_document(listed):
    assert (listed["spdxVersion"], listed["dataLicense"]) == ("SPDX-2.3", "CC0-1.0")
    assert re.fullmatch(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ", listed["creationInfo"]["created"])
    names = [x["SPDXID"] for x in listed["packages"]]
    assert len(names) == len(set(names))
    assert all(re.fullmatch(r"SPDXRef-[A-Za-z0-9.-]+", x) for x in names)
    described, *links = listed["relationships"]
    assert described["relatedSpdxElement"] == names[0]
    assert [x["relatedSpdxElement"] for x in links] == names[1:]
    assert {x["relationshipType"] for x in links} == {"DYNAMIC_LINK"}


# ---- the command ----


def test_a_release_needs_a_tag():
    said = run(DEV, "release", "no-such-tag", code=2)
    assert said == './dev release: there is no tag "no-such-tag"\n'
    assert "usage: ./dev release TAG" in run(DEV, "release", code=2)


def release(clone):
    """Makes the release v1 in a clone; returns the list of sums."""
    done = subprocess.run(
        [os.path.join(clone, "dev"), "release", "v1"],
        capture_output=True, text=True, timeout=7200, check=False,
    )
    assert done.returncode == 0, done.stdout[-5000:] + done.stderr[-5000:]
    folder = clone / "build/releases/v1"
    run("sha256sum", "--check", "--strict", "SHA256SUMS", cwd=folder)
    sums = (folder / "SHA256SUMS").read_text("ascii")
    assert [x.split()[1] for x in sums.splitlines()] == sorted(
        x.name for x in folder.iterdir() if x.name != "SHA256SUMS"
    )
    shutil.rmtree(folder)
    return sums


@pytest.mark.long
@pytest.mark.xdist_group("arm64")
def test_a_release_made_again_has_the_same_sums(debootstrap, tmp_path):
    clone = tmp_path / "clone"
    run("git", "clone", "--quiet", "--no-hardlinks", ROOT, str(clone))
    run("git", "-C", str(clone), "tag", "v1")
    for name in ("debian-bookworm", "debian-bookworm-arm64"):
        # Kept from one run to the next; without them the release makes its own.
        kept = os.path.join(ROOT, "build", name)
        if os.path.isdir(kept):
            (clone / "build" / name).mkdir(parents=True)
            mount("--bind", kept, str(clone / "build" / name))

    # Other tests build in that system, too.
    with locked(os.path.join(ROOT, "build/debian-bookworm-arm64")):
        sums = release(clone)
        assert release(clone) == sums

    names = [x.split()[1] for x in sums.splitlines()]
    number = version()
    assert names == [
        f"quillbox-helper-{number}-linux-aarch64.tar.xz",
        f"quillbox-helper-{number}-linux-x86_64.tar.xz",
        f"quillbox-helper-{number}.tar.gz",
        "quillbox-helper.spec",
        f"quillbox-helper_{number}-1_amd64.deb",
        f"quillbox-helper_{number}-1_amd64.spdx.json",
        f"quillbox-helper_{number}-1_arm64.deb",
        f"quillbox-helper_{number}-1_arm64.spdx.json",
    ]
