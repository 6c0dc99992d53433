#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>

namespace quillbox {

/// How urgent a queue's work is to the user.
enum class QualityOfService { Unspecified, Utility, UserInitiated };

/// A serial queue of closures.
///
/// The contract that every backend keeps:
///  - closures run first in, first out, and never two at once;
///  - a closure never runs inside the call that handed it over, not even from the queue itself;
///  - a closure is destroyed on the queue, right after it ran;
///  - closures that are pending when the last reference to the queue goes still run; the queue may
///    be dropped from one of its own closures;
///  - closures pending when the backend itself is shut down are destroyed without running.
///
/// `async` and `asyncAfter` may be called from any thread.
class DispatchQueue {
public:
    using Work = std::function<void()>;

    virtual ~DispatchQueue() = default;

    /// Runs `work` on the queue as soon as all work handed over before has run.
    virtual void async(Work work) = 0;

    /// Hands `work` to the queue once `delay` has passed on the monotonic clock. There is no way to
    /// take it back: capture weakly and check.
    virtual void asyncAfter(std::chrono::milliseconds delay, Work work) = 0;

    /// Whether the caller runs on this queue; for assertions.
    virtual bool isCurrent() const = 0;

    virtual const std::string& label() const = 0;
    virtual QualityOfService qualityOfService() const = 0;
};

/// Makes queues. The main queue is the event loop's and lives as long as the process.
class Dispatch {
public:
    virtual ~Dispatch() = default;

    virtual std::shared_ptr<DispatchQueue> makeQueue(std::string label, QualityOfService qos) = 0;
    virtual std::shared_ptr<DispatchQueue> mainQueue() = 0;
};

} // namespace quillbox
