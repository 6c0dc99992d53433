#include "platform/dispatch/watch.h"

#include <cerrno>

#include <sys/epoll.h>
#include <unistd.h>

namespace quillbox {

namespace {

std::uint32_t eventsFor(Watch::For what)
{
    return what == Watch::For::Reading ? EPOLLIN : EPOLLIN | EPOLLOUT;
}

void postTo(Waiter waiter, std::error_code error)
{
    waiter.strand.post([handler = std::move(waiter.handler), error]() mutable { handler(error); });
}

} // namespace

std::unique_ptr<Watch> Watch::adopt(std::shared_ptr<PoolContext> context, int descriptor, For what,
                                    std::error_code& error)
{
    error.clear();
    auto state = context->watch(descriptor, eventsFor(what));
    if (state)
        return std::unique_ptr<Watch>(
            new Watch(std::move(context), descriptor, what, std::move(state)));
    error.assign(errno, std::system_category());
    ::close(descriptor);
    return nullptr;
}

Watch::Watch(std::shared_ptr<PoolContext> context, int descriptor, For what,
             std::shared_ptr<WatchState> state)
    : context_(std::move(context)), descriptor_(descriptor), what_(what), state_(std::move(state))
{
}

Watch::~Watch()
{
    context_->forget(*state_);
    // Closing also removes the descriptor from epoll, unless a forked child that has not called
    // exec yet still has a copy; events for that copy are ignored, since the id is forgotten.
    ::close(descriptor_);
    cancelWaits();
}

void Watch::waitForReading(Waiter waiter)
{
    if (context_->isShutDown())
        return;
    // The handler never runs inside this call.
    if (state_->readsDue > 0) {
        --state_->readsDue;
        postTo(std::move(waiter), {});
    } else {
        state_->reader.emplace(std::move(waiter));
    }
}

void Watch::waitForWriting(Waiter waiter)
{
    if (context_->isShutDown())
        return;
    state_->writer.emplace(std::move(waiter));
    if (std::exchange(what_, For::ReadingAndWriting) == For::ReadingAndWriting)
        return;
    // EPOLLOUT is requested at the first wait only: most sockets never wait for buffer space, but
    // would still get the events. EPOLL_CTL_MOD also reports a socket that is already writable.
    if (!context_->changeWatch(*state_, descriptor_, eventsFor(what_)))
        postTo(std::exchange(state_->writer, std::nullopt).value(),
               {errno, std::system_category()});
}

void Watch::waitForFailing(Waiter waiter)
{
    if (context_->isShutDown())
        return;
    if (state_->hasFailed)
        postTo(std::move(waiter), {});
    else
        state_->failureWatcher.emplace(std::move(waiter));
}

void Watch::cancelWaits()
{
    const auto dropped = std::exchange(state_->failureWatcher, std::nullopt);
    for (auto* waiting : {&state_->reader, &state_->writer}) {
        if (auto waiter = std::exchange(*waiting, std::nullopt))
            postTo(std::move(*waiter), std::make_error_code(std::errc::operation_canceled));
    }
}

} // namespace quillbox
