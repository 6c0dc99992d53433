#pragma once

#include "platform/window_presence.h"

#include <memory>

struct xcb_connection_t;

namespace quillbox {

/// The implementation for the platform that Qt uses: X or Wayland. Without a display it does
/// nothing but show the window.
///
/// On the main thread, after the application object has been constructed.
std::unique_ptr<WindowPresence> makeWindowPresence();

/// Talks to the window manager (Extended Window Manager Hints of freedesktop.org) over Qt's
/// connection, so that these requests and those of Qt arrive in order.
std::unique_ptr<WindowPresence> makeX11Presence(xcb_connection_t* toolkitConnection);

/// Wayland tells a client neither where its windows are nor whether they are minimised, and leaves
/// taskbars to the compositor. A window comes to the front with an activation token (XDG Activation
/// Protocol), or by being hidden and shown again.
std::unique_ptr<WindowPresence> makeWaylandPresence();

} // namespace quillbox
