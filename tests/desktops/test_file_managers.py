"""File managers: whether their network view lists the phones, and whether the program opens them there."""

import os
import time

import pytest
from real.file_managers import INSTEAD, MANAGERS, Browser
from real.findings import Findings
from real.releases import NAMES
from test_packaging import ROOT

PICTURES = os.path.join(ROOT, "docs/screenshots/desktops")
TABLE = "File managers"
LISTS = "network view lists both phones"
OPENS = "both open from there"
CONDITIONS = {
    "": {},
    ", no libnss-mdns": {"mdns_names": False},
    ", no avahi-daemon": {"avahi": False, "mdns_names": False},
}


@pytest.fixture(params=MANAGERS, ids=lambda x: x.name)
def manager(request):
    return request.param


@pytest.fixture
def findings(manager, system):
    versions = system.versions(manager.package, manager.backend)
    names = [manager.package, manager.backend]
    return Findings(TABLE, system.release, manager.name, [[x, versions[x]] for x in names])


@pytest.fixture
def browser(computer, manager):
    """The file manager, not started yet; the test has to boot the computer first."""
    return lambda: Browser(computer, manager)


def picture_of(browser, system):
    name = f"{NAMES[system.release].replace(' ', '')}-{browser.manager.name}.png".lower()
    browser.picture().save(os.path.join(PICTURES, name))


def test_the_network_view_lists_both_phones_and_opens_them(
    computer, phones, browser, findings, system
):
    computer.boot()
    browser = browser()
    for phone in phones:
        # Some file managers ask for a login for the share only, others before they list the shares.
        phone.serve(guests=True)
        phone.announce()
    browser.session.helper("--hidden")
    browser.session.wait_visible(2)

    for position, phone in enumerate(phones):
        with findings.answer(LISTS):
            browser.show_network()
            browser.open_phone(phone, position)
        try:
            with findings.answer(OPENS):
                browser.open_share("NAS", phone.file)
        except AssertionError as error:
            fault = browser.manager.fault
            if not fault or not (INSTEAD in str(error) or browser.is_port_left_out()):
                raise
            findings.cannot(OPENS, fault)
        picture_of(browser, system)
        browser.close_all()


@pytest.mark.parametrize("condition", CONDITIONS, ids=lambda x: x.lstrip(", ") or "usual")
def test_open_in_finder_shows_the_files_of_the_phone(
    computer, phones, browser, findings, condition
):
    computer.boot(**CONDITIONS[condition])
    browser = browser()
    office, studio = phones
    for phone in phones:
        phone.serve()
    office.announce()
    browser.session.helper()
    browser.session.wait_visible(1)
    browser.unfold_helper()

    with findings.answer(f"“Open in Finder”{condition}") as answer:
        button = browser.button("Open in Finder")
        start = time.monotonic()
        browser.click(button)
        browser.wait_windows()
        answer.seconds = time.monotonic() - start
        browser.log_in()
        browser.check_shown(office.file)
        browser.check_one_window()
    browser.close_all()

    studio.announce()
    browser.session.wait_visible(2)
    with findings.answer(f"`open`{condition}") as answer:
        start = time.monotonic()
        browser.session.run("quillbox-helper", "open", studio.service_name)
        browser.wait_windows()
        answer.seconds = time.monotonic() - start
        browser.log_in()
        browser.check_shown(studio.file)
        browser.check_one_window()
