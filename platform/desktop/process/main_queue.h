#pragma once

#include "platform/dispatch_queue.h"

#include <memory>

namespace quillbox {

/// The serial queue of the Qt event loop. It runs one closure per event, so that input and
/// paint events are handled in between. While a closure runs a nested event loop, the other
/// closures wait until it returns.
class MainQueue {
public:
    /// Shuts the queue down: pending closures, and those submitted later, are destroyed without
    /// running. On the main thread.
    virtual ~MainQueue() = default;

    virtual std::shared_ptr<DispatchQueue> queue() = 0;
};

/// On the main thread, after the application object has been constructed, which must outlive it.
std::unique_ptr<MainQueue> makeMainQueue();

} // namespace quillbox
