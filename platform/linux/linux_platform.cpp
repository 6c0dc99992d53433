#include "platform/linux/linux_platform.h"

#include "platform/dial/tcp_network.h"
#include "platform/dispatch/dispatch_pool.h"
#include "platform/dnssd/dns_sd_center.h"
#include "platform/linux/system_configuration.h"
#include "platform/netlink/netlink_monitor.h"

#include <chrono>
#include <utility>

namespace quillbox {

namespace {

constexpr std::chrono::milliseconds kFlushLimit{450};

} // namespace

struct LinuxPlatform::Backends {
    Backends(const LinuxPlatform& platform, std::function<void(bool)> daemonChanged)
        : monitor(makeNetworkMonitor(platform.pool)),
          dnsSdQueue(platform.pool.makeQueue("dns-sd", QualityOfService::Utility)),
          dnsSd(makeDnsSd(dnssd::makeEngine(platform.engine, dnsSdQueue, platform.log,
                                            std::move(daemonChanged)),
                          dnsSdQueue, *monitor, platform.log, platform.reach)),
          tcp(platform.pool, *dnsSd, *monitor, platform.reach),
          locator(
              tcp.makeServiceLocator(platform.ownMainQueue, [] { return isAvahiAskedForNames(); }))
    {
    }

    const std::unique_ptr<NetworkMonitor> monitor;
    const std::shared_ptr<DispatchQueue> dnsSdQueue;
    const std::unique_ptr<DnsSd> dnsSd;
    TcpNetwork tcp;
    const std::unique_ptr<ServiceLocator> locator;
};

LinuxPlatform::LinuxPlatform(std::shared_ptr<DispatchQueue> mainQueue, DnsSdChoice chosenEngine,
                             Reach chosenReach, Log& platformLog)
    : ownMainQueue(std::move(mainQueue)), engine(chosenEngine), reach(chosenReach), log(platformLog)
{
}

LinuxPlatform::~LinuxPlatform()
{
    shutDown();
}

void LinuxPlatform::shutDown()
{
    isShutDown = true;
    // Backends that have not been created by now never are.
    std::call_once(once, [] {});
    if (made)
        made->tcp.flush(kFlushLimit);
    // Destroys pending work while everything it refers to still exists.
    pool.shutdown();
    made = nullptr;
}

LinuxPlatform::Backends& LinuxPlatform::backends() const
{
    std::call_once(once, [this] { made = std::make_unique<Backends>(*this, daemonChanged()); });
    return *made;
}

/// What the engine calls, on its queue.
std::function<void(bool)> LinuxPlatform::daemonChanged() const
{
    return [this, weak = std::weak_ptr(isDaemonUp), queue = ownMainQueue](bool isUp) {
        queue->async([this, weak, isUp] {
            const auto known = weak.lock();
            if (!known)
                return;
            *known = isUp;
            // A copy, because it may set another handler.
            if (const auto handler = changed)
                handler();
        });
    };
}

std::shared_ptr<DispatchQueue> LinuxPlatform::makeQueue(std::string label, QualityOfService qos)
{
    return pool.makeQueue(std::move(label), qos);
}

std::shared_ptr<Listener> LinuxPlatform::makeListener(const TcpParameters& parameters,
                                                      std::uint16_t port, std::error_code& error)
{
    return backends().tcp.makeListener(parameters, port, error);
}

std::shared_ptr<Connection> LinuxPlatform::makeConnection(const Endpoint& endpoint,
                                                          const TcpParameters& parameters)
{
    return backends().tcp.makeConnection(endpoint, parameters);
}

DnsSd& LinuxPlatform::dnsSd()
{
    return *backends().dnsSd;
}

TrafficReport LinuxPlatform::traffic() const
{
    return isShutDown ? TrafficReport() : backends().tcp.traffic();
}

void LinuxPlatform::locate(const std::string& instanceName, Completion completion)
{
    if (!isShutDown)
        backends().locator->locate(instanceName, std::move(completion));
}

} // namespace quillbox
