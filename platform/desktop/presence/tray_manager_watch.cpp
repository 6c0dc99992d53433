#include "platform/desktop/presence/status_host_watch.h"

#include <array>
#include <string>
#include <utility>

#include <xcb/xcb.h>

namespace quillbox {

using x11::owned;

TrayManagerWatch::TrayManagerWatch(std::function<void()> managerChanged)
    : changed(std::move(managerChanged))
{
    int screenNumber = 0;
    connection.reset(xcb_connect(nullptr, &screenNumber));
    if (xcb_connection_has_error(connection.get()) != 0)
        return;
    selection = x11::atom(connection.get(), "_NET_SYSTEM_TRAY_S" + std::to_string(screenNumber));
    // A new manager sends a MANAGER message to the clients that select StructureNotify events on
    // the root window (ICCCM, section 2.8).
    watch(x11::rootWindow(connection.get(), screenNumber));
    notifier = std::make_unique<QSocketNotifier>(xcb_get_file_descriptor(connection.get()),
                                                 QSocketNotifier::Read);
    QObject::connect(notifier.get(), &QSocketNotifier::activated, notifier.get(),
                     [this] { readEvents(); });
    find();
    // Events that xcb has read together with the replies no longer make the descriptor readable.
    while (takeEvents())
        find();
}

TrayManagerWatch::~TrayManagerWatch() = default;

/// Queries the owner again if its window was destroyed before we could select events on it. The
/// number of attempts is bounded: an owner that keeps changing also keeps causing events.
void TrayManagerWatch::find()
{
    constexpr int kMostSteps = 8;
    manager = XCB_WINDOW_NONE;
    for (int step = 0; step < kMostSteps; ++step) {
        const std::uint32_t window = owner();
        if (window == XCB_WINDOW_NONE)
            return;
        if (watch(window)) {
            manager = window;
            return;
        }
    }
}

std::uint32_t TrayManagerWatch::owner() const
{
    const auto cookie = xcb_get_selection_owner(connection.get(), selection);
    const auto reply = owned(xcb_get_selection_owner_reply(connection.get(), cookie, nullptr));
    return reply ? reply->owner : std::uint32_t(XCB_WINDOW_NONE);
}

/// Selects StructureNotify events on the window; false if the window no longer exists.
bool TrayManagerWatch::watch(std::uint32_t window) const
{
    const std::array<std::uint32_t, 1> events{XCB_EVENT_MASK_STRUCTURE_NOTIFY};
    const auto cookie = xcb_change_window_attributes_checked(connection.get(), window,
                                                             XCB_CW_EVENT_MASK, events.data());
    return !owned(xcb_request_check(connection.get(), cookie));
}

/// Drops all queued events; whether there were any. They are rare, so that there is no need to know
/// which of them report a new or a destroyed manager.
bool TrayManagerWatch::takeEvents()
{
    bool isNews = false;
    while (owned(xcb_poll_for_event(connection.get())))
        isNews = true;
    return isNews;
}

void TrayManagerWatch::readEvents()
{
    const bool hadManager = hasManager();
    while (takeEvents())
        find();
    if (xcb_connection_has_error(connection.get()) != 0) {
        notifier->setEnabled(false);
        manager = XCB_WINDOW_NONE;
    }
    if (hasManager() == hadManager)
        return;
    // A copy: the handler may destroy this object.
    const auto handler = changed;
    handler();
}

} // namespace quillbox
