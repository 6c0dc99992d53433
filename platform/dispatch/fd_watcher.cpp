#include "platform/dispatch/fd_watcher.h"

#include "platform/dispatch/loop_queue.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include <sys/epoll.h>
#include <unistd.h>

namespace quillbox {

namespace {

constexpr std::uint32_t kFailure = EPOLLHUP | EPOLLERR;

/// End of stream takes a read of its own after the data, even after a short read.
constexpr std::uint32_t kEnd = EPOLLRDHUP | kFailure;

std::uint32_t eventsFor(FdWatcher::For what)
{
    const std::uint32_t always = EPOLLIN | EPOLLRDHUP | EPOLLPRI | EPOLLET;
    return what == FdWatcher::For::Reading ? always : always | EPOLLOUT;
}

/// How many short reads it can take to drain the socket. A read stops at the urgent mark (RFC
/// 6093), so urgent data adds one, and the end of the stream adds another; edge-triggered epoll
/// reports neither again.
int readsFor(std::uint32_t events)
{
    return 1 + ((events & EPOLLPRI) != 0 ? 1 : 0) + ((events & kEnd) != 0 ? 1 : 0);
}

} // namespace

std::unique_ptr<FdWatcher> FdWatcher::adopt(const std::shared_ptr<DispatchQueue>& queue,
                                            int descriptor, For what, std::error_code& error,
                                            std::shared_ptr<void> held)
{
    std::unique_ptr<FdWatcher> made(
        new FdWatcher(LoopQueue::from(queue), descriptor, what, std::move(held)));
    error = made->id_ != 0 ? std::error_code() : std::error_code(errno, std::system_category());
    return error ? nullptr : std::move(made);
}

FdWatcher::FdWatcher(std::shared_ptr<LoopQueue> queue, int descriptor, For what,
                     std::shared_ptr<void> held)
    : held_(std::move(held)),
      queue_(std::move(queue)),
      descriptor_(descriptor),
      what_(what),
      id_(queue_->loop().addWatcher(*this, descriptor, eventsFor(what)))
{
}

FdWatcher::~FdWatcher()
{
    if (isGone_ != nullptr)
        *isGone_ = true;
    queue_->loop().removeWatcher(id_);
    // Closing also removes the descriptor from epoll, unless a forked child that has not called
    // exec yet still has a copy; events for that copy are ignored, since the id is forgotten.
    ::close(descriptor_);
    cancelWaits();
}

void FdWatcher::waitReadable(Handler handler)
{
    if (queue_->loop().isShutDown())
        return;
    if (readsDue_ > 0) {
        --readsDue_;
        post(std::move(handler), {});
    } else {
        reader_ = std::move(handler);
    }
}

void FdWatcher::waitWritable(Handler handler)
{
    if (queue_->loop().isShutDown())
        return;
    writer_ = std::move(handler);
    if (std::exchange(what_, For::ReadingAndWriting) == For::ReadingAndWriting)
        return;
    // EPOLLOUT is requested at the first wait only: most sockets never wait for buffer space, but
    // would still get the events. EPOLL_CTL_MOD also reports a socket that is already writable.
    if (!queue_->loop().changeWatcher(id_, descriptor_, eventsFor(what_)))
        post(writer_.take(), {errno, std::system_category()});
}

void FdWatcher::waitForFailure(Handler handler)
{
    if (queue_->loop().isShutDown())
        return;
    if (hasFailed_)
        post(std::move(handler), {});
    else
        failureHandler_ = std::move(handler);
}

void FdWatcher::post(Handler handler, std::error_code error)
{
    queue_->post([handler = std::move(handler), error]() mutable { handler(error); });
}

void FdWatcher::cancelWaits()
{
    const auto dropped = failureHandler_.take();
    for (auto* waiting : {&reader_, &writer_}) {
        if (auto handler = waiting->take())
            post(std::move(handler), std::make_error_code(std::errc::operation_canceled));
    }
}

/// Every handler called here may destroy the watcher or start another wait.
void FdWatcher::handleEvents(std::uint32_t events)
{
    bool isGone = false;
    isGone_ = &isGone;
    const auto queue = queue_;
    const auto tell = [&](Handler& waiting) {
        if (auto handler = waiting.take())
            queue->loop().runAs(queue->id(), std::move(handler), std::error_code());
    };
    const bool isFailure = (events & kFailure) != 0;
    hasFailed_ = hasFailed_ || isFailure;
    if ((events & (EPOLLIN | kEnd)) != 0) {
        readsDue_ = std::max(readsDue_, readsFor(events) - (reader_ ? 1 : 0));
        tell(reader_);
    }
    if (!isGone && ((events & EPOLLOUT) != 0 || isFailure))
        tell(writer_);
    if (!isGone && isFailure)
        tell(failureHandler_);
    if (!isGone)
        isGone_ = nullptr;
}

} // namespace quillbox
