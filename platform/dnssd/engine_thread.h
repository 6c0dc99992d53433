#pragma once

#include "platform/dnssd/engine.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include <sys/eventfd.h>
#include <unistd.h>

namespace quillbox::dnssd {

/// What an engine's thread and the rest of the process share: things posted to the thread, and the
/// way out for events. The thread waits on `descriptor()`, which is readable while something is
/// there to take.
template <class Item> class EngineMailbox final {
public:
    struct Taken {
        std::vector<Item> items;
        bool isStopping = false;
    };

    explicit EngineMailbox(Engine::EventHandler theHandler)
        : handler(std::move(theHandler)), eventDescriptor(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
    {
    }
    EngineMailbox(const EngineMailbox&) = delete;
    EngineMailbox& operator=(const EngineMailbox&) = delete;
    ~EngineMailbox() { ::close(eventDescriptor); }

    // From any thread.

    void post(Item item)
    {
        const std::lock_guard lock(mutex);
        items.push_back(std::move(item));
        wake();
    }

    void requestStop()
    {
        const std::lock_guard lock(mutex);
        isStopping = true;
        wake();
    }

    /// After it no event is handed out, and none is being handed out.
    void shut()
    {
        const std::lock_guard lock(handlerMutex);
        handler = nullptr;
    }

    // From the engine's thread.

    int descriptor() const { return eventDescriptor; }

    Taken take()
    {
        const std::lock_guard lock(mutex);
        std::uint64_t count = 0;
        static_cast<void>(::read(eventDescriptor, &count, sizeof count) == sizeof count);
        return {std::exchange(items, {}), isStopping};
    }

    void emit(Event event)
    {
        const std::lock_guard lock(handlerMutex);
        if (handler)
            handler(std::move(event));
    }

private:
    void wake()
    {
        const std::uint64_t one = 1;
        static_cast<void>(::write(eventDescriptor, &one, sizeof one) == sizeof one);
    }

    std::mutex handlerMutex;
    Engine::EventHandler handler;
    std::mutex mutex;
    std::vector<Item> items;
    bool isStopping = false;
    int eventDescriptor;
};

/// The thread of an engine. It shares nothing but the mailbox with the rest of the process, so that
/// one that hangs in a call (libdbus waits 25 s for an answer) can be left behind.
template <class Item> class EngineThread final {
public:
    using Mailbox = EngineMailbox<Item>;

    EngineThread() = default;
    EngineThread(const EngineThread&) = delete;
    EngineThread& operator=(const EngineThread&) = delete;
    ~EngineThread() { stop(); }

    /// `body` runs until it has seen that it is to stop, and owns all that it works with.
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

    /// Returns when the body has ended, or after half a second. Not from the event handler.
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
