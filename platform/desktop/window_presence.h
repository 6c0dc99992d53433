#pragma once

#include "platform/window_presence.h"

#include <memory>

namespace quillbox {

/// The presence of windows on the desktop that the toolkit shows them on: X or Wayland. Where there
/// is no display, there is nothing to do.
///
/// On the main thread, once the application object exists.
std::unique_ptr<WindowPresence> makeWindowPresence();

} // namespace quillbox
