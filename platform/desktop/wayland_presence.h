#pragma once

#include "platform/window_presence.h"

#include <memory>

namespace quillbox {

/// Wayland tells a program neither where its windows are nor whether they are minimised, and leaves
/// taskbars to the compositor. A window comes forward by a permission (XDG Activation Protocol), or
/// by being a new one.
std::unique_ptr<WindowPresence> makeWaylandPresence();

} // namespace quillbox
