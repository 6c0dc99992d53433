#pragma once

#include "platform/status_host.h"

#include <chrono>
#include <memory>

namespace quillbox {

/// Watches for the two kinds of place that the toolkit can show a status item in: a panel that
/// speaks the status notifier protocol on the session bus, and, on X, a system tray.
///
/// The toolkit chooses between the two once, at its first item. So a tray alone does not count as
/// available while the desktop has a registry of notifier items, unless no panel joins it within
/// `patience`.
///
/// On the main thread, once the application object exists.
std::unique_ptr<StatusHost>
makeStatusHostWatch(std::chrono::milliseconds patience = std::chrono::seconds(10));

} // namespace quillbox
