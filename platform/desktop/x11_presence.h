#pragma once

#include "platform/window_presence.h"

#include <memory>

struct xcb_connection_t;

namespace quillbox {

/// Talks to the window manager (Extended Window Manager Hints of freedesktop.org) over Qt's
/// connection, so that these requests and those of Qt arrive in order.
std::unique_ptr<WindowPresence> makeX11Presence(xcb_connection_t* toolkitConnection);

} // namespace quillbox
