#include "platform/tcp/reset_watch.h"

#include <array>
#include <cerrno>
#include <iostream>
#include <utility>

#include <asio/bind_executor.hpp>
#include <asio/post.hpp>
#include <sys/epoll.h>

namespace quillbox {

ResetWatch::ResetWatch(std::shared_ptr<PoolContext> context)
    : context_(std::move(context)), strand_(context_->makeStrand()), epoll_(*context_)
{
}

void ResetWatch::open()
{
    std::error_code error;
    const int descriptor = ::epoll_create1(EPOLL_CLOEXEC);
    if (descriptor < 0)
        error.assign(errno, std::system_category());
    else
        epoll_.assign(descriptor, error);
    if (error) {
        std::cerr << "quillbox-helper: idle connections cannot be watched: " << error.message()
                  << '\n';
        return;
    }
    epollDescriptor_ = descriptor;
    asio::post(strand_, [self = shared_from_this()] { self->wait(); });
}

void ResetWatch::close()
{
    // The descriptor itself goes with the last owner: a socket may still be removed from it.
    asio::post(strand_, [self = shared_from_this()] {
        std::error_code ignored;
        self->epoll_.cancel(ignored);
    });
}

ResetWatch::Id ResetWatch::add(int socket, std::function<void()> failed)
{
    Id id = 0;
    {
        const std::lock_guard lock(mutex_);
        id = ++lastId_;
        handlers_.emplace(id, std::move(failed));
    }
    // Errors and hang-ups are always told; nothing else is asked for.
    epoll_event event{};
    event.events = EPOLLET;
    event.data.u64 = id;
    ::epoll_ctl(epollDescriptor_, EPOLL_CTL_ADD, socket, &event);
    return id;
}

void ResetWatch::remove(Id id, int socket)
{
    epoll_event unused{};
    ::epoll_ctl(epollDescriptor_, EPOLL_CTL_DEL, socket, &unused);
    std::function<void()> dropped;
    const std::lock_guard lock(mutex_);
    if (const auto entry = handlers_.find(id); entry != handlers_.end()) {
        dropped = std::move(entry->second);
        handlers_.erase(entry);
    }
}

void ResetWatch::wait()
{
    epoll_.async_wait(
        asio::posix::stream_descriptor::wait_read,
        asio::bind_executor(strand_, [self = shared_from_this()](const std::error_code& error) {
            if (error)
                return;
            self->collect();
            self->wait();
        }));
}

void ResetWatch::collect()
{
    std::array<epoll_event, 64> events;
    int count = 0;
    while ((count = ::epoll_wait(epollDescriptor_, events.data(), events.size(), 0)) > 0) {
        for (std::size_t index = 0; index < static_cast<std::size_t>(count); ++index) {
            std::function<void()> failed;
            {
                const std::lock_guard lock(mutex_);
                const auto entry = handlers_.find(events[index].data.u64);
                if (entry == handlers_.end())
                    continue;
                failed = std::move(entry->second);
                handlers_.erase(entry);
            }
            failed();
        }
    }
}

} // namespace quillbox
