"""Runs in a host: observes a display as another X client. Prints one JSON object per line.

watch: prints the time (CLOCK_MONOTONIC) at which a window of the program is mapped.
ping: pings the program's window every few milliseconds, as window managers do (_NET_WM_PING), and
prints at the end of standard input how long the answers took.
"""

import json
import select
import sys
import time

from Xlib import X, display, error
from Xlib.protocol import event

CLASS = "quillbox-helper"
PAUSE = 0.03


def tell(**what):
    print(json.dumps(what), flush=True)


def is_program(window):
    """Whether it is a visible window of the program; toolkits also create windows that are never
    shown."""
    try:
        found = window.get_wm_class()
        is_shown = window.get_attributes().map_state == X.IsViewable
    except error.XError:
        return False
    return is_shown and found is not None and CLASS in found


def program_window(window, depth=3):
    """The program's window at or below a window: the window manager reparents it into a frame."""
    if is_program(window):
        return window
    if depth == 0:
        return None
    try:
        children = window.query_tree().children
    except error.XError:
        return None
    for child in children:
        found = program_window(child, depth - 1)
        if found:
            return found
    return None


def watch(screen):
    root = screen.screen().root
    root.change_attributes(event_mask=X.SubstructureNotifyMask)
    screen.sync()
    tell(event="watching")
    while True:
        news = screen.next_event()
        at = time.monotonic()
        if news.type == X.MapNotify and program_window(news.window):
            tell(event="mapped", at=at)


def wait_answer(screen, protocols, number, limit=30):
    """Waits for the answer to a ping; returns whether it arrived."""
    end = time.monotonic() + limit
    while time.monotonic() < end:
        while screen.pending_events():
            news = screen.next_event()
            if news.type == X.ClientMessage and news.client_type == protocols:
                if news.data[1][1] == number:
                    return True
        select.select([screen.fileno()], [], [], 0.1)
    return False


def ping_window(screen):
    root = screen.screen().root
    # Qt sends the answers to clients that select StructureNotify on the root window.
    root.change_attributes(event_mask=X.StructureNotifyMask)
    window = program_window(root)
    if window is None:
        sys.exit("the program shows no window")
    protocols, ping = screen.intern_atom("WM_PROTOCOLS"), screen.intern_atom("_NET_WM_PING")
    tell(event="pinging")
    times = []
    while not select.select([sys.stdin], [], [], PAUSE)[0]:
        number = len(times) + 1
        data = (32, [ping, number, window.id, 0, 0])
        message = event.ClientMessage(window=window, client_type=protocols, data=data)
        sent = time.monotonic()
        window.send_event(message)
        screen.flush()
        if not wait_answer(screen, protocols, number):
            sys.exit("the program does not answer")
        times.append(time.monotonic() - sent)
    times.sort()
    tell(event="answered", count=len(times), p50=times[len(times) // 2], most=times[-1])


def main():
    screen = display.Display(sys.argv[2])
    {"watch": watch, "ping": ping_window}[sys.argv[1]](screen)


main()
