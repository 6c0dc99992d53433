#pragma once

#include "platform/window_presence.h"

#include <memory>

struct xcb_connection_t;

namespace quillbox {

/// The implementation for the platform that Qt uses: X or Wayland. Without a display it shows the
/// window, which nobody sees.
///
/// On the main thread, after the application object has been constructed.
std::unique_ptr<WindowPresence> makeWindowPresence();

/// Talks to the window manager (Extended Window Manager Hints of freedesktop.org) over Qt's
/// connection, so that these requests and those of Qt arrive in order.
std::unique_ptr<WindowPresence> makeX11Presence(xcb_connection_t* toolkitConnection);

} // namespace quillbox
