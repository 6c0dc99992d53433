#pragma once

#include "platform/dispatch/dispatch_pool.h"
#include "platform/dispatch_queue.h"
#include "platform/dnssd/engine/automatic_engine.h"
#include "platform/log.h"
#include "platform/network.h"
#include "platform/network_view.h"
#include "platform/service_locator.h"
#include "platform/values/reach.h"

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <system_error>
#include <utility>

namespace quillbox {

/// The queues and the network of this computer, combined from the Linux backends.
///
/// Cheap to construct: it does not watch the network, send packets or start processes until it is
/// used as a Network or ServiceLocator. A second instance of the program exits when it finds the
/// first one, and must not touch the network before that.
///
/// The locator completes on the main queue; never after shutDown(). The view is known only once the
/// network is used, and in automatic mode.
class LinuxPlatform final : public Dispatch,
                            public Network,
                            public NetworkView,
                            public ServiceLocator {
public:
    /// `reach` limits from where listeners can be reached and where they are advertised. `log` must
    /// outlive the platform.
    LinuxPlatform(std::shared_ptr<DispatchQueue> mainQueue, DnsSdMode mode, Reach reach, Log& log);

    /// Shuts down.
    ~LinuxPlatform() override;

    LinuxPlatform(const LinuxPlatform&) = delete;
    LinuxPlatform& operator=(const LinuxPlatform&) = delete;

    /// Called when everything has been cancelled and the objects made by the network have been
    /// destroyed: sends the connections' pending data and withdraws what is advertised, each within
    /// half a second. Idempotent. Objects that outlive it do nothing any more.
    void shutDown();

    std::shared_ptr<DispatchQueue> makeQueue(std::string label, QualityOfService qos) override;
    std::shared_ptr<DispatchQueue> mainQueue() override { return ownMainQueue; }

    std::shared_ptr<Listener> makeListener(const TcpParameters& parameters, std::uint16_t port,
                                           std::error_code& error) override;
    std::shared_ptr<Connection> makeConnection(const Endpoint& endpoint,
                                               const TcpParameters& parameters) override;
    std::shared_ptr<Browser> makeBrowser(std::string type,
                                         const TcpParameters& parameters) override;
    std::unique_ptr<NetService> makeNetService(const ServiceEndpoint& service) override;
    TrafficReport traffic() const override;

    void locate(const std::string& instanceName, Completion completion) override;

    bool isAvailable() const override { return *isDaemonUp; }
    void setChangedHandler(std::function<void()> handler) override { changed = std::move(handler); }

private:
    struct Backends;

    Backends& backends() const;
    std::function<void(bool)> daemonChanged() const;

    mutable DispatchPool pool;
    const std::shared_ptr<DispatchQueue> ownMainQueue;
    const DnsSdMode mode;
    const Reach reach;
    Log& log;
    bool isShutDown = false; ///< used on the main thread only
    mutable std::once_flag once;
    mutable std::unique_ptr<Backends> made;
    std::function<void()> changed;
    /// Whether the DNS-SD engine uses avahi-daemon; shared, so that late news find no one.
    const std::shared_ptr<bool> isDaemonUp = std::make_shared<bool>(true);
};

} // namespace quillbox
