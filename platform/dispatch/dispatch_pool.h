#pragma once

#include "platform/dispatch_queue.h"

#include <memory>
#include <string>
#include <thread>

namespace quillbox {

class EventLoop;

/// Runs serial queues, and the I/O of the backends that use them, on two threads: one for work that
/// the user waits for, one for the rest, so that a flood of DNS-SD names does not delay relayed
/// data. One thread each is enough: copying is faster than any network. The threads sleep while
/// idle.
///
/// Thread-safe, except for `shutdown`. Queues may outlive the pool, but then do nothing.
class DispatchPool final {
public:
    DispatchPool();
    ~DispatchPool();

    DispatchPool(const DispatchPool&) = delete;
    DispatchPool& operator=(const DispatchPool&) = delete;

    std::shared_ptr<DispatchQueue> makeQueue(std::string label, QualityOfService qos);

    /// Waits for the closures that are running, ends the threads and destroys all pending closures
    /// on the calling thread, without running them. Objects that those closures refer to must still
    /// exist. Called by the owner, not on a queue of this pool. Idempotent.
    void shutdown();

private:
    const std::shared_ptr<EventLoop> urgent_;
    const std::shared_ptr<EventLoop> other_;
    std::thread urgentThread_;
    std::thread otherThread_;
};

} // namespace quillbox
