#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <utility>
#include <vector>

namespace quillbox {

/// Counts the open sockets of connections. Thread-safe.
class SocketLedger final {
public:
    void noteOpened()
    {
        const std::lock_guard lock(mutex_);
        ++open_;
    }

    void noteClosed()
    {
        std::vector<std::function<void()>> waiting;
        {
            const std::lock_guard lock(mutex_);
            --open_;
            waiting.swap(waiting_);
            closed_.notify_all();
        }
        for (const auto& each : waiting)
            each();
    }

    /// Calls `work` once, after the next socket has been closed, on the thread that closes it.
    void afterNextClose(std::function<void()> work)
    {
        const std::lock_guard lock(mutex_);
        waiting_.push_back(std::move(work));
    }

    bool waitUntilNoneIsOpen(std::chrono::milliseconds limit)
    {
        std::unique_lock lock(mutex_);
        return closed_.wait_for(lock, limit, [this] { return open_ == 0; });
    }

    std::size_t openCount() const
    {
        const std::lock_guard lock(mutex_);
        return open_;
    }

private:
    mutable std::mutex mutex_;
    std::condition_variable closed_;
    std::size_t open_ = 0;
    std::vector<std::function<void()>> waiting_;
};

} // namespace quillbox
