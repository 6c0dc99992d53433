#pragma once

#include "platform/desktop/settings/autostart_entry.h"

#include <QDBusConnection>
#include <chrono>

namespace quillbox {

/// Turns the start at login of this Flatpak on or off, without its window, through the desktop's
/// Background portal (org.freedesktop.portal.Background, XDG Desktop Portal documentation). The
/// portal may ask the user, so this blocks in an event loop until the answer is there, for at most
/// `limit`, after which it withdraws the request. An application object must exist.
AutostartResult requestAutostart(Autostart wanted, QDBusConnection bus,
                                 std::chrono::milliseconds limit = std::chrono::minutes(2));

} // namespace quillbox
