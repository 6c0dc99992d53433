#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>

namespace quillbox {

/// How urgent a queue's work is for the user.
enum class QualityOfService { Unspecified, Utility, UserInitiated };

/// A serial queue of closures.
///
/// The contract of every backend:
///  - closures run first in, first out, and never two at once;
///  - a closure never runs inside the call that enqueued it, not even when called on the queue;
///  - a closure is destroyed on the queue, right after it ran;
///  - closures that are pending when the last reference to the queue is dropped still run; the last
///    reference may be dropped by one of the queue's own closures;
///  - closures that are pending when the backend is shut down are destroyed without running.
///
/// `async` and `asyncAfter` may be called from any thread.
class DispatchQueue {
public:
    using Work = std::function<void()>;

    virtual ~DispatchQueue() = default;

    /// Runs `work` on the queue after all work enqueued before it.
    virtual void async(Work work) = 0;

    /// Enqueues `work` after `delay` on the monotonic clock. It cannot be cancelled: capture weak
    /// references and check them.
    virtual void asyncAfter(std::chrono::milliseconds delay, Work work) = 0;

    /// Whether the calling code runs on this queue; for assertions.
    virtual bool isCurrent() const = 0;

    virtual const std::string& label() const = 0;
    virtual QualityOfService qualityOfService() const = 0;
};

/// Creates queues. The main queue belongs to the event loop and lives as long as the process.
class Dispatch {
public:
    virtual ~Dispatch() = default;

    virtual std::shared_ptr<DispatchQueue> makeQueue(std::string label, QualityOfService qos) = 0;
    virtual std::shared_ptr<DispatchQueue> mainQueue() = 0;
};

} // namespace quillbox
