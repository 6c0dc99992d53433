#pragma once

#include "platform/dnssd/engine/engine.h"

#include <cstdint>
#include <mutex>
#include <utility>
#include <vector>

#include <sys/eventfd.h>
#include <unistd.h>

namespace quillbox::dnssd {

/// A request with the generation of the engine that it is for.
struct PostedRequest {
    Generation generation = 0;
    Request request;
};

/// Connects an engine's thread with the rest of the process: queues items for the thread, and holds
/// the handler for its events. The thread polls `descriptor()`, which is readable while items or a
/// stop request are pending.
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

    /// After it returns, the handler is not running and never runs again.
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

} // namespace quillbox::dnssd
