"""A real desktop for the program to run on, seen from outside.

`Desktop` is a host of the test network (tests/lan/rig) with a screen of its own: Xvfb, a session bus
with the accessibility bus behind it, openbox as its window manager and, when a test asks for them, a
tray (trayer) or a panel for status notifier items. Nothing of it is shared with the machine or with
another test. A test reads like what somebody does in front of it:

    def test_something(desktop):                 # screen, bus and window manager are up
        desktop.start_tray()                     # or start_panel(), or neither
        helper = desktop.helper()                # the program, with a home of its own
        window = desktop.window()                # waits until the window manager shows it
        window.frame()                           # (x, y, width, height), title bar and borders included
        window.states()                          # {"_NET_WM_STATE_SKIP_TASKBAR", ...}
        node = desktop.read(helper).find("push button", "Advanced")   # as a screen reader sees it
        desktop.click(*node.centre())            # a real click of the first button, through XTEST
        desktop.wait(lambda: window.frame()[3] == 520, "a frame of 520")
        desktop.picture().pixel(x, y)            # (red, green, blue); .save(path) writes a PNG

`Screen` (desktop.screen) answers for the window manager: clients, stacking, focus, workspaces; it
opens windows of other programs too. A `ClientWindow` is one window as the window manager has it.
`Node` is one element of what assistive technology is told. `make_desktop` is the fixture for another
screen: make_desktop(size=(1920, 1080), dpi=192, manager=False). Phones join as in tests/lan:

    phone = desktop.lan.host("phone", of=Phone)
    phone.announce("Quillbox Office")

State that has no event is polled by `desktop.wait`, which has the only pause. When a test fails, its
screen is left in build/results/screens/.
"""
