#pragma once

#include "platform/dispatch_queue.h"
#include "platform/dnssd/engine/automatic_engine.h"
#include "platform/log.h"
#include "platform/network.h"
#include "platform/network_view.h"
#include "platform/service_locator.h"
#include "platform/values/reach.h"

#include <memory>

namespace quillbox {

/// The queues and the network of this computer, combined from the Linux backends.
///
/// Cheap to construct: it does not watch the network, send packets or start processes until
/// `network()` or `serviceLocator()` is used.
class LinuxPlatform final {
public:
    /// `reach` limits from where listeners can be reached and where they are advertised. `log` must
    /// outlive the platform.
    LinuxPlatform(std::shared_ptr<DispatchQueue> mainQueue, dnssd::DnsSdMode mode, Reach reach,
                  Log& log);

    /// Shuts down.
    ~LinuxPlatform();

    LinuxPlatform(const LinuxPlatform&) = delete;
    LinuxPlatform& operator=(const LinuxPlatform&) = delete;

    Dispatch& dispatch();
    Network& network();

    /// Known only once `network()` is used, and in automatic mode.
    NetworkView& networkView();

    /// Completes on the main queue; never after `shutDown`.
    ServiceLocator& serviceLocator();

    /// Called when everything has been cancelled and the objects made by `network()` have been
    /// destroyed: sends the connections' pending data and withdraws what is advertised, each within
    /// half a second. Idempotent. Objects that outlive it do nothing any more.
    void shutDown();

private:
    class Queues;
    class DaemonView;
    class LazyNetwork;
    class LazyLocator;

    const std::unique_ptr<Queues> queues_;
    const std::shared_ptr<DaemonView> view_;
    const std::unique_ptr<LazyNetwork> network_;
    const std::unique_ptr<LazyLocator> locator_;
};

} // namespace quillbox
