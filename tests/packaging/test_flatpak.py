"""The Flatpak manifest: that flatpak-builder accepts it, and that every permission has a reason."""

import hashlib
import io
import json
import os
import re
import tarfile
import urllib.request
from xml.etree import ElementTree

import pytest
from test_packaging import PACKAGING, ROOT, run, text_of

yaml = pytest.importorskip(
    "yaml", reason="tools for packages are not installed (./dev test --all installs them)"
)

NAME = "org.quillbox.Helper"
MANIFEST = f"flatpak/{NAME}.yaml"


def manifest():
    return yaml.safe_load(text_of(MANIFEST))


def test_the_builder_understands_the_manifest(tmp_path):
    # It writes .flatpak-builder/ into the current folder.
    command = ["flatpak-builder", "--show-manifest", f"{PACKAGING}/{MANIFEST}"]
    shown = json.loads(run(*command, cwd=tmp_path))
    assert (shown.get("id") or shown.get("app-id")) == NAME
    assert [x["name"] for x in shown["modules"]] == [x["name"] for x in manifest()["modules"]]
    # It drops fields that it does not know, without a warning.
    assert shown["finish-args"] == manifest()["finish-args"]
    for told, written in zip(shown["modules"], manifest()["modules"]):
        assert set(written) <= set(told)


def test_every_permission_has_its_reason():
    lines = text_of(MANIFEST).splitlines()
    start = lines.index("finish-args:") + 1
    block = lines[start : lines.index("", start)]
    assert len(block) == 2 * len(manifest()["finish-args"])
    for reason, permission in zip(block[0::2], block[1::2]):
        assert re.match(r"  # \S.*\.$", reason), permission
        assert re.match(r"  - --\S+$", permission), permission


def test_no_permission_opens_more_than_the_program_uses():
    given = set(manifest()["finish-args"])
    names = {x.split("=")[1] for x in given if "talk-name" in x}
    found = set()
    for folder in ("platform", "ui", "app"):
        for place, _, files in os.walk(os.path.join(ROOT, folder)):
            for file in files:
                with open(os.path.join(place, file), encoding="utf-8", errors="replace") as source:
                    text = source.read()
                found.update(name for name in names if f'"{name}"' in text)
    # Avahi's own library calls avahi-daemon.
    assert names == found | {"org.freedesktop.Avahi"}
    files = {x for x in given if x.startswith("--filesystem=")}
    assert files == {f"--filesystem=xdg-run/{NAME}:create"}
    assert {x.split("=")[1] for x in given if x.startswith("--socket=")} == {"wayland", "fallback-x11"}


def test_what_is_fetched_is_named_to_the_byte():
    for module in manifest()["modules"]:
        for source in module["sources"]:
            if source["type"] == "archive":
                assert source["url"].startswith("https://")
                assert re.fullmatch(r"[0-9a-f]{64}", source["sha256"])


def avahi():
    """The archive of Avahi's source, and the paths of the patches in their order."""
    (module,) = (x for x in manifest()["modules"] if x["name"] == "avahi")
    archive, patches = module["sources"]
    return archive, [os.path.join(PACKAGING, "flatpak", x) for x in patches["paths"]]


def test_avahi_is_built_with_the_corrections_of_its_known_faults():
    _, patches = avahi()
    named = {os.path.basename(x).removesuffix(".patch") for x in patches}
    assert {f"CVE-2023-3{x}" for x in range(8469, 8474)} <= named
    assert {"CVE-2021-3468", "CVE-2021-3502", "CVE-2023-1981"} <= named
    folder = os.path.join(PACKAGING, "flatpak", "avahi")
    assert sorted(patches) == sorted(os.path.join(folder, x) for x in os.listdir(folder))


@pytest.mark.long
def test_the_patches_apply_to_the_archive_that_is_fetched(tmp_path):
    archive, patches = avahi()
    with urllib.request.urlopen(archive["url"], timeout=60) as answer:
        data = answer.read()
    assert hashlib.sha256(data).hexdigest() == archive["sha256"]
    with tarfile.open(fileobj=io.BytesIO(data)) as file:
        file.extractall(tmp_path)
    (source,) = tmp_path.iterdir()
    for patch in patches:
        run("patch", "-p1", "--fuzz=0", f"--input={patch}", cwd=source)


def test_the_program_is_built_with_debug_information():
    """flatpak-builder moves it into an extension of its own, which symbolises crashes."""
    assert "-DCMAKE_BUILD_TYPE=RelWithDebInfo" in manifest()["modules"][-1]["config-opts"]


def test_the_summary_fits_into_a_line_of_a_software_centre():
    summary = ElementTree.fromstring(text_of(f"{NAME}.metainfo.xml")).findtext("summary")
    assert len(summary) <= 35 and not summary.endswith(".")


def test_the_flatpak_starts_what_is_installed():
    assert f"bin/{manifest()['command']}" == "bin/quillbox-helper"
    assert manifest()["app-id"] == NAME
    folder = os.path.join(PACKAGING, "flatpak")
    (source,) = manifest()["modules"][-1]["sources"]
    assert os.path.samefile(os.path.join(folder, source["path"]), ROOT)
