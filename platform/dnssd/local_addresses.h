#pragma once

#include "platform/dispatch_queue.h"
#include "platform/dnssd/messages.h"
#include "platform/network_monitor.h"
#include "platform/reach.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

namespace quillbox::dnssd {

/// How many addresses of a host are published. An engine's registration has room for 32 records,
/// the service's own three among them.
inline constexpr std::size_t kMaximumHostAddresses = 28;
inline constexpr std::size_t kMaximumLoopbacks = 1;

/// The addresses under which this computer can be reached, kept current for those who publish them.
/// Belongs to the center's queue, `stop` excepted.
class LocalAddresses final {
public:
    class Observer {
    public:
        virtual void localAddressesChanged() = 0;

    protected:
        ~Observer() = default;
    };

    explicit LocalAddresses(NetworkMonitor& networkMonitor, Reach from = Reach::Network);
    LocalAddresses(const LocalAddresses&) = delete;
    LocalAddresses& operator=(const LocalAddresses&) = delete;

    /// `changed` is called on `queue` and is to call `refresh`.
    void start(std::shared_ptr<DispatchQueue> queue, std::function<void()> changed);

    /// From any thread. The monitor is not touched any more.
    void stop();

    /// Takes the addresses of this moment and tells the observers if they differ.
    void refresh();

    void addObserver(Observer& observer) { observers.push_back(&observer); }
    void removeObserver(Observer& observer) { std::erase(observers, &observer); }

    /// Where services are to be published: an interface, or all.
    std::int32_t publishedOn() const;

    /// The addresses of a host of this computer's on the interfaces where it is published, with
    /// `onLoopback` in place of the loopback interface's own: 127.0.0.1 is every host's, and would
    /// tell none from another.
    std::vector<HostAddress> hostAddresses(const Address& onLoopback) const;

private:
    std::vector<InterfaceAddress> take();

    const Reach reach;
    std::mutex mutex; ///< guards the next two
    NetworkMonitor* monitor;
    std::unique_ptr<NetworkMonitor::Subscription> subscription;

    std::vector<InterfaceAddress> current;
    std::vector<Observer*> observers;
};

} // namespace quillbox::dnssd
