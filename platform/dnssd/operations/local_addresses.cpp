#include "platform/dnssd/operations/local_addresses.h"

#include "platform/values/socket_address.h"

#include <algorithm>
#include <optional>
#include <utility>

namespace quillbox::dnssd {

namespace {

/// The loopback interface is always the first one of a network namespace.
constexpr std::int32_t kLoopbackInterface = 1;

std::optional<Address> addressOf(const SocketAddress& bytes)
{
    const auto plain = PlainAddress::of(bytes);
    if (!plain)
        return std::nullopt;
    return Address{plain->isIPv4 ? Family::IPv4 : Family::IPv6, plain->bytes};
}

} // namespace

LocalAddresses::LocalAddresses(NetworkMonitor& networkMonitor, Reach from)
    : reach(from), monitor(networkMonitor), current(networkMonitor.addresses())
{
}

bool LocalAddresses::refresh()
{
    const auto before = std::exchange(current, monitor.addresses());
    return current != before;
}

std::int32_t LocalAddresses::publishedOn() const
{
    return reach == Reach::ThisComputer ? kLoopbackInterface : kEveryInterface;
}

std::vector<HostAddress> LocalAddresses::hostAddresses(const Address& onLoopback) const
{
    std::vector<HostAddress> addresses;
    std::vector<HostAddress> loopbacks;
    for (const InterfaceAddress& entry : current) {
        const auto address = addressOf(entry.address);
        if (!address || entry.interfaceIndex == 0
            || (reach == Reach::ThisComputer && !entry.isLoopback))
            continue;
        const HostAddress published{entry.interfaceIndex, entry.isLoopback ? onLoopback : *address};
        auto& list = entry.isLoopback ? loopbacks : addresses;
        if (std::ranges::find(list, published) == list.end())
            list.push_back(published);
    }
    // If there are too many, prefer addresses that are valid beyond their link: dozens of virtual
    // interfaces have only link-local ones.
    std::ranges::stable_partition(
        addresses, [](const HostAddress& entry) { return !entry.address.isLinkLocalIPv6(); });
    addresses.resize(std::min(addresses.size(), kMaximumHostAddresses));
    loopbacks.resize(std::min(loopbacks.size(), kMaximumLoopbacks));
    addresses.insert(addresses.end(), loopbacks.begin(), loopbacks.end());
    return addresses;
}

} // namespace quillbox::dnssd
