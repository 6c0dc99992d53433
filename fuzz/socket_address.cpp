// Addresses: as bytes from the network, and as text that a user typed.

#include "platform/values/socket_address.h"

#include "discovery/management_url.h"
#include "platform/dial/dialable_address.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "fuzz/harness.h"
#include <sys/socket.h>

namespace {

using namespace quillbox;
using fuzz::require;

/// A network on whose links every address is.
class OnLink final : public NetworkMonitor {
public:
    std::vector<InterfaceAddress> addresses() const override { return {}; }
    OutgoingRoute routeThrough(int /*interfaceIndex*/,
                               const SocketAddress& /*address*/) const override
    {
        return OutgoingRoute::Preferred;
    }
    std::unique_ptr<Subscription> subscribe(std::shared_ptr<DispatchQueue> /*queue*/,
                                            std::function<void()> /*changed*/) override
    {
        return nullptr;
    }
};

void tryBytes(const SocketAddress& address)
{
    const bool isAddress = familyOf(address) != AF_UNSPEC;
    const auto text = numericHost(address);
    require(!text || isAddress, "only an address has a numeric form");
    managementUrl(address);
    require(!isAddress || portOf(withPort(address, 4445)) == 4445, "the port can be set");
    const OnLink network;
    for (const auto& interfaces : {std::set<int>(), std::set{kLoopbackInterface}, std::set{2}}) {
        const bool mayBeDialled = static_cast<bool>(
            mayDial({.address = address, .interfaces = interfaces}, OwnPorts(), network));
        require(isAddress || !mayBeDialled, "only an address is dialled");
        require(!(mayBeDialled && interfaces == std::set{2} && isLoopback(address)),
                "a loopback address from the network is not dialled");
    }
    if (!text)
        return;
    const auto read = parseNumericHost(*text, portOf(address));
    require(read && isSameHost(*read, address), "a numeric form parses to the same address");
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    sockaddr_storage storage{};
    std::memcpy(&storage, data, std::min(size, sizeof storage));
    tryBytes(SocketAddress(reinterpret_cast<const sockaddr*>(&storage), size));
    if (const auto typed = parseNumericHost(std::string(fuzz::textOf(data, size)), 445)) {
        require(portOf(*typed) == 445, "the port is the one given");
        tryBytes(*typed);
    }
    return 0;
}
