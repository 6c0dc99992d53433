#pragma once

#include "platform/content.h"
#include "platform/dispatch_queue.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <system_error>

namespace quillbox {

/// The greatest number of bytes that one receive may yield.
inline constexpr std::size_t kMaximumContentSize = std::size_t{1024} * 1024;

/// A TCP connection, accepted or to be opened.
///
/// Every handler and completion runs on the queue that the connection was started on, never inside
/// the call that installed it. All calls but the setter are made on that queue.
///
/// `cancel` ends each pending completion with an error and then gives one `Cancelled` report, the
/// last. It loses none of the bytes that were handed to `send`: they are still delivered, followed
/// by the end of the stream, while what the peer sends is discarded.
///
/// A connection that nobody holds any more is cancelled, without a report.
class Connection {
public:
    enum class State {
        Setup,
        Preparing, ///< resolving, connecting
        Waiting,   ///< no usable path at present; the backend tries again by itself
        Ready,
        Failed, ///< for good
        Cancelled,
    };

    /// The error is set in `Waiting` and `Failed`.
    using StateUpdateHandler = std::function<void(State, std::error_code)>;

    /// What arrived, possibly nothing; whether the peer has ended its side behind it; an error.
    using ReceiveCompletion =
        std::function<void(Content content, bool isComplete, std::error_code error)>;

    using SendCompletion = std::function<void(std::error_code error)>;

    virtual ~Connection() = default;

    /// Called before `start`.
    virtual void setStateUpdateHandler(StateUpdateHandler handler) = 0;

    /// Called once. The queue comes from the same backend as the connection.
    virtual void start(std::shared_ptr<DispatchQueue> queue) = 0;

    /// Waits for at least `minimum` (1 or more) and yields at most `maximum` bytes (capped at
    /// `kMaximumContentSize`). One receive at a time.
    virtual void receive(std::size_t minimum, std::size_t maximum,
                         ReceiveCompletion completion) = 0;

    /// Takes the content over; completes when all of it has been handed to the network's buffers.
    /// One send at a time.
    virtual void send(Content content, SendCompletion completion) = 0;

    /// Idempotent.
    virtual void cancel() = 0;
};

} // namespace quillbox
