"""Wayland compositors without a physical screen, as a person sees and uses them.

`Compositor` (compositor.py) is what tests use: windows with their frames, the panel and its status item,
pointer and keyboard, pictures. KWin, sway and weston show their screen in a window of Xvfb, which makes its
pointer theirs; GNOME Shell has a virtual monitor and a virtual pointer of its own.
"""
