#pragma once

#include "platform/dispatch/closure.h"
#include "platform/dispatch_queue.h"

#include <cstdint>
#include <memory>
#include <system_error>

namespace quillbox {

class LoopQueue;

/// A non-blocking file descriptor that an event loop watches; closed on destruction. Created, used
/// and destroyed on its queue, or after the pool was shut down.
///
/// It is registered with epoll once, edge-triggered; waiting for it then takes no system call.
/// Re-arming epoll for each wait, as general-purpose libraries do, takes as long as reading a small
/// message, and even a short session waits a dozen times. So wait only after a call has returned
/// EAGAIN, since data that was there before is not reported again. For reads, a short count is
/// enough.
class FdWatcher final {
public:
    enum class For : std::uint8_t { Reading, ReadingAndWriting };
    using Handler = Closure<16, std::error_code>;

    /// Takes ownership of the descriptor. If it cannot be watched, closes it, sets `error` and
    /// returns null. The queue was made by a `DispatchPool`. `held` is released once the descriptor
    /// is closed.
    static std::unique_ptr<FdWatcher> adopt(const std::shared_ptr<DispatchQueue>& queue,
                                            int descriptor, For what, std::error_code& error,
                                            std::shared_ptr<void> held = nullptr);

    ~FdWatcher();

    FdWatcher(const FdWatcher&) = delete;
    FdWatcher& operator=(const FdWatcher&) = delete;

    int descriptor() const { return descriptor_; }

    /// Calls `handler` with an error code on the queue, never inside this call, once the descriptor
    /// is readable, which includes end of stream and errors. One wait at a time.
    void waitReadable(Handler handler);

    /// The same for buffer space to write.
    void waitWritable(Handler handler);

    /// The same for a failure, which is reported even while nobody reads or writes, and immediately
    /// if it has already happened: of a connection, a reset by the peer, a keep-alive timeout, or
    /// the end of both directions.
    void waitForFailure(Handler handler);

    /// Whether epoll has reported a failure. If not, a connecting socket that is writable is
    /// connected, and SO_ERROR need not be read.
    bool hasFailed() const { return hasFailed_; }

    /// Ends waits for reading and writing with `operation_canceled`; a wait for failure ends
    /// without a call.
    void cancelWaits();

private:
    friend class EventLoop;

    FdWatcher(std::shared_ptr<LoopQueue> queue, int descriptor, For what,
              std::shared_ptr<void> held);

    void post(Handler handler, std::error_code error);
    void handleEvents(std::uint32_t events);

    const std::shared_ptr<void> held_;
    const std::shared_ptr<LoopQueue> queue_;
    const int descriptor_;
    For what_;
    std::uint64_t id_ = 0; ///< 0 if it could not be registered
    Handler reader_;
    Handler writer_;
    Handler failureHandler_;
    /// How many waits for reading complete immediately: an event arrived while nobody was waiting,
    /// or it takes more than one read.
    int readsDue_ = 0;
    bool hasFailed_ = false;
    bool* isGone_ = nullptr; ///< set by the destructor while events are handled
};

} // namespace quillbox
