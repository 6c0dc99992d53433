"""What menu entries open on a desktop: shares (GVfs and the file manager) and pages (browser)."""

import hashlib
import os
import re
import time
import urllib.parse

import pytest
from rig.computer import LOOKING, MULTICAST_NAMES, PROGRAM, visible
from rig.desktop import Desktop
from rig.onlooker import PYTHON
from rig.phone import PASSWORD, Phone
from rig.process import limit, wait_until

RIG = os.path.join(os.path.dirname(os.path.abspath(__file__)), "rig")
TYPE_SMB = "_smb._tcp"
TYPE_ADMIN = "_quillbox-admin._tcp"
NOT_RESOLVED = "Could not resolve management address. Check the phone is online."

# Non-ASCII letters, and characters that are special in URLs, menus and markup.
HARD_NAME = "Quillbox Küche & <b>Büro</b>"


@pytest.fixture
def make_desktop(lan):
    """A factory of a desktop with what the test names (desk.py), and with avahi-daemon or without."""

    def make(*parts, engine="daemon"):
        made = lan.host("computer", of=Desktop)
        made.prepare(engine)
        made.log_in(*parts)
        return made

    return make


@pytest.fixture
def desktop(make_desktop, engine):
    """The user's computer with a desktop, with avahi-daemon or without."""
    return make_desktop("file-manager", engine=engine)


@pytest.fixture
def daemon_desktop(make_desktop):
    """The same with avahi-daemon, for tests of what is not there without it."""
    return make_desktop("file-manager")


# ---- the phone's share ----


def mount(desktop, url):
    # GVfs asks for domain and password only, as the URL contains the user.
    desktop.run("gio", "mount", url, input=f"\n{PASSWORD}\n".encode(), timeout=30)


def sha256(path):
    with open(path, "rb") as file:
        return hashlib.sha256(file.read()).hexdigest()


def write_random(path):
    with open(path, "wb") as file:
        file.write(os.urandom(4 << 20))


def check_that_it_opens(desktop, phone, url):
    """Mounts the URL that the file manager got, and copies a file in both directions."""
    mount(desktop, url)
    local = os.path.join(desktop.folder, "local")
    write_random(local)
    write_random(os.path.join(phone.share, "remote"))
    desktop.run("gio", "copy", local, f"{url}/sent", timeout=30)
    desktop.run("gio", "copy", f"{url}/remote", f"{local}-got", timeout=30)
    assert sha256(os.path.join(phone.share, "sent")) == sha256(local)
    assert sha256(f"{local}-got") == sha256(os.path.join(phone.share, "remote"))


@pytest.mark.parametrize("name", ["Quillbox Office", HARD_NAME], ids=["plain", "hard"])
def test_open_in_finder_hands_over_a_url_that_opens(desktop, engine, phone, name):
    helper = desktop.helper()
    phone.announce(name)
    helper.wait_status(visible(1))

    asked = desktop.choose("Open in Finder")

    url, shown = desktop.shown_folder(limit(3))
    assert shown - asked < limit(2)
    host = r"[a-z0-9-]+\.local" if engine == "daemon" else r"127(\.\d+){3}"
    assert re.fullmatch(rf"smb://nas@{host}:\d+/NAS", url)
    check_that_it_opens(desktop, phone, url)


def listed_server(desktop):
    """The URL behind the only entry of the file browsers' network view."""

    def read():
        done = desktop.run(
            "gio", "list", "-a", "standard::target-uri", "dns-sd://local/", timeout=20
        )
        return re.findall(r"standard::target-uri=(\S+)", done.stdout)

    # GVfs fills the list while it browses, and offers no way to wait for that.
    (url,) = wait_until(read, limit(10), "the server in the network view")
    return url.rstrip("/")


NAME_SERVICES = [
    pytest.param(hosts, server, id=f"{server}-{name}")
    for hosts, name in ((MULTICAST_NAMES, "mdns"), ("files dns", "no mdns"))
    for server in ("answering", "unreachable", "local")
]


def hand_over(desktop, phone):
    """Chooses "Open in Finder", and returns the URL that the file manager is to show. It is the URL of
    the share, which opens."""
    helper = desktop.helper()
    phone.announce("Quillbox Office")
    helper.wait_status(visible(1))

    asked = desktop.choose("Open in Finder")

    url, shown = desktop.shown_folder(limit(3))
    assert shown - asked < limit(2)
    mount(desktop, url)
    desktop.run("gio", "list", url, timeout=30)
    return url.removesuffix("/NAS").replace("nas@", "")


@pytest.mark.parametrize("hosts, server", NAME_SERVICES)
def test_open_in_finder_hands_over_the_server_of_the_network_view(
    daemon_desktop, phone, hosts, server
):
    """File browsers mount a share once for each host name that they are given. Without a DNS server
    libnss-mdns takes seconds to resolve a name, but it does. It leaves the names to a DNS server that
    is responsible for them."""
    daemon_desktop.set_name_service(hosts, server)

    opened = hand_over(daemon_desktop, phone)

    if hosts == MULTICAST_NAMES and server != "local":
        assert opened == listed_server(daemon_desktop)
        assert opened.startswith("smb://quillbox-office-computer-")
    else:
        # No program can resolve the host name.
        assert re.fullmatch(r"smb://127(\.\d+){3}:\d+", opened)


def test_open_in_finder_hands_over_an_address_where_there_is_no_network_view(make_desktop, phone):
    """Without avahi-daemon no program can resolve the host name, and none is made to try."""
    desktop = make_desktop("file-manager", engine="embedded")
    desktop.set_name_service(MULTICAST_NAMES, "unreachable")

    assert re.fullmatch(r"smb://127(\.\d+){3}:\d+", hand_over(desktop, phone))


def test_open_in_finder_waits_until_the_relay_is_published(desktop, engine, phone):
    """A click between the discovery of a phone and its publication, which takes a second."""
    helper = desktop.helper()
    helper.wait_status(LOOKING)
    phone.announce("Quillbox Office")
    helper.wait_status("not ready: Connecting 1 Quillbox device…")

    desktop.choose("Open in Finder")

    url, _ = desktop.shown_folder(limit(5))
    helper.wait_status(visible(1))
    host = urllib.parse.urlsplit(url).hostname
    assert host.endswith(".local") if engine == "daemon" else host.startswith("127.")


def test_the_file_browsers_network_lists_the_phones(lan, daemon_desktop):
    names = ["Quillbox Office", HARD_NAME]
    helper = daemon_desktop.helper()
    for number, name in enumerate(names):
        lan.host(f"phone{number}", of=Phone).announce(name)
    helper.wait_status(visible(2))

    def listed():
        done = daemon_desktop.run("gio", "list", "-d", "dns-sd://local/", timeout=20)
        return sorted(done.stdout.splitlines()) == sorted(names)

    # GVfs fills the list while it browses, and offers no way to wait for that.
    wait_until(listed, limit(10), "both phones")


def test_a_name_that_another_computer_has_leads_to_the_own_relay(lan, desktop, onlooker, phone):
    rival = lan.host("rival", of=Phone)
    rival.announce("Quillbox Office", type=TYPE_SMB, port=445)
    onlooker.wait("resolved", "Quillbox Office", 5)
    helper = desktop.helper()
    phone.announce("Quillbox Office")
    helper.wait_status(visible(1))
    own = onlooker.wait("resolved", "Quillbox Office #2", 10)

    desktop.choose("Open in Finder")

    url, _ = desktop.shown_folder(limit(3))
    assert urllib.parse.urlsplit(url).port == own["port"]


def test_a_share_of_another_computer_opens_where_it_is(lan, daemon_desktop):
    # Manual mode without a host: the program has no relay.
    daemon_desktop.write_settings({"automaticDiscovery": False, "user": "", "share": "My Files"})
    other = lan.host("other", of=Phone)
    other.announce("Quillbox", type=TYPE_SMB, port=4446)
    helper = daemon_desktop.helper()
    helper.wait_status("not ready: Enter the local IP address shown in Quillbox")

    daemon_desktop.choose("Open in Finder")

    assert daemon_desktop.shown_folder(limit(5))[0] == "smb://other.local:4446/My%20Files"


def test_a_share_that_is_nowhere_is_handed_over_as_it_is(daemon_desktop):
    daemon_desktop.write_settings({"automaticDiscovery": False})
    helper = daemon_desktop.helper()
    helper.wait_status("not ready: Enter the local IP address shown in Quillbox")

    asked = daemon_desktop.choose("Open in Finder")

    url, shown = daemon_desktop.shown_folder(limit(8))
    assert url == "smb://nas@Quillbox._smb._tcp.local/NAS"
    assert shown - asked < limit(6.5)
    helper.wait_message("not found on this network")


# ---- what opens the share ----

REFUSED = 4
NOT_OPENED = "No file manager opened the share"


def manual(desktop):
    """Starts the program with a relay to a phone that is off."""
    helper = desktop.manual_helper("192.0.2.7", 445)
    helper.wait_status("ready: Quillbox is visible in Finder")
    return helper


def open_in_terminal(desktop):
    # A shell passes the token on with which its terminal was started.
    env = desktop.environment(DESKTOP_STARTUP_ID="terminal_TIME1")
    return desktop.run(PROGRAM, "open", env=env, check=False, timeout=limit(40))


def test_the_default_program_opens_the_share_even_if_the_manager_on_the_bus_would(make_desktop):
    # As Thunar's, which answers with success and shows nothing.
    desktop = make_desktop("file-manager", "notifications")
    desktop.install_file_manager()
    manual(desktop)

    desktop.choose("Open in Finder")

    (url,) = desktop.opened_urls(limit(5))
    assert re.fullmatch(r"smb://nas@[a-z0-9-]+\.local:\d+/NAS", url)
    seen = desktop.environment_of_opened()
    assert re.search(r"_TIME\d+$", seen["DESKTOP_STARTUP_ID"])
    assert seen["XDG_ACTIVATION_TOKEN"] == seen["DESKTOP_STARTUP_ID"]
    assert "NO_AT_BRIDGE" not in seen
    assert desktop.shown_folders() == []


def test_the_command_opens_the_share_like_the_menu(make_desktop):
    desktop = make_desktop("file-manager")
    desktop.install_file_manager()
    manual(desktop)

    done = open_in_terminal(desktop)

    assert (done.returncode, done.stderr) == (0, "")
    assert len(desktop.opened_urls(limit(5))) == 1
    assert "terminal" not in desktop.environment_of_opened()["DESKTOP_STARTUP_ID"]
    assert desktop.shown_folders() == []


@pytest.mark.slow
def test_clicks_open_the_share_while_a_file_manager_hangs(make_desktop):
    # Or answers only after the user has logged in, as PCManFM-Qt does.
    desktop = make_desktop("hanging-manager", "notifications")
    manual(desktop)

    first = desktop.choose("Open in Finder")
    desktop.choose("Open in Finder")
    wait_until(lambda: len(desktop.shown_folders()) == 1, limit(5), "the first window")

    def open_again():
        desktop.choose("Open in Finder")
        return len(desktop.shown_folders()) > 1

    wait_until(open_again, limit(8), "the second window")
    assert time.monotonic() - first > 2
    since = len(desktop.shown_folders())
    time.sleep(2.1)
    done = open_in_terminal(desktop)
    assert (done.returncode, done.stderr) == (0, "")
    # It was asked once more, and nothing else was tried.
    assert len(desktop.shown_folders()) == since + 1


@pytest.mark.slow
def test_a_desktop_without_a_file_manager_shows_why_nothing_opens(make_desktop):
    desktop = make_desktop("notifications")
    helper = manual(desktop)

    desktop.choose("Open in Finder")

    title, text = desktop.notification(limit(20))
    assert title == "Cannot open the share"
    assert text.startswith(f"{NOT_OPENED}. ")
    helper.wait_status("ready: Quillbox is visible in Finder")
    done = open_in_terminal(desktop)
    assert done.returncode == REFUSED
    assert done.stderr == f"quillbox-helper: {text}\n"


@pytest.mark.slow
def test_a_window_shows_why_nothing_opens_where_nothing_shows_notifications(make_desktop):
    desktop = make_desktop()
    manual(desktop)
    before = desktop.windows()

    done = open_in_terminal(desktop)

    assert done.returncode == REFUSED
    assert NOT_OPENED in done.stderr
    wait_until(lambda: len(desktop.windows()) > len(before), limit(5), "the window")


# ---- the phone's page ----


@pytest.fixture
def page(lan):
    """A phone that serves its management page but is not announced yet."""
    made = lan.host("phone", of=Phone)
    made.page = made.start([PYTHON, f"{RIG}/page.py", made.folder])
    line = made.page.wait_line(lambda x: x.text.startswith("port "), 20, what="the page")
    made.port = int(line.text.split()[1])
    return made


def found_page(desktop, helper, page, **more):
    """Announces the page, and returns once the program knows it."""
    page.announce("Quillbox Office", type=TYPE_ADMIN, **more)
    # No status reports the page itself. The phone is announced after it, so it is found later.
    page.announce("Quillbox Office", **more)
    helper.wait_status(visible(1))


def test_the_management_page_opens_in_the_browser(desktop, page):
    desktop.install_browser()
    helper = desktop.helper()
    found_page(desktop, helper, page)

    desktop.choose("Open web management")

    (url,) = desktop.opened_urls(limit(5))
    assert url == f"https://{page.address4}:{page.port}/"
    fetched = desktop.run("curl", "--insecure", "--silent", "--show-error", url, timeout=10)
    assert "web management" in fetched.stdout
    page.page.wait_line(lambda x: x.text == "visit /", 5, what="a visit")


def test_the_page_of_a_phone_with_a_link_local_address_opens_by_its_zone(desktop, page):
    desktop.install_browser()
    helper = desktop.helper()
    found_page(desktop, helper, page, addresses=[f"fe80::{page.number}"])

    desktop.choose("Open web management")

    (url,) = desktop.opened_urls(limit(5))
    assert url == f"https://[fe80::{page.number}%25eth0]:{page.port}/"
    fetched = desktop.run("curl", "--insecure", "--silent", "--show-error", url, timeout=10)
    assert "web management" in fetched.stdout


def test_a_page_without_an_address_is_given_up_after_six_seconds(daemon_desktop, page):
    daemon_desktop.install_browser()
    helper = daemon_desktop.helper()
    helper.wait_status(LOOKING)
    found_page(daemon_desktop, helper, page, addresses=[])

    asked = daemon_desktop.choose("Open web management")

    told = helper.wait_status(f"not ready: {NOT_RESOLVED}", 8)
    assert 5.9 < told.at - asked < limit(6.6)
    assert daemon_desktop.has_opened_nothing()
