#pragma once

#include "platform/window_presence.h"

#include <memory>

namespace quillbox {

/// The implementation for the platform that Qt uses: X or Wayland. Without a display it does
/// nothing but show the window.
///
/// On the main thread, after the application object has been constructed.
std::unique_ptr<WindowPresence> makeWindowPresence();

} // namespace quillbox
