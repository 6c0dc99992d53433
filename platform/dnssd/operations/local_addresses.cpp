#include "platform/dnssd/operations/local_addresses.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <functional>
#include <optional>
#include <utility>

#include <netinet/in.h>

namespace quillbox::dnssd {

namespace {

/// The loopback interface is always the first one of a network namespace.
constexpr std::int32_t kLoopbackInterface = 1;

std::optional<Address> addressOf(const SocketAddress& bytes)
{
    sa_family_t family = AF_UNSPEC;
    if (bytes.size() < sizeof family)
        return std::nullopt;
    std::memcpy(&family, bytes.data(), sizeof family);
    Address address;
    if (family == AF_INET && bytes.size() >= sizeof(sockaddr_in)) {
        address.family = Family::IPv4;
        std::memcpy(address.bytes.data(), bytes.data() + offsetof(sockaddr_in, sin_addr),
                    sizeof(in_addr));
        return address;
    }
    if (family == AF_INET6 && bytes.size() >= sizeof(sockaddr_in6)) {
        address.family = Family::IPv6;
        std::memcpy(address.bytes.data(), bytes.data() + offsetof(sockaddr_in6, sin6_addr),
                    sizeof(in6_addr));
        return address;
    }
    return std::nullopt;
}

bool isLinkLocalIPv6(const HostAddress& entry)
{
    const auto& bytes = entry.address.bytes;
    return entry.address.family == Family::IPv6 && bytes[0] == 0xfe && (bytes[1] & 0xc0U) == 0x80;
}

} // namespace

LocalAddresses::LocalAddresses(NetworkMonitor& networkMonitor, Reach from)
    : reach(from), monitor(networkMonitor), current(networkMonitor.addresses())
{
}

void LocalAddresses::refresh()
{
    std::vector<InterfaceAddress> next = monitor.addresses();
    if (next == current)
        return;
    current = std::move(next);
    const auto watching = observers;
    for (Observer* observer : watching)
        observer->localAddressesChanged();
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
    std::stable_partition(addresses.begin(), addresses.end(), std::not_fn(isLinkLocalIPv6));
    addresses.resize(std::min(addresses.size(), kMaximumHostAddresses));
    loopbacks.resize(std::min(loopbacks.size(), kMaximumLoopbacks));
    addresses.insert(addresses.end(), loopbacks.begin(), loopbacks.end());
    return addresses;
}

} // namespace quillbox::dnssd
