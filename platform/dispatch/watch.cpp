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
    // This takes it out of epoll as well; what a child process that is about to start another
    // program still has of it is no longer known here.
    ::close(descriptor_);
    cancelWaits();
}

void Watch::waitForReading(Waiter waiter)
{
    if (context_->isShutDown())
        return;
    // Nobody is called inside the call.
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
    // Most sockets never have to wait for room, and would be told of it all the same. This tells
    // what is so already, too.
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
