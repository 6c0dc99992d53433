"""Automatic mode: announced phones are advertised to file browsers, and bytes reach the phone."""

import hashlib
import os
import subprocess

import pytest
from rig.computer import LOOKING, visible
from rig.network import TYPE_PHONE
from rig.onlooker import avahi_services
from rig.phone import Phone, smb_command, smbclient
from rig.process import limit, wait_until

pytestmark = pytest.mark.any_user


def sha256_of(path):
    digest = hashlib.sha256()
    with open(path, "rb") as file:
        while block := file.read(1 << 20):
            digest.update(block)
    return digest.hexdigest()


def appear(phone, helper, onlooker, count=1):
    """Announces the phone and waits until it is visible; returns what the observer resolves."""
    phone.announce()
    helper.wait_status(visible(count))
    return onlooker.wait("resolved", phone.service_name, 5)


def test_a_phone_is_advertised_within_two_seconds(computer, engine, onlooker, bare_phone):
    helper = computer.helper()
    helper.wait_status(LOOKING)

    announced = bare_phone.announce()

    seen = onlooker.wait("added", "Quillbox Office", 10)
    assert seen["at"] - announced < limit(2)
    helper.wait_status(visible(1))
    found = onlooker.wait("resolved", "Quillbox Office", 5)
    assert computer.address4 in found["addresses"]
    assert found["port"] not in (0, 445, 4445)
    # The TXT record is the single empty string of RFC 6763, section 6.1.
    assert found["txt"] <= 1


def test_a_phone_that_was_there_first_is_found(computer, onlooker, bare_phone):
    bare_phone.announce()

    helper = computer.helper()

    helper.wait_status(visible(1))
    onlooker.wait("resolved", "Quillbox Office", 5)


@pytest.mark.slow
@pytest.mark.parametrize("size", ["big_file", pytest.param("gibibyte", marks=pytest.mark.long)])
def test_a_big_file_goes_there_and_back_unchanged(request, computer, onlooker, phone, size):
    big = request.getfixturevalue(size)
    helper = computer.helper()
    found = appear(phone, helper, onlooker)

    smbclient(computer, computer.address4, found["port"], f"put {big.path} big", timeout=120)
    assert sha256_of(os.path.join(phone.share, "big")) == big.sha256

    with computer.popen(
        smb_command(computer.address4, found["port"], "get big -"),
        env=computer.environment(),
        stdin=subprocess.DEVNULL,
        stdout=subprocess.PIPE,
        stderr=subprocess.DEVNULL,
    ) as client:
        digest = hashlib.sha256()
        while block := client.stdout.read(1 << 20):
            digest.update(block)
        assert client.wait(60) == 0
    assert digest.hexdigest() == big.sha256


def test_another_computer_can_use_the_advertised_address(computer, engine, onlooker, phone):
    helper = computer.helper()
    found = appear(phone, helper, onlooker)

    assert {computer.address4, computer.address6} <= set(found["addresses"])
    for address in found["addresses"]:
        scoped = f"{address}%eth0" if address.startswith("fe80:") else address
        done = smbclient(onlooker, scoped, found["port"], "mkdir seen; ls; rmdir seen")
        assert "seen" in done.stdout


def test_a_goodbye_withdraws_the_advertisement_within_two_seconds(
    computer, engine, onlooker, bare_phone
):
    helper = computer.helper()
    appear(bare_phone, helper, onlooker)
    since = helper.mark()

    said = bare_phone.goodbye()

    gone = onlooker.wait("removed", "Quillbox Office", 10)
    assert gone["at"] - said < limit(2)
    helper.wait_status(LOOKING, since=since)


def test_a_phone_that_comes_back_elsewhere_is_followed(computer, onlooker, phone):
    helper = computer.helper()
    appear(phone, helper, onlooker)
    phone.goodbye()
    onlooker.wait("removed", "Quillbox Office", limit(5))

    phone.stop_serving()
    phone.move("10.77.0.99", "fd77::99")
    phone.serve(port=5445)
    since, seen = helper.mark(), onlooker.mark()
    phone.announce()

    helper.wait_status(visible(1), since=since)
    found = onlooker.wait("heard", "Quillbox Office", 5, since=seen)
    smbclient(computer, computer.address4, found["port"], "mkdir here")
    assert os.listdir(phone.share) == ["here"]


def test_a_phone_that_left_without_a_word_is_gone_when_its_records_run_out(
    computer, engine, onlooker, phone
):
    helper = computer.helper()
    phone.announce(host_ttl=4, other_ttl=4500)
    helper.wait_status(visible(1))
    onlooker.wait("resolved", "Quillbox Office", 5)
    since = helper.mark()

    phone.vanish()

    helper.wait_status(LOOKING, timeout=20, since=since)
    onlooker.wait("removed", "Quillbox Office", 5)


def test_two_phones_never_answer_for_each_other(lan, computer, engine, onlooker, phone):
    other = lan.host("other", of=Phone)
    other.serve()
    other.service_name = "Quillbox Kitchen"
    helper = computer.helper()

    phone.announce()
    other.announce()

    helper.wait_status(visible(2))
    hosts = {}
    for one in (phone, other):
        found = onlooker.wait("resolved", one.service_name, 5)
        hosts[one.service_name] = found["host"]
        smbclient(computer, computer.address4, found["port"], f"mkdir {one.name}")
    assert os.listdir(phone.share) == ["phone"]
    assert os.listdir(other.share) == ["other"]
    # File browsers reuse connections by host name alone, without the port.
    assert hosts["Quillbox Office"] != hosts["Quillbox Kitchen"]

    since = helper.mark()
    other.goodbye()
    helper.wait_status(visible(1), since=since)
    onlooker.wait("removed", "Quillbox Kitchen", 5)


def test_a_name_with_dots_umlauts_and_an_ampersand_is_kept(lan, computer, engine, phone):
    # python-zeroconf cannot announce a dot inside a name; Avahi can.
    name = "Quillbox Büro & Söhne 2.0 … 第二"
    phone.start_bus()
    phone.start_avahi()
    onlooker = lan.host("avahi")
    onlooker.start_bus()
    onlooker.start_avahi()
    helper = computer.helper()

    phone.start(["avahi-publish", "--service", name, TYPE_PHONE, str(phone.port)])

    helper.wait_status(visible(1))

    def port():
        found = [x for x in avahi_services(onlooker) if x[0] == name]
        return next((x[3] for x in found if x[2] == computer.address4), None)

    found = wait_until(port, 10, "the name as it was given")
    smbclient(computer, computer.address4, found, "mkdir here")
    assert os.listdir(phone.share) == ["here"]


def test_other_services_of_the_same_type_are_left_alone(computer, onlooker, bare_phone):
    helper = computer.helper()
    helper.wait_status(LOOKING)

    bare_phone.announce("Quillboxes")
    bare_phone.announce("My Quillbox")
    bare_phone.announce("Quillbox")

    helper.wait_status(visible(1))
    onlooker.wait("resolved", "Quillbox", 5)
    assert {seen["name"] for seen in onlooker.events("added")} == {"Quillbox"}


def test_a_name_that_another_computer_has_is_changed(lan, computer, engine, onlooker, phone):
    other = lan.host("other", of=Phone)
    other.announce("Quillbox Office", type="_smb._tcp")
    theirs = onlooker.wait("resolved", "Quillbox Office", 5)
    helper = computer.helper()
    helper.wait_status(LOOKING)

    phone.announce()

    helper.wait_status(visible(1), timeout=15)
    ours = onlooker.wait("resolved", "Quillbox Office #2", 10)
    assert computer.address4 in ours["addresses"]
    assert onlooker.events("removed") == []
    assert (theirs["host"], theirs["port"]) == ("other.local", 4445)
    smbclient(computer, computer.address4, ours["port"], "mkdir here")
    assert os.listdir(phone.share) == ["here"]


def test_a_phone_that_refuses_and_then_serves_needs_no_restart(computer, onlooker, phone):
    phone.stop_serving()
    helper = computer.helper()
    found = appear(phone, helper, onlooker)

    refused = smbclient(computer, computer.address4, found["port"], "ls", check=False)
    assert refused.returncode != 0

    phone.serve()
    smbclient(computer, computer.address4, found["port"], "mkdir here")
    assert os.listdir(phone.share) == ["here"]
    assert helper.statuses()[-1] == visible(1)
