#pragma once

#include "platform/window_presence.h"

#include <memory>

struct xcb_connection_t;

namespace quillbox {

/// Speaks to the window manager (Extended Window Manager Hints of freedesktop.org) over the
/// toolkit's connection, so that what is said of a window and what the toolkit does with it arrive
/// in order.
std::unique_ptr<WindowPresence> makeX11Presence(xcb_connection_t* toolkitConnection);

} // namespace quillbox
