#pragma once

#include "platform/dispatch_queue.h"
#include "platform/values/content.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <system_error>

namespace quillbox {

/// The maximum number of bytes that one receive returns.
inline constexpr std::size_t kMaximumContentSize = std::size_t{1024} * 1024;

/// A TCP connection, incoming or outgoing.
///
/// Every handler and completion runs on the queue that the connection was started on, never inside
/// the call that installed it. All functions except `setStateUpdateHandler` are called on that
/// queue.
///
/// `cancel` calls each pending completion with an error and then reports `Cancelled`, the last
/// report. Bytes that were passed to `send` are still delivered, followed by the end of the stream,
/// or by a reset (see `TcpParameters::client`); what the peer sends meanwhile is discarded.
///
/// Destroying the last reference cancels the connection, without a report.
class Connection {
public:
    enum class State {
        Setup,
        Preparing, ///< resolving, connecting
        Waiting,   ///< no usable path at present; the backend retries by itself
        Ready,
        Failed, ///< permanently
        Cancelled,
    };

    /// The error is set in `Waiting` and `Failed`.
    using StateUpdateHandler = std::function<void(State, std::error_code)>;

    /// The received bytes, possibly none; whether the peer's stream ends after them; an error.
    using ReceiveCompletion =
        std::function<void(Content content, bool isComplete, std::error_code error)>;

    using SendCompletion = std::function<void(std::error_code error)>;

    virtual ~Connection() = default;

    /// Called before `start`.
    virtual void setStateUpdateHandler(StateUpdateHandler handler) = 0;

    /// Called once. The queue comes from the same backend as the connection.
    virtual void start(std::shared_ptr<DispatchQueue> queue) = 0;

    /// Waits for at least `minimum` bytes (1 or more) and returns at most `maximum` (capped at
    /// `kMaximumContentSize`). One receive at a time.
    virtual void receive(std::size_t minimum, std::size_t maximum,
                         ReceiveCompletion completion) = 0;

    /// Takes ownership of the content; completes when all of it is in the kernel's send buffer. One
    /// send at a time.
    virtual void send(Content content, SendCompletion completion) = 0;

    /// Idempotent.
    virtual void cancel() = 0;
};

} // namespace quillbox
