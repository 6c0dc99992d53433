#pragma once

#include "platform/dispatch_queue.h"

#include <memory>

namespace quillbox {

/// The serial queue of the Qt event loop: one closure a turn of the loop, so that clicks and
/// redraws are served in between. A closure that runs an event loop of its own holds the others up
/// until it returns.
class MainQueue {
public:
    /// Shuts the queue down: what is pending is destroyed without running, and so is what is handed
    /// over later. On the main thread.
    virtual ~MainQueue() = default;

    virtual std::shared_ptr<DispatchQueue> queue() = 0;
};

/// On the main thread, once the application object exists, which outlives it.
std::unique_ptr<MainQueue> makeMainQueue();

} // namespace quillbox
