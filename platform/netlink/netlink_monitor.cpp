#include "platform/netlink/netlink_monitor.h"

#include "platform/dispatch/strand_queue.h"
#include "platform/dispatch/timer.h"
#include "platform/dispatch/watch.h"
#include "platform/netlink/netlink_socket.h"
#include "platform/netlink/route_lookup.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
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

/// The subscribers to notify. Shared with the `RouteReader`, whose pending work may outlive the
/// monitor.
class Subscribers final {
public:
    void add(const std::shared_ptr<Subscriber>& subscriber)
    {
        const std::lock_guard lock(mutex_);
        std::erase_if(all_, [](const auto& each) { return each.expired(); });
        all_.push_back(subscriber);
    }

    void tell()
    {
        const std::lock_guard lock(mutex_);
        for (const auto& each : all_) {
            if (const auto subscriber = each.lock())
                subscriber->queue->async([each] {
                    if (const auto stillThere = each.lock())
                        stillThere->changed();
                });
        }
    }

private:
    std::mutex mutex_;
    std::vector<std::weak_ptr<Subscriber>> all_;
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

/// Reads the netlink socket on its own strand. Pending waits keep it alive until it is closed.
class RouteReader final : public std::enable_shared_from_this<RouteReader> {
public:
    RouteReader(std::shared_ptr<PoolContext> context, std::shared_ptr<Subscribers> subscribers)
        : context_(std::move(context)),
          strand_(context_->makeStrand()),
          timer_(context_),
          subscribers_(std::move(subscribers))
    {
    }

    void open()
    {
        std::error_code error;
        const int descriptor = openRouteSocket(error);
        if (!error)
            socket_ = Watch::adopt(context_, descriptor, Watch::For::Reading, error);
        if (error) {
            std::cerr << "quillbox-helper: cannot monitor network changes: " << error.message()
                      << '\n';
            return;
        }
        strand_.post([self = shared_from_this()] {
            if (self->socket_)
                self->wait();
        });
    }

    /// Notifies the subscribers after `delay`, unless a notification is pending already.
    void tellAfter(std::chrono::milliseconds delay)
    {
        strand_.post([self = shared_from_this(), delay] { self->schedule(delay); });
    }

    void close()
    {
        strand_.post([self = shared_from_this()] {
            self->socket_.reset();
            self->timer_.cancel();
        });
    }

private:
    void wait()
    {
        socket_->waitReadable(strand_, [self = shared_from_this()](const std::error_code& error) {
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
        timer_.start(strand_, delay, [self = shared_from_this()] {
            self->isScheduled_ = false;
            self->subscribers_->tell();
        });
    }

    const std::shared_ptr<PoolContext> context_;
    const Strand strand_;
    std::unique_ptr<Watch> socket_; ///< null if it could not be opened, and after `close`
    Timer timer_;
    const std::shared_ptr<Subscribers> subscribers_;
    bool isScheduled_ = false; ///< a notification is pending
};

SocketAddress toSocketAddress(const sockaddr* address)
{
    const auto size = address->sa_family == AF_INET6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in);
    SocketAddress result(size);
    std::memcpy(result.data(), address, size);
    return result;
}

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
    explicit NetlinkMonitor(DispatchPool& pool)
        : subscribers_(std::make_shared<Subscribers>()),
          reader_(
              std::make_shared<RouteReader>(pool.context(QualityOfService::Utility), subscribers_))
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
        auto subscriber =
            std::make_shared<Subscriber>(Subscriber{std::move(queue), std::move(changed)});
        subscribers_->add(subscriber);
        return std::make_unique<HeldSubscription>(std::move(subscriber));
    }

private:
    const std::shared_ptr<Subscribers> subscribers_;
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
