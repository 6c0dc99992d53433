"""The window among others: how it is shown, hidden, raised, and listed in the taskbar."""

import signal

import pytest
from rig.onlooker import Onlooker
from rig.phone import Phone
from rig.process import limit


@pytest.fixture
def helper(desktop):
    """The program, with its window on the screen."""
    started = desktop.helper()
    desktop.wait(desktop.window().is_active, "the keyboard's focus")
    # When it answers, it has finished launching and sends the window manager no more requests.
    desktop.read(started)
    return started


@pytest.fixture
def window(desktop, helper):
    return desktop.window()


def start_again(desktop, *options, **environment):
    """Starts the program a second time, as a launcher does; asserts that it exits at once."""
    second = desktop.helper(*options, **environment)
    assert second.process.wait(limit(5)) == 0
    assert second.process.output() == "quillbox-helper: another instance is already running"


def wait_in_front(desktop, window):
    """Waits until the window is on top, has the keyboard focus, and is not hidden in any way. The
    window manager updates these properties one after another."""

    def has_come():
        return (
            window.is_in_front()
            and window.is_active()
            and window.workspace() == desktop.screen.workspace()
            and not window.is_minimised()
            and desktop.windows() == [window]
        )

    desktop.wait(has_come, "the window in front")


def test_the_window_is_shown_once_at_start_centred_in_front_and_focused(desktop):
    desktop.open_window()

    helper = desktop.helper()

    window = desktop.window()
    wait_in_front(desktop, window)
    desktop.read(helper).find("check box", "Show Quillbox in Finder", showing=True)
    x, y, width, height = window.frame()
    screen_width, screen_height = desktop.screen.size()
    assert abs(2 * x + width - screen_width) <= 2
    # Once the first list of phones arrives, the height, with the title bar, follows the content.
    assert abs(2 * y + height - screen_height) <= 2 * sum(window.extents()[2:])


def test_closing_hides_the_window_and_nothing_else(desktop, helper, window):
    desktop.start_tray()
    desktop.wait_status_icon()

    window.close()

    desktop.wait(lambda: not window.is_managed(), "the end of the window")
    assert helper.running()
    assert desktop.status_icon().is_mapped()


def hide(desktop, window):
    window.close()
    desktop.wait(lambda: not window.is_managed(), "the end of the window")


def minimise(desktop, window):
    window.minimise()
    desktop.wait(window.is_minimised, "a minimised window")


def leave_on_another_workspace(desktop, window):
    desktop.screen.go_to_workspace(1)
    desktop.wait(lambda: not window.is_mapped(), "another workspace")


def minimise_on_another_workspace(desktop, window):
    minimise(desktop, window)
    desktop.screen.go_to_workspace(1)
    desktop.wait(lambda: desktop.screen.workspace() == 1, "another workspace")


def hide_on_another_workspace(desktop, window):
    window.move_to_workspace(2)
    desktop.wait(lambda: window.workspace() == 2, "a window on another workspace")
    hide(desktop, window)


def cover(desktop, window):
    desktop.open_window(size=desktop.screen.size())
    assert not window.is_in_front()


PLACES = [
    hide,
    minimise,
    leave_on_another_workspace,
    minimise_on_another_workspace,
    hide_on_another_workspace,
    cover,
]


@pytest.mark.parametrize("put_away", PLACES)
def test_a_second_start_brings_the_window_forward_on_this_workspace(
    desktop, helper, window, put_away
):
    put_away(desktop, window)
    workspace = desktop.screen.workspace()

    start_again(desktop)

    wait_in_front(desktop, window)
    assert desktop.screen.workspace() == workspace
    assert "_NET_WM_STATE_DEMANDS_ATTENTION" not in window.states()
    assert helper.running()


@pytest.mark.parametrize("put_away", PLACES)
def test_show_in_the_menu_brings_the_window_forward_on_this_workspace(
    desktop, helper, window, put_away
):
    desktop.start_tray()
    put_away(desktop, window)
    workspace = desktop.screen.workspace()

    menu = desktop.open_menu(helper)
    desktop.click(*menu.find("menu item", "Show Quillbox Helper").centre())

    wait_in_front(desktop, window)
    assert desktop.screen.workspace() == workspace


def test_a_second_start_shows_no_window_of_its_own(desktop, helper, window):
    opened = desktop.screen.watch_opened_windows()

    start_again(desktop)

    assert opened() == []
    assert desktop.windows() == [window]


def test_a_hidden_start_leaves_the_hidden_window_of_the_running_copy_alone(desktop, helper, window):
    hide(desktop, window)
    opened = desktop.screen.watch_opened_windows()

    start_again(desktop, "--hidden")

    desktop.read(helper)  # when it answers, it has handled what the second copy sent
    assert opened() == []
    assert not window.is_managed()


def test_a_second_start_while_somebody_works_elsewhere_is_what_they_want(desktop, helper, window):
    asked = desktop.screen.watch_messages("_NET_ACTIVE_WINDOW")
    other = desktop.open_window()
    desktop.press("a")

    start_again(desktop)

    wait_in_front(desktop, window)
    assert not other.is_active()
    source, time, *_ = asked()[-1]
    assert (source, time > 0) == (2, True)


def test_a_second_start_ends_what_the_desktop_shows_of_it(desktop, helper, window):
    said = desktop.screen.watch_startups()

    start_again(desktop, DESKTOP_STARTUP_ID='launcher/he"lper/1-2-host_TIME77')

    desktop.wait(lambda: said() == ['remove: ID="launcher/he\\"lper/1-2-host_TIME77"'], "the end")


@pytest.mark.parametrize("action", ["manage", "restart", "quit"])
def test_an_action_of_the_menu_ends_what_the_desktop_shows_of_it(desktop, helper, window, action):
    said = desktop.screen.watch_startups()

    done = desktop.helper(action, DESKTOP_STARTUP_ID="launcher/action/1_TIME77")

    # Also if the action is refused, such as "manage" without a phone.
    assert done.process.wait(limit(10)) == (4 if action == "manage" else 0)
    # A refusal raises the window, which then sends the same message.
    assert set(said()) == {'remove: ID="launcher/action/1_TIME77"'}


def test_without_a_place_for_its_item_the_window_is_in_the_taskbar(desktop, helper, window):
    assert window.is_in_taskbar()

    hide(desktop, window)
    start_again(desktop)

    desktop.wait(window.is_in_taskbar, "the window in the taskbar")


def is_in_tray_only(desktop, window):
    icon = desktop.status_icon()
    return icon is not None and icon.is_mapped() and not window.is_in_taskbar()


@pytest.mark.parametrize("kind", ["tray", "panel"])
def test_with_a_place_for_its_item_the_window_is_in_no_taskbar(desktop, kind):
    if kind == "tray":
        desktop.start_tray()
    else:
        desktop.start_panel()

    desktop.helper()

    window = desktop.window()
    desktop.wait(lambda: not window.is_in_taskbar(), "a window in no taskbar")
    assert "_NET_WM_STATE_SKIP_PAGER" in window.states()
    for put_away in hide, minimise:
        put_away(desktop, window)
        start_again(desktop)
        wait_in_front(desktop, window)
        assert not window.is_in_taskbar()


def test_a_window_leaves_the_taskbar_while_the_window_manager_is_still_reading_its_states(desktop):
    desktop.manager.signal(signal.SIGSTOP)
    skipped = desktop.screen.atom("_NET_WM_STATE_SKIP_TASKBAR")
    asked = desktop.screen.watch_messages("_NET_WM_STATE")
    desktop.helper()
    desktop.wait(asked, "the request that follows the window")

    desktop.start_tray()

    added = 1
    desktop.wait(lambda: any(x[0] == added and skipped in x for x in asked()), "a request")
    desktop.manager.signal(signal.SIGCONT)
    window = desktop.window()
    desktop.wait(lambda: not window.is_in_taskbar(), "a window in no taskbar")


def test_the_window_changes_to_the_taskbar_and_back_with_the_tray(desktop, helper, window):
    for _ in range(2):
        desktop.start_tray()
        desktop.wait(lambda: is_in_tray_only(desktop, window), "the icon in the new tray")
        desktop.stop_tray()
        desktop.wait(window.is_in_taskbar, "the window in the taskbar")


def test_the_window_changes_to_the_taskbar_and_back_with_the_panel(desktop, helper, window):
    for _ in range(2):
        desktop.start_panel()
        desktop.wait(lambda: not window.is_in_taskbar(), "a window in no taskbar")
        desktop.panel.wait_line(lambda line: line.text == "end of menu", limit(10), what="the item")
        desktop.stop_panel()
        desktop.wait(window.is_in_taskbar, "the window in the taskbar")


def test_a_hidden_window_finds_no_taskbar_when_the_tray_came_meanwhile(desktop, helper, window):
    hide(desktop, window)
    desktop.start_tray()
    desktop.wait_status_icon()

    start_again(desktop)

    wait_in_front(desktop, window)
    assert not window.is_in_taskbar()


def test_quit_in_the_menu_ends_it(desktop, helper, window):
    desktop.start_tray()
    menu = desktop.open_menu(helper)

    desktop.click(*menu.find("menu item", "Quit Quillbox Helper").centre())

    assert helper.process.wait(limit(5)) == 0
    desktop.wait(lambda: desktop.status_icon() is None, "the end of the icon")
    assert desktop.windows() == []


def test_quit_in_the_menu_withdraws_what_is_advertised(desktop, helper):
    onlooker = desktop.lan.host("onlooker", of=Onlooker)
    onlooker.watch()
    desktop.lan.host("phone", of=Phone).announce("Quillbox Office")
    onlooker.wait("resolved", "Quillbox Office", limit(10))
    desktop.start_tray()
    menu = desktop.open_menu(helper)
    assert menu.has("menu item", "Finder: visible")

    desktop.click(*menu.find("menu item", "Quit Quillbox Helper").centre())

    onlooker.wait("removed", "Quillbox Office", limit(5))
    assert helper.process.wait(limit(5)) == 0


def test_a_signal_ends_it(desktop, helper, window):
    desktop.start_tray()
    desktop.wait_status_icon()

    code, seconds = helper.stop()

    assert (code, seconds < limit(1)) == (0, True)
    desktop.wait(lambda: desktop.status_icon() is None, "the end of the icon")


def test_the_next_copy_after_the_end_is_the_first_one(desktop, helper, window):
    helper.stop()

    desktop.helper()

    wait_in_front(desktop, desktop.window())
