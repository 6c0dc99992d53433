"""A desktop for the program to run on, observed from outside the program.

`Desktop` is a host of the test network (tests/lan/rig) with its own screen: Xvfb, a session bus
with the accessibility bus, openbox as the window manager and, when a test asks for them, a tray
(trayer) or a panel for status notifier items. Nothing is shared with the machine or with other
tests. A test reads like what a user does:

    def test_something(desktop):                 # screen, bus and window manager are up
        desktop.start_tray()                     # or start_panel(), or neither
        helper = desktop.helper()                # the program, with its own home folder
        window = desktop.window()                # waits until the window manager shows it
        window.frame()                           # (x, y, width, height), title bar and borders included
        window.states()                          # {"_NET_WM_STATE_SKIP_TASKBAR", ...}
        node = desktop.read(helper).find("push button", "Advanced")   # as a screen reader sees it
        desktop.click(*node.centre())            # a real click of the first button, through XTEST
        desktop.wait(lambda: window.frame()[3] == 520, "a frame of 520")
        desktop.picture().pixel(x, y)            # (red, green, blue); .save(path) writes a PNG

`Screen` (desktop.screen) queries the window manager: clients, stacking, focus, workspaces; it also
opens windows of other programs. A `ClientWindow` is one window as the window manager reports it.
`Node` is one element of the accessibility tree. For another screen use the fixture `make_desktop`:
make_desktop(size=(1920, 1080), dpi=192, manager=False). Phones join as in tests/lan:

    phone = desktop.lan.host("phone", of=Phone)
    phone.announce("Quillbox Office")

State without events is polled with `desktop.wait`. When a test fails, a screenshot is saved in
build/results/screens/.
"""
