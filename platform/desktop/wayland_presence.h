#pragma once

#include "platform/window_presence.h"

#include <memory>

namespace quillbox {

/// Wayland tells a client neither where its windows are nor whether they are minimised, and leaves
/// taskbars to the compositor. A window comes to the front with an activation token (XDG Activation
/// Protocol), or by being hidden and shown again.
std::unique_ptr<WindowPresence> makeWaylandPresence();

} // namespace quillbox
