#pragma once

#include "platform/x11/x11.h"
#include "tests/platform/desktop/qt_support.h"

#include <QProcess>
#include <cstdint>

#include <gtest/gtest.h>
#include <xcb/xcb.h>

namespace quillbox {

/// An X server without a screen to look at, which DISPLAY names until this is destroyed.
class XServer final {
public:
    XServer()
    {
        process.setStandardErrorFile(QProcess::nullDevice());
        process.start(QStringLiteral("Xvfb"),
                      {QStringLiteral("-displayfd"), QStringLiteral("1"), QStringLiteral("-screen"),
                       QStringLiteral("0"), QStringLiteral("64x64x24"), QStringLiteral("-nolisten"),
                       QStringLiteral("tcp"), QStringLiteral("-noreset")});
        while (!process.canReadLine() && process.waitForReadyRead(10'000)) {
        }
        EXPECT_TRUE(process.canReadLine()) << "no X server";
        environment.set("DISPLAY", ':' + process.readLine().trimmed());
    }
    XServer(const XServer&) = delete;
    XServer& operator=(const XServer&) = delete;
    ~XServer()
    {
        end();
        process.waitForFinished();
    }

    void end() { process.kill(); }

private:
    QProcess process;
    Environment environment;
};

/// Owns the system tray selection of screen 0 until it is destroyed.
class TrayManager final {
public:
    TrayManager() : connection(xcb_connect(nullptr, nullptr))
    {
        const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(connection)).data;
        window = xcb_generate_id(connection);
        xcb_create_window(connection, XCB_COPY_FROM_PARENT, window, screen->root, 0, 0, 1, 1, 0,
                          XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT, 0, nullptr);
        const xcb_atom_t selection = x11::atom(connection, "_NET_SYSTEM_TRAY_S0");
        xcb_set_selection_owner(connection, window, selection, XCB_CURRENT_TIME);
        xcb_client_message_event_t message{};
        message.response_type = XCB_CLIENT_MESSAGE;
        message.format = 32;
        message.window = screen->root;
        message.type = x11::atom(connection, "MANAGER");
        message.data.data32[1] = selection;
        message.data.data32[2] = window;
        xcb_send_event(connection, 0, screen->root, XCB_EVENT_MASK_STRUCTURE_NOTIFY,
                       reinterpret_cast<const char*>(&message));
        x11::atom(connection, "the server has got this far");
    }
    TrayManager(const TrayManager&) = delete;
    TrayManager& operator=(const TrayManager&) = delete;
    ~TrayManager() { xcb_disconnect(connection); }

private:
    xcb_connection_t* const connection;
    xcb_window_t window = XCB_WINDOW_NONE;
};

} // namespace quillbox
