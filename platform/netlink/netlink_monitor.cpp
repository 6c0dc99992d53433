#include "platform/netlink/netlink_monitor.h"

#include "platform/dispatch/fd_watcher.h"
#include "platform/dispatch/timer.h"
#include "platform/netlink/netlink_socket.h"
#include "platform/values/socket_address.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <iostream>
#include <mutex>
#include <optional>
#include <utility>

#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>

namespace quillbox {

namespace {

/// How long changes are collected before subscribers are notified. A link that comes up causes a
/// dozen.
constexpr std::chrono::milliseconds kGatherTime{100};

/// How long after a failed attempt to read the addresses subscribers are notified, so that they
/// read them again.
constexpr std::chrono::milliseconds kRetryTime{1000};

struct Subscriber {
    std::shared_ptr<DispatchQueue> queue;
    std::function<void()> changed;
};

class HeldSubscription final : public NetworkMonitor::Subscription {
public:
    explicit HeldSubscription(std::shared_ptr<Subscriber> subscriber)
        : subscriber_(std::move(subscriber))
    {
    }

private:
    const std::shared_ptr<Subscriber> subscriber_;
};

/// Reads the netlink socket on its own queue, and notifies the subscribers. Pending waits keep it
/// alive until it is closed, which may be after the monitor is gone.
class RouteReader final : public std::enable_shared_from_this<RouteReader> {
public:
    explicit RouteReader(DispatchPool& pool)
        : queue_(LoopQueue::from(pool.makeQueue("netlink", QualityOfService::Utility))),
          timer_(queue_)
    {
    }

    /// Opens the socket in the network namespace of the calling thread.
    void open()
    {
        std::error_code error;
        auto socket = openRouteSocket(error);
        queue_->post([self = shared_from_this(), socket = std::move(socket), error]() mutable {
            if (!error)
                self->socket_ = FdWatcher::adopt(self->queue_, socket.release(),
                                                 FdWatcher::For::Reading, error);
            if (self->socket_)
                self->wait();
            else
                std::cerr << "quillbox-helper: cannot monitor network changes: " << error.message()
                          << '\n';
        });
    }

    void close()
    {
        queue_->post([self = shared_from_this()] {
            self->socket_.reset();
            self->timer_.cancel();
        });
    }

    std::unique_ptr<NetworkMonitor::Subscription> subscribe(std::shared_ptr<DispatchQueue> queue,
                                                            std::function<void()> changed)
    {
        auto subscriber =
            std::make_shared<Subscriber>(Subscriber{std::move(queue), std::move(changed)});
        const std::lock_guard lock(mutex_);
        std::erase_if(subscribers_, [](const auto& each) { return each.expired(); });
        subscribers_.push_back(subscriber);
        return std::make_unique<HeldSubscription>(std::move(subscriber));
    }

    /// Notifies the subscribers after `delay`, unless a notification is pending already.
    void tellAfter(std::chrono::milliseconds delay)
    {
        queue_->post([self = shared_from_this(), delay] { self->schedule(delay); });
    }

private:
    void wait()
    {
        socket_->waitReadable([self = shared_from_this()](const std::error_code& error) {
            if (!error)
                self->read();
        });
    }

    /// Reads until the socket is empty: epoll is edge-triggered and does not report unread messages
    /// again.
    void read()
    {
        while (socket_) {
            switch (readRouteNews(socket_->descriptor())) {
            case RouteNews::Other:
                break;
            case RouteNews::Changed:
                schedule(kGatherTime);
                break;
            case RouteNews::None:
                wait();
                return;
            case RouteNews::Broken:
                std::cerr << "quillbox-helper: network changes are no longer monitored\n";
                return;
            }
        }
    }

    void schedule(std::chrono::milliseconds delay)
    {
        if (std::exchange(isScheduled_, true))
            return;
        timer_.start(delay, [self = shared_from_this()] {
            self->isScheduled_ = false;
            self->tell();
        });
    }

    void tell()
    {
        const std::lock_guard lock(mutex_);
        for (const auto& each : subscribers_) {
            if (const auto subscriber = each.lock())
                subscriber->queue->async([each] {
                    if (const auto stillThere = each.lock())
                        stillThere->changed();
                });
        }
    }

    const std::shared_ptr<LoopQueue> queue_;
    std::unique_ptr<FdWatcher> socket_; ///< null if it could not be opened, and after `close`
    Timer timer_;
    bool isScheduled_ = false; ///< a notification is pending
    std::mutex mutex_;
    std::vector<std::weak_ptr<Subscriber>> subscribers_; ///< guarded by the mutex
};

/// nullopt if the kernel cannot be asked, usually because no file descriptor is available.
std::optional<std::vector<InterfaceAddress>> readAddresses()
{
    ifaddrs* first = nullptr;
    if (::getifaddrs(&first) != 0)
        return std::nullopt;
    const std::unique_ptr<ifaddrs, decltype(&::freeifaddrs)> owner(first, &::freeifaddrs);
    std::vector<InterfaceAddress> result;
    for (const auto* each = first; each != nullptr; each = each->ifa_next) {
        if (each->ifa_addr == nullptr || (each->ifa_flags & IFF_UP) == 0)
            continue;
        const int family = each->ifa_addr->sa_family;
        if (family != AF_INET && family != AF_INET6)
            continue;
        // 0 if the interface has just gone, or if the address has a label that is no interface's
        // name; it is an address of this computer nevertheless.
        const unsigned index = ::if_nametoindex(each->ifa_name);
        if (index == 0 && errno != ENODEV)
            return std::nullopt;
        result.push_back({.interfaceIndex = static_cast<int>(index),
                          .interfaceName = each->ifa_name,
                          .isLoopback = (each->ifa_flags & IFF_LOOPBACK) != 0,
                          .address = toSocketAddress(each->ifa_addr)});
    }
    std::ranges::stable_sort(result, {}, &InterfaceAddress::interfaceIndex);
    return result;
}

class NetlinkMonitor final : public NetworkMonitor {
public:
    explicit NetlinkMonitor(DispatchPool& pool) : reader_(std::make_shared<RouteReader>(pool))
    {
        reader_->open();
    }

    ~NetlinkMonitor() override { reader_->close(); }

    NetlinkMonitor(const NetlinkMonitor&) = delete;
    NetlinkMonitor& operator=(const NetlinkMonitor&) = delete;

    std::vector<InterfaceAddress> addresses() const override
    {
        auto current = readAddresses();
        if (!current)
            reader_->tellAfter(kRetryTime);
        const std::lock_guard lock(mutex_);
        if (current)
            known_ = std::move(*current);
        return known_;
    }

    OutgoingRoute routeThrough(int interfaceIndex, const SocketAddress& address) const override
    {
        std::error_code error;
        const auto usual = routes_.find(address, 0, error);
        if (error)
            return OutgoingRoute::Unknown;
        if (!usual || !usual->isUnicast)
            return OutgoingRoute::None;
        if (usual->interfaceIndex == interfaceIndex)
            return OutgoingRoute::Preferred;
        const auto bound = routes_.find(address, interfaceIndex, error);
        if (error)
            return OutgoingRoute::Unknown;
        const bool leaves = bound && bound->isUnicast && bound->interfaceIndex == interfaceIndex;
        return leaves ? OutgoingRoute::IfBound : OutgoingRoute::None;
    }

    std::unique_ptr<Subscription> subscribe(std::shared_ptr<DispatchQueue> queue,
                                            std::function<void()> changed) override
    {
        return reader_->subscribe(std::move(queue), std::move(changed));
    }

private:
    const std::shared_ptr<RouteReader> reader_;
    mutable RouteLookup routes_;
    mutable std::mutex mutex_;
    mutable std::vector<InterfaceAddress> known_; ///< guarded by the mutex
};

} // namespace

std::unique_ptr<NetworkMonitor> makeNetworkMonitor(DispatchPool& pool)
{
    return std::make_unique<NetlinkMonitor>(pool);
}

} // namespace quillbox
