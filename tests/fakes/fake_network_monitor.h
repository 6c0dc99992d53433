#pragma once

#include "platform/network_monitor.h"

#include <memory>
#include <vector>

namespace quillbox {

/// A monitor whose interfaces a test sets. For use by one thread.
class FakeNetworkMonitor final : public NetworkMonitor {
public:
    /// Replaces the addresses and notifies the subscribers.
    void setAddresses(std::vector<InterfaceAddress> addresses);

    std::vector<InterfaceAddress> addresses() const override { return current; }
    /// Every address is on every link.
    OutgoingRoute routeThrough(int /*interfaceIndex*/,
                               const SocketAddress& /*address*/) const override
    {
        return OutgoingRoute::Preferred;
    }
    std::unique_ptr<Subscription> subscribe(std::shared_ptr<DispatchQueue> queue,
                                            std::function<void()> changed) override;

    std::size_t subscriberCount() const { return subscribers->size(); }

private:
    struct Subscriber {
        std::shared_ptr<DispatchQueue> queue;
        std::function<void()> changed;
    };
    class Ticket;

    std::vector<InterfaceAddress> current;
    std::shared_ptr<std::vector<std::shared_ptr<Subscriber>>> subscribers =
        std::make_shared<std::vector<std::shared_ptr<Subscriber>>>();
};

/// An interface address as a monitor reports it, from the text form of the address.
InterfaceAddress interfaceAddress(int index, const std::string& name, const std::string& address);

} // namespace quillbox
