"""Wayland compositors without a physical screen, as a person sees and uses them.

`Compositor` (compositor.py) is what tests use: windows with their frames, the panel and its status item,
pointer and keyboard, pictures. KWin, sway and weston show their screen in a window of Xvfb, which makes its
pointer theirs; GNOME Shell has a virtual monitor and a virtual pointer of its own.

    def test_something(compositor, questions):     # its session and the compositor have started
        compositor.start_panel()                   # what shows status items; before the program or after
        compositor.start_program()                 # waits for its window
        compositor.window().frame                  # (x, y, width, height) of what one sees of it
        compositor.click_node("push button", "Advanced")    # a click of the pointer
        with questions.ask("unfolded") as answer:  # a row of docs/desktops.md, and a picture
            ...
        questions.check()                          # fails here, when all questions have been asked
"""
