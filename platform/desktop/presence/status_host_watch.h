#pragma once

#include "platform/status_host.h"

#include <chrono>
#include <memory>

namespace quillbox {

/// Watches for the two kinds of host in which Qt can show a status item: a panel that speaks the
/// StatusNotifierItem protocol on the session bus, and, on X, a system tray.
///
/// Qt chooses between the two once, when it creates its first item. So while the session bus has a
/// StatusNotifierWatcher, a tray alone does not count as available until no panel has registered
/// with the watcher for as long as `patience`.
///
/// On the main thread, after the application object has been constructed.
std::unique_ptr<StatusHost>
makeStatusHostWatch(std::chrono::milliseconds patience = std::chrono::seconds(10));

} // namespace quillbox
