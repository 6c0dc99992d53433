#pragma once

#include "platform/dispatch_queue.h"
#include "platform/dnssd/automatic_engine.h"
#include "platform/log.h"
#include "platform/network.h"
#include "platform/reach.h"
#include "platform/service_locator.h"

#include <memory>

namespace quillbox {

/// Queues and network of this computer: the backends of Linux, put together.
///
/// Cheap to make: the network is not watched, no packet is sent and no process is started before
/// something is asked of `network()`.
class LinuxPlatform final {
public:
    /// What is offered can be reached, and is advertised, as far as `reach` says. The log outlives
    /// the platform.
    LinuxPlatform(std::shared_ptr<DispatchQueue> mainQueue, dnssd::DnsSdMode mode, Reach reach,
                  Log& log);

    /// Shuts down.
    ~LinuxPlatform();

    LinuxPlatform(const LinuxPlatform&) = delete;
    LinuxPlatform& operator=(const LinuxPlatform&) = delete;

    Dispatch& dispatch();
    Network& network();

    /// Tells on the main queue; nothing any more after the end.
    ServiceLocator& serviceLocator();

    /// The end, once everything has been cancelled and what `network()` made has been dropped:
    /// delivers what the connections still have to send, and withdraws what is advertised, each
    /// within half a second. Idempotent. What was made may outlive it, but is dead.
    void shutDown();

private:
    class Queues;
    class LazyNetwork;
    class LazyLocator;

    const std::unique_ptr<Queues> queues_;
    const std::unique_ptr<LazyNetwork> network_;
    const std::unique_ptr<LazyLocator> locator_;
};

} // namespace quillbox
