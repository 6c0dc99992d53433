"""Real desktops of Debian 12 and 13, with the program installed from its package.

`Releases` (releases.py) makes a system for each release with debootstrap, and keeps it in
build/desktops. `RealComputer` (computer.py) is a host of the test network (tests/lan/rig) that runs
such a system with an ordinary user; what a test changes there is gone when the test ends.
`Session` (session.py) is that user's login: session bus, screen, programs. `Findings` (findings.py)
keeps what a test saw, and page.py writes docs/desktops.md from it. A test reads like what a user does:

    def test_something(lan, phones, computer, findings):
        computer.boot(avahi=True, mdns_names=True)
        session = computer.log_in("GNOME", services=["org.gtk.vfs.*"])
        session.start_screen()
        helper = session.helper()                  # quillbox-helper, as the menu starts it
        with findings.answer("Opens the share") as answer:
            ...                                    # an assertion that fails is the answer "no"
            answer.seconds = 0.7
"""
