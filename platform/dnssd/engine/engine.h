#pragma once

#include "platform/dnssd/engine/messages.h"

#include <functional>

namespace quillbox::dnssd {

/// Speaks multicast DNS (RFC 6762) on behalf of this process: answers the requests of `messages.h`
/// with their events. It may go down (EngineDown) and come back up (EngineUp) at any time.
///
/// Used on one serial queue, where the handler runs as well, never inside a call of the engine. An
/// engine may be stopped and destroyed on another thread once that queue has been shut down.
class Engine {
public:
    using EventHandler = std::function<void(const Event&)>;

    virtual ~Engine() = default;

    /// The first event is EngineUp or EngineDown. The handler must not destroy the engine, but may
    /// stop it.
    virtual void start(EventHandler handler) = 0;

    /// Requests take effect in the order in which they are made. Those that are made while the
    /// engine is down are dropped.
    virtual void send(const Request& request) = 0;

    /// Withdraws everything published, sending goodbyes. Blocks until that is done, half a second
    /// at the most. The handler is not called any more. Idempotent; the engine may be started
    /// again.
    virtual void stop() = 0;
};

} // namespace quillbox::dnssd
