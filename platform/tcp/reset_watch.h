#pragma once

#include "platform/dispatch/strand_queue.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>

#include <asio/posix/stream_descriptor.hpp>

namespace quillbox {

/// Notices sockets that fail while nobody reads from or writes to them: a peer's reset, a
/// keep-alive that went unanswered, a connection that the administrator closed.
///
/// It has an epoll descriptor of its own, edge-triggered and for errors alone, so a socket under
/// watch costs nothing until it fails, however many bytes lie unread in it. The end of the stream
/// is no failure. Thread-safe.
class ResetWatch final : public std::enable_shared_from_this<ResetWatch> {
public:
    using Id = std::uint64_t;

    explicit ResetWatch(std::shared_ptr<PoolContext> context);

    /// Starts watching; called once, and `close` at the end.
    void open();
    void close();

    /// Calls `failed` at most once, on a thread of the pool, when the socket fails; at once when it
    /// has failed already.
    Id add(int socket, std::function<void()> failed);

    /// To be called before the socket is closed. A call that is under way may still come.
    void remove(Id id, int socket);

private:
    void wait();
    void collect();

    const std::shared_ptr<PoolContext> context_;
    const Strand strand_;
    asio::posix::stream_descriptor epoll_;
    int epollDescriptor_ = -1;
    std::mutex mutex_;
    Id lastId_ = 0;
    std::map<Id, std::function<void()>> handlers_;
};

} // namespace quillbox
