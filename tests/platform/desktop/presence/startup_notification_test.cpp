#include "platform/desktop/presence/startup_notification.h"
#include "tests/platform/desktop/x_server.h"

#include <string>

#include <gtest/gtest.h>
#include <xcb/xcb.h>

namespace quillbox {

namespace {

TEST(StartupNotification, endsForTheTokenAsItIsQuotedInTheProtocol)
{
    const XServer server;
    const x11::Connection desktop(xcb_connect(nullptr, nullptr));
    const std::uint32_t events = XCB_EVENT_MASK_PROPERTY_CHANGE;
    xcb_change_window_attributes(desktop.get(), x11::rootWindow(desktop.get(), 0),
                                 XCB_CW_EVENT_MASK, &events);
    const auto begin = x11::atom(desktop.get(), "_NET_STARTUP_INFO_BEGIN");

    endStartupWithoutWindow(R"(launcher/a"b\c_TIME7)");
    x11::atom(desktop.get(), "round trip");
    std::string text;
    while (const auto event = x11::owned(xcb_poll_for_event(desktop.get()))) {
        const auto& message = reinterpret_cast<const xcb_client_message_event_t&>(*event);
        if (event->response_type != (XCB_CLIENT_MESSAGE | 0x80))
            continue;
        EXPECT_EQ(message.type == begin, text.empty());
        text.append(reinterpret_cast<const char*>(message.data.data8), sizeof message.data.data8);
    }
    EXPECT_EQ(text.substr(0, text.find('\0')), R"(remove: ID="launcher/a\"b\\c_TIME7")");
    EXPECT_NE(text.find('\0'), std::string::npos);
}

TEST(StartupNotification, isNotEndedWithoutAToken)
{
    const XServer server;
    const x11::Connection desktop(xcb_connect(nullptr, nullptr));
    const std::uint32_t events = XCB_EVENT_MASK_PROPERTY_CHANGE;
    xcb_change_window_attributes(desktop.get(), x11::rootWindow(desktop.get(), 0),
                                 XCB_CW_EVENT_MASK, &events);
    x11::atom(desktop.get(), "round trip");
    endStartupWithoutWindow({});
    x11::atom(desktop.get(), "another");
    EXPECT_FALSE(x11::owned(xcb_poll_for_event(desktop.get())));
}

} // namespace

} // namespace quillbox
