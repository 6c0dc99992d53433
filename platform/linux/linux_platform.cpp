#include "platform/linux/linux_platform.h"

#include "platform/dial/tcp_network.h"
#include "platform/dispatch/dispatch_pool.h"
#include "platform/dnssd/browser.h"
#include "platform/dnssd/dns_sd_center.h"
#include "platform/dnssd/net_service.h"
#include "platform/linux/system_configuration.h"
#include "platform/netlink/netlink_monitor.h"

#include <chrono>
#include <mutex>
#include <utility>

namespace quillbox {

namespace {

constexpr std::chrono::milliseconds kFlushLimit{450};

} // namespace

class LinuxPlatform::Queues final : public Dispatch {
public:
    explicit Queues(std::shared_ptr<DispatchQueue> mainQueue) : main(std::move(mainQueue)) {}

    std::shared_ptr<DispatchQueue> makeQueue(std::string label, QualityOfService qos) override
    {
        return pool.makeQueue(std::move(label), qos);
    }

    std::shared_ptr<DispatchQueue> mainQueue() override { return main; }

    DispatchPool pool;

private:
    const std::shared_ptr<DispatchQueue> main;
};

/// Follows the DNS-SD engine, which uses avahi-daemon while that is up.
class LinuxPlatform::DaemonView final : public NetworkView,
                                        public std::enable_shared_from_this<DaemonView> {
public:
    explicit DaemonView(std::shared_ptr<DispatchQueue> mainQueue) : queue(std::move(mainQueue)) {}

    bool isAvailable() const override { return isDaemonUp; }

    void setChangedHandler(std::function<void()> handler) override { changed = std::move(handler); }

    /// What the engine calls, on its queue.
    std::function<void(bool)> daemonChanged()
    {
        return [weak = weak_from_this(), mainQueue = queue](bool isUp) {
            mainQueue->async([weak, isUp] {
                const auto self = weak.lock();
                if (!self || std::exchange(self->isDaemonUp, isUp) == isUp)
                    return;
                // A copy, because it may set another handler.
                if (const auto handler = self->changed)
                    handler();
            });
        };
    }

private:
    const std::shared_ptr<DispatchQueue> queue;
    std::function<void()> changed;
    bool isDaemonUp = true;
};

/// Creates the backends on first use: a second instance of the program exits when it finds the
/// first one, and must not touch the network before that.
class LinuxPlatform::LazyNetwork final : public Network {
public:
    LazyNetwork(Queues& platformQueues, DaemonView& platformView, dnssd::DnsSdMode chosen,
                Reach chosenReach, Log& platformLog)
        : queues(platformQueues),
          view(platformView),
          mode(chosen),
          reach(chosenReach),
          log(platformLog)
    {
    }

    std::shared_ptr<Listener> makeListener(const TcpParameters& parameters, std::uint16_t port,
                                           std::error_code& error) override
    {
        return backends().tcp.makeListener(parameters, port, error);
    }

    std::shared_ptr<Connection> makeConnection(const Endpoint& endpoint,
                                               const TcpParameters& parameters) override
    {
        return backends().tcp.makeConnection(endpoint, parameters);
    }

    std::shared_ptr<Browser> makeBrowser(std::string type,
                                         const TcpParameters& /*parameters*/) override
    {
        return quillbox::makeBrowser(*backends().dnsSd, std::move(type));
    }

    std::unique_ptr<NetService> makeNetService(const ServiceEndpoint& service) override
    {
        return quillbox::makeNetService(*backends().dnsSd, queues.mainQueue(), service);
    }

    TrafficReport traffic() const override
    {
        return isShutDown ? TrafficReport() : backends().tcp.traffic();
    }

    void locate(const std::string& instanceName, ServiceLocator::Completion completion)
    {
        if (!isShutDown)
            backends().locator->locate(instanceName, std::move(completion));
    }

    void shutDown()
    {
        isShutDown = true;
        // Backends that have not been created by now never are.
        std::call_once(once, [] {});
        if (made)
            made->tcp.flush(kFlushLimit);
        // Destroys pending work while everything it refers to still exists.
        queues.pool.shutdown();
        made = nullptr;
    }

private:
    struct Backends {
        Backends(Queues& queues, DaemonView& view, dnssd::DnsSdMode mode, Reach reach, Log& log)
            : monitor(makeNetworkMonitor(queues.pool)),
              dnsSdQueue(queues.pool.makeQueue("dns-sd", QualityOfService::Utility)),
              dnsSd(makeDnsSd(dnssd::makeEngine(mode, dnsSdQueue, log, view.daemonChanged()),
                              dnsSdQueue, *monitor, log, reach)),
              tcp(queues.pool, *dnsSd, *monitor, reach),
              locator(tcp.makeServiceLocator(queues.mainQueue(), isAvahiAskedForNames))
        {
        }

        const std::unique_ptr<NetworkMonitor> monitor;
        const std::shared_ptr<DispatchQueue> dnsSdQueue;
        const std::unique_ptr<DnsSd> dnsSd;
        TcpNetwork tcp;
        const std::unique_ptr<ServiceLocator> locator;
    };

    Backends& backends() const
    {
        std::call_once(
            once, [this] { made = std::make_unique<Backends>(queues, view, mode, reach, log); });
        return *made;
    }

    Queues& queues;
    DaemonView& view;
    const dnssd::DnsSdMode mode;
    const Reach reach;
    Log& log;
    bool isShutDown = false; ///< used on the main thread only
    mutable std::once_flag once;
    mutable std::unique_ptr<Backends> made;
};

class LinuxPlatform::LazyLocator final : public ServiceLocator {
public:
    explicit LazyLocator(LazyNetwork& platformNetwork) : network(platformNetwork) {}

    void locate(const std::string& instanceName, Completion completion) override
    {
        network.locate(instanceName, std::move(completion));
    }

private:
    LazyNetwork& network;
};

LinuxPlatform::LinuxPlatform(std::shared_ptr<DispatchQueue> mainQueue, dnssd::DnsSdMode mode,
                             Reach reach, Log& log)
    : queues_(std::make_unique<Queues>(std::move(mainQueue))),
      view_(std::make_shared<DaemonView>(queues_->mainQueue())),
      network_(std::make_unique<LazyNetwork>(*queues_, *view_, mode, reach, log)),
      locator_(std::make_unique<LazyLocator>(*network_))
{
}

LinuxPlatform::~LinuxPlatform()
{
    shutDown();
}

Dispatch& LinuxPlatform::dispatch()
{
    return *queues_;
}

Network& LinuxPlatform::network()
{
    return *network_;
}

NetworkView& LinuxPlatform::networkView()
{
    return *view_;
}

ServiceLocator& LinuxPlatform::serviceLocator()
{
    return *locator_;
}

void LinuxPlatform::shutDown()
{
    network_->shutDown();
}

} // namespace quillbox
