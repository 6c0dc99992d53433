#include "platform/x11/x11.h"

#include <chrono>

#include <poll.h>
#include <xcb/xcb.h>

namespace quillbox::x11 {

namespace {

constexpr std::chrono::milliseconds kPatience{500};

/// The next PropertyNotify event; null if it does not arrive in time.
std::unique_ptr<xcb_property_notify_event_t, Free> propertyEvent(xcb_connection_t* connection)
{
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (xcb_connection_has_error(connection) == 0) {
        while (auto event = owned(xcb_poll_for_event(connection))) {
            if ((event->response_type & 0x7fU) == XCB_PROPERTY_NOTIFY)
                return owned(reinterpret_cast<xcb_property_notify_event_t*>(event.release()));
        }
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left <= std::chrono::milliseconds::zero())
            break;
        pollfd waiting{xcb_get_file_descriptor(connection), POLLIN, 0};
        ::poll(&waiting, 1, static_cast<int>(left.count()));
    }
    return nullptr;
}

} // namespace

void Disconnect::operator()(xcb_connection_t* opened) const
{
    xcb_disconnect(opened);
}

std::uint32_t atom(xcb_connection_t* connection, std::string_view name)
{
    const auto cookie =
        xcb_intern_atom(connection, 0, static_cast<std::uint16_t>(name.size()), name.data());
    const auto reply = owned(xcb_intern_atom_reply(connection, cookie, nullptr));
    return reply ? reply->atom : std::uint32_t(XCB_ATOM_NONE);
}

std::uint32_t rootWindow(xcb_connection_t* connection, int screenNumber)
{
    auto screens = xcb_setup_roots_iterator(xcb_get_setup(connection));
    while (screens.rem > 0 && screenNumber-- > 0)
        xcb_screen_next(&screens);
    return screens.rem > 0 ? screens.data->root : std::uint32_t(XCB_WINDOW_NONE);
}

std::uint32_t serverTime()
{
    int screenNumber = 0;
    const Connection connection(xcb_connect(nullptr, &screenNumber));
    if (xcb_connection_has_error(connection.get()) != 0)
        return XCB_CURRENT_TIME;
    // Every change of a property causes an event with a timestamp, even appending zero bytes
    // (ICCCM, section 2.1).
    const std::uint32_t window = xcb_generate_id(connection.get());
    const std::uint32_t events = XCB_EVENT_MASK_PROPERTY_CHANGE;
    xcb_create_window(connection.get(), XCB_COPY_FROM_PARENT, window,
                      rootWindow(connection.get(), screenNumber), 0, 0, 1, 1, 0,
                      XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT, XCB_CW_EVENT_MASK,
                      &events);
    xcb_change_property(connection.get(), XCB_PROP_MODE_APPEND, window, XCB_ATOM_WM_NAME,
                        XCB_ATOM_STRING, 8, 0, nullptr);
    xcb_flush(connection.get());
    const auto event = propertyEvent(connection.get());
    return event ? event->time : std::uint32_t(XCB_CURRENT_TIME);
}

} // namespace quillbox::x11
