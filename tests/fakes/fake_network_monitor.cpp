#include "tests/fakes/fake_network_monitor.h"

#include "tests/fakes/socket_addresses.h"

#include <utility>

namespace quillbox {

class FakeNetworkMonitor::Ticket final : public Subscription {
public:
    Ticket(std::weak_ptr<std::vector<std::shared_ptr<Subscriber>>> subscribers,
           std::shared_ptr<Subscriber> subscriber)
        : all(std::move(subscribers)), own(std::move(subscriber))
    {
    }
    Ticket(const Ticket&) = delete;
    Ticket& operator=(const Ticket&) = delete;
    ~Ticket() override
    {
        if (const auto list = all.lock())
            std::erase(*list, own);
    }

private:
    std::weak_ptr<std::vector<std::shared_ptr<Subscriber>>> all;
    std::shared_ptr<Subscriber> own;
};

void FakeNetworkMonitor::setAddresses(std::vector<InterfaceAddress> addresses)
{
    current = std::move(addresses);
    for (const auto& subscriber : *subscribers)
        subscriber->queue->async(subscriber->changed);
}

std::unique_ptr<NetworkMonitor::Subscription>
FakeNetworkMonitor::subscribe(std::shared_ptr<DispatchQueue> queue, std::function<void()> changed)
{
    auto subscriber =
        std::make_shared<Subscriber>(Subscriber{std::move(queue), std::move(changed)});
    subscribers->push_back(subscriber);
    return std::make_unique<Ticket>(subscribers, subscriber);
}

InterfaceAddress interfaceAddress(int index, const std::string& name, const std::string& address)
{
    const bool isIPv6 = address.find(':') != std::string::npos;
    const auto scope = address.starts_with("fe80:") ? static_cast<std::uint32_t>(index) : 0;
    return {index, name, name == "lo", isIPv6 ? ipv6Address(address, scope) : ipv4Address(address)};
}

} // namespace quillbox
