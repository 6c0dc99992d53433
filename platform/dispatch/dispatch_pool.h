#pragma once

#include "platform/dispatch_queue.h"

#include <memory>
#include <string>

namespace quillbox {

class PoolContext;

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

    /// The event loop that runs queues of that quality of service, for backends, which include
    /// `strand_queue.h`.
    const std::shared_ptr<PoolContext>& context(QualityOfService qos) const;

private:
    class Loop;

    const std::unique_ptr<Loop> urgent_;
    const std::unique_ptr<Loop> other_;
};

} // namespace quillbox
