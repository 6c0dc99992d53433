"""Manual mode: the relay connects to the host and port that the user typed."""

import os

import pytest
from rig.phone import smbclient

pytestmark = pytest.mark.any_user

READY = "ready: Quillbox is visible in Finder"


def use(computer, onlooker, phone, helper):
    """Asserts that the relay is advertised as "Quillbox" and connects to the phone."""
    helper.wait_status(READY)
    found = onlooker.wait("resolved", "Quillbox", 5)
    smbclient(computer, computer.address4, found["port"], "mkdir here")
    assert os.listdir(phone.share) == ["here"]


@pytest.mark.parametrize("kind", ["address4", "address6", "link-local", "hosts file"])
def test_a_typed_host_is_reached(computer, onlooker, phone, kind):
    typed = {
        "address4": phone.address4,
        "address6": phone.address6,
        "link-local": f"fe80::{phone.number}%eth0",
        "hosts file": "my-phone.example",
    }[kind]
    computer.names({"my-phone.example": phone.address4})

    use(computer, onlooker, phone, computer.manual_helper(typed, phone.port))


def test_a_typed_local_name_is_found_by_multicast_dns(computer, engine, onlooker, phone):
    phone.announce()

    use(computer, onlooker, phone, computer.manual_helper("phone.local", phone.port))


def test_the_settings_that_worked_are_stored_tidied(computer, onlooker, phone):
    computer.write_settings(
        {"automaticDiscovery": False, "host": f"  {phone.address4}\n", "port": "+04445", "mine": [1]}
    )

    use(computer, onlooker, phone, computer.helper())

    stored = computer.read_settings()
    assert (stored["host"], stored["port"]) == (phone.address4, "4445")
    assert stored["automaticDiscovery"] is False
    assert stored["mine"] == [1]
    assert os.stat(computer.settings_file).st_mode & 0o777 == 0o600


@pytest.mark.parametrize(
    "host, port, status",
    [
        ("", "4445", "not ready: Enter the local IP address shown in Quillbox"),
        ("nas@10.77.0.3", "4445", "not ready: Enter the local IP address shown in Quillbox"),
        ("10.77.0.3", "70000", "not ready: Enter a valid SMB port"),
        ("10.77.0.3", " 4445", "not ready: Enter a valid SMB port"),
    ],
)
def test_what_cannot_be_used_is_said(bare_computer, host, port, status):
    helper = bare_computer.manual_helper(host, port)

    helper.wait_status(status)
    assert helper.running()
