#pragma once

#include "platform/dispatch_queue.h"

#include <memory>
#include <string>

namespace quillbox {

class PoolContext;

/// Runs the serial queues made here, and the input and output of the backends that use them, on two
/// threads: one for what the user waits for, one for the rest, so that a network full of names
/// holds no byte up. One thread each is enough: it copies faster than networks carry. They sleep
/// while there is nothing to do.
///
/// Thread-safe, but for `shutdown`. What the pool made may outlive it; it does nothing any more.
class DispatchPool final {
public:
    DispatchPool();
    ~DispatchPool();

    DispatchPool(const DispatchPool&) = delete;
    DispatchPool& operator=(const DispatchPool&) = delete;

    std::shared_ptr<DispatchQueue> makeQueue(std::string label, QualityOfService qos);

    /// Waits for the closures that run at this moment, ends the threads and destroys all pending
    /// closures, here and without running them. What those closures refer to must still exist.
    /// Called by the owner, not on a queue of this pool. Idempotent.
    void shutdown();

    /// The loop of the queues of that quality, for backends; declared in `strand_queue.h`.
    const std::shared_ptr<PoolContext>& context(QualityOfService qos) const;

private:
    class Loop;

    const std::unique_ptr<Loop> urgent_;
    const std::unique_ptr<Loop> other_;
};

} // namespace quillbox
