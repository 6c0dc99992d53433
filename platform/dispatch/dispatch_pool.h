#pragma once

#include "platform/dispatch_queue.h"

#include <memory>
#include <string>

namespace quillbox {

class PoolContext;

/// Two threads that run the serial queues made here, and the input and output of the backends that
/// use them. They sleep while there is nothing to do.
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

    /// For the backends that share the threads; declared in `strand_queue.h`.
    const std::shared_ptr<PoolContext>& context() const { return context_; }

private:
    class Threads;

    const std::shared_ptr<PoolContext> context_;
    std::unique_ptr<Threads> threads_;
};

} // namespace quillbox
