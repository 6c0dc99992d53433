#pragma once

#include "platform/dnssd/engine/engine_mailbox.h"

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>

namespace quillbox::dnssd {

/// The thread of an engine. It shares nothing but the mailbox with the rest of the process, so that
/// it can be detached when it hangs in a call (libdbus waits 25 s for an answer).
template <class Item> class EngineThread final {
public:
    using Mailbox = EngineMailbox<Item>;

    EngineThread() = default;
    EngineThread(const EngineThread&) = delete;
    EngineThread& operator=(const EngineThread&) = delete;
    ~EngineThread() { stop(); }

    /// `body` must return when it sees the stop request, and must own everything that it uses.
    void start(Engine::EventHandler handler, std::function<void(Mailbox&)> body)
    {
        shared = std::make_shared<Shared>(std::move(handler));
        thread = std::thread([state = shared, run = std::move(body)]() mutable {
            run(state->mailbox);
            run = nullptr;
            const std::lock_guard lock(state->mutex);
            state->isDone = true;
            state->done.notify_all();
        });
    }

    void post(Item item)
    {
        if (shared)
            shared->mailbox.post(std::move(item));
    }

    /// Returns when the body has returned, or after half a second. Must not be called in the event
    /// handler.
    void stop()
    {
        if (!thread.joinable())
            return;
        shared->mailbox.requestStop();
        std::unique_lock lock(shared->mutex);
        const bool isDone = shared->done.wait_for(lock, std::chrono::milliseconds(500),
                                                  [this] { return shared->isDone; });
        lock.unlock();
        shared->mailbox.shut();
        if (isDone)
            thread.join();
        else
            thread.detach();
    }

private:
    struct Shared {
        explicit Shared(Engine::EventHandler handler) : mailbox(std::move(handler)) {}

        Mailbox mailbox;
        std::mutex mutex;
        std::condition_variable done;
        bool isDone = false;
    };

    std::shared_ptr<Shared> shared;
    std::thread thread;
};

} // namespace quillbox::dnssd
