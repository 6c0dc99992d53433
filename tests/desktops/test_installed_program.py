"""The systems themselves: what the other tests of this folder rely on."""


def test_the_installed_program_finds_both_phones(phones, computer):
    computer.boot()
    session = computer.log_in("none")
    session.start_screen()
    session.start_bus()
    session.helper()
    for phone in phones:
        phone.serve()
        phone.announce()
    session.wait_visible(2)
    names = session.run("avahi-browse", "--terminate", "--parsable", "_smb._tcp").stdout
    assert "Office" in names and "Studio" in names
