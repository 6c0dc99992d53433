#include "platform/desktop/presence/startup_notification.h"

#include "platform/x11/x11.h"

#include <QByteArray>
#include <QtGlobal>
#include <algorithm>
#include <iterator>
#include <string_view>

#include <xcb/xcb.h>

namespace quillbox {

namespace {

/// With the NUL that ends it.
std::string removalOf(const std::string& token)
{
    auto quoted = QByteArray::fromStdString(token).replace("\\", "\\\\").replace("\"", "\\\"");
    return "remove: ID=\"" + quoted.toStdString() + std::string("\"\0", 2);
}

} // namespace

void endStartup(xcb_connection_t* connection, std::uint32_t window, std::uint32_t root,
                const std::string& token)
{
    if (token.empty())
        return;
    const std::string text = removalOf(token);
    xcb_client_message_event_t message{};
    message.response_type = XCB_CLIENT_MESSAGE;
    message.format = 8;
    message.window = window;
    message.type = x11::atom(connection, "_NET_STARTUP_INFO_BEGIN");
    const std::uint32_t following = x11::atom(connection, "_NET_STARTUP_INFO");
    for (std::string_view rest = text; !rest.empty(); message.type = following) {
        std::fill(std::begin(message.data.data8), std::end(message.data.data8), 0);
        const auto count =
            rest.copy(reinterpret_cast<char*>(message.data.data8), sizeof message.data.data8);
        rest.remove_prefix(count);
        xcb_send_event(connection, 0, root, XCB_EVENT_MASK_PROPERTY_CHANGE,
                       reinterpret_cast<const char*>(&message));
    }
}

void endStartupWithoutWindow(const std::string& token)
{
    if (token.empty() || qEnvironmentVariableIsEmpty("DISPLAY"))
        return;
    int screenNumber = 0;
    const x11::Connection connection(xcb_connect(nullptr, &screenNumber));
    if (xcb_connection_has_error(connection.get()) != 0)
        return;
    // The message must name a window of the sender; it need not be mapped.
    const std::uint32_t root = x11::rootWindow(connection.get(), screenNumber);
    const std::uint32_t window = xcb_generate_id(connection.get());
    xcb_create_window(connection.get(), XCB_COPY_FROM_PARENT, window, root, 0, 0, 1, 1, 0,
                      XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT, 0, nullptr);
    endStartup(connection.get(), window, root, token);
    // A round trip: once the server replies, it has processed all earlier requests.
    x11::owned(xcb_get_input_focus_reply(connection.get(), xcb_get_input_focus(connection.get()),
                                         nullptr));
}

} // namespace quillbox
