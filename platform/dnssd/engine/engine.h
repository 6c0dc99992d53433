#pragma once

#include "platform/dnssd/engine/messages.h"

#include <functional>
#include <memory>

namespace quillbox::dnssd {

/// Speaks multicast DNS (RFC 6762) on behalf of this process: answers the requests of `messages.h`
/// with their events. It may go down (EngineDown) and come back up (EngineUp) at any time. Requests
/// of an earlier generation are dropped, because callers repeat all active ones when it comes up:
/// otherwise one that crosses an EngineDown and the next EngineUp would be active twice.
class Engine {
public:
    /// Called on any thread, one call at a time.
    using EventHandler = std::function<void(Event)>;

    virtual ~Engine() = default;

    /// Called once. The first event is EngineUp or EngineDown. Never blocks.
    virtual void start(EventHandler handler) = 0;

    /// From any thread; never blocks. Requests take effect in the order in which they are made.
    /// `generation` is that of the last EngineUp that the caller has handled.
    virtual void send(Generation generation, Request request) = 0;

    /// Withdraws everything published, sending goodbyes, and stops. Blocks until that is done, half
    /// a second at the most. No handler runs after it. Idempotent.
    virtual void stop() = 0;
};

} // namespace quillbox::dnssd
