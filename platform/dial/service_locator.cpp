#include "platform/dial/service_locator.h"

#include "platform/dial/dialable_address.h"
#include "platform/values/socket_address.h"

#include <algorithm>
#include <map>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

namespace quillbox {

namespace {

constexpr const char* kType = "_smb._tcp";
constexpr const char* kDomain = "local";

bool isLetterDigitOrHyphen(char character)
{
    return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z')
           || (character >= '0' && character <= '9') || character == '-';
}

/// Whether the name is a single label of letters, digits and hyphens followed by ".local". The
/// multicast DNS name service accepts only one label; other names would go to unicast DNS servers.
bool isLocalHostName(std::string_view name)
{
    constexpr std::string_view kEnding = ".local";
    if (!name.ends_with(kEnding))
        return false;
    name.remove_suffix(kEnding.size());
    return !name.empty() && std::all_of(name.begin(), name.end(), isLetterDigitOrHyphen);
}

/// A search for one service.
class Search final : public std::enable_shared_from_this<Search> {
public:
    using Ended = std::function<void(const std::optional<HostEndpoint>&)>;

    Search(const ServiceLocatorMeans& locatorMeans, std::string instanceName, Ended whenEnded)
        : means(locatorMeans), name(std::move(instanceName)), ended(std::move(whenEnded))
    {
    }
    Search(const Search&) = delete;
    Search& operator=(const Search&) = delete;

    void start()
    {
        after(kSearchLimit, [](Search& self) {
            if (!self.isFound && self.resolution)
                self.inNumbers = numericOf(self.dialable());
            self.end(self.inNumbers);
        });
        ownQuestion = means.dnsSd.findOwn(name, kType, means.queue,
                                          [weak = weak_from_this()](const auto& update) {
                                              if (const auto self = weak.lock())
                                                  self->takeOwn(update);
                                          });
    }

private:
    /// Whether an address found by the name service belongs to the service.
    using Check = std::function<bool(const SocketAddress&)>;

    void takeOwn(const std::optional<DnsSd::OwnService>& own)
    {
        if (isFound)
            return;
        resolution = nullptr;
        if (!own) {
            resolution = means.dnsSd.resolve(ServiceEndpoint{name, kType, kDomain}, means.queue,
                                             [weak = weak_from_this()](const auto& resolved) {
                                                 if (const auto self = weak.lock())
                                                     self->takeResolved(resolved);
                                             });
            return;
        }
        inNumbers = own->onLoopback;
        if (!own->isPublished) {
            // Until then it is in no network view, and nobody can resolve its host name.
            after(kPublicationLimit, [](Search& self) {
                if (!self.isFound && !self.resolution)
                    self.end(self.inNumbers);
            });
            return;
        }
        isOwn = true;
        found({own->hostName, inNumbers->port},
              [addresses = means.monitor.addresses()](const SocketAddress& address) {
                  return isOfThisComputer(address, addresses);
              });
    }

    void takeResolved(const DnsSd::ResolveUpdate& update)
    {
        last = update;
        if (isFound)
            return;
        const auto addresses = dialable();
        const auto first = numericOf(addresses);
        // Without an IPv4 address, which would be first, waits for both families to be settled.
        const bool isSettled = update.isSettledIPv4 && update.isSettledIPv6;
        if (!first || (!isSettled && !isIPv4(addresses.front())))
            return;
        inNumbers = first;
        const auto named =
            std::find_if(last.hosts.begin(), last.hosts.end(), [&first](const auto& host) {
                return host.port == first->port && isLocalHostName(host.host);
            });
        found(named != last.hosts.end() ? *named : *first,
              [addresses](const SocketAddress& address) {
                  return std::any_of(addresses.begin(), addresses.end(),
                                     [&](const auto& each) { return isSameHost(address, each); });
              });
    }

    static std::optional<HostEndpoint> numericOf(const std::vector<SocketAddress>& addresses)
    {
        const auto host = addresses.empty() ? std::nullopt : numericHost(addresses.front());
        if (!host)
            return std::nullopt;
        return HostEndpoint{*host, portOf(addresses.front())};
    }

    /// The resolved addresses that a connection may be opened to, IPv4 first.
    std::vector<SocketAddress> dialable() const
    {
        std::vector<Candidate> candidates;
        for (const auto& [address, interfaceIndex] : last.addresses)
            addCandidate(candidates, address, interfaceIndex);
        std::vector<SocketAddress> addresses;
        for (const auto& each : candidates) {
            if (mayDial(each, means.ownPorts, means.monitor))
                addresses.push_back(each.address);
        }
        std::stable_partition(addresses.begin(), addresses.end(), isIPv4);
        return addresses;
    }

    /// Ends with the host name if the name service resolves it to addresses of the service only,
    /// else with the numeric address.
    void found(const HostEndpoint& named, Check isOfService)
    {
        isFound = true;
        ownQuestion = nullptr;
        if (!isLocalHostName(named.host)) {
            end(inNumbers);
            return;
        }
        after(kHostLimit, [named](Search& self) {
            const bool isUsed = self.isHostCertain() && self.means.resolvesFoundNames();
            self.end(isUsed ? named : self.inNumbers);
        });
        means.lookUp(named.host, [weak = weak_from_this(), queue = means.queue, named,
                                  isOfService = std::move(isOfService)](
                                     const std::vector<SocketAddress>& addresses,
                                     std::error_code /*error*/) {
            const bool isKnown =
                !addresses.empty() && std::all_of(addresses.begin(), addresses.end(), isOfService);
            queue->async([weak, named, isKnown] {
                if (const auto self = weak.lock())
                    self->end(isKnown ? named : self->inNumbers);
            });
        });
    }

    /// Whether the host name leads to the service and nowhere else, according to DNS-SD.
    bool isHostCertain() const
    {
        return isOwn
               || (last.isSettledIPv4 && last.isSettledIPv6 && last.hosts.size() == 1
                   && dialable().size() == last.addresses.size());
    }

    /// The handler makes the owner drop this object.
    void end(const std::optional<HostEndpoint>& server)
    {
        const Ended handler = std::exchange(ended, nullptr);
        if (handler)
            handler(server);
    }

    void after(std::chrono::milliseconds delay, std::function<void(Search&)> action)
    {
        means.queue->asyncAfter(delay, [weak = weak_from_this(), action = std::move(action)] {
            if (const auto self = weak.lock())
                action(*self);
        });
    }

    const ServiceLocatorMeans& means;
    const std::string name;
    Ended ended;
    std::unique_ptr<DnsSd::Subscription> ownQuestion;
    std::unique_ptr<DnsSd::Subscription>
        resolution; ///< only if this program has no such service itself
    DnsSd::ResolveUpdate last;
    std::optional<HostEndpoint> inNumbers; ///< the numeric address, the result without a host name
    bool isOwn = false;                    ///< it is published by this program
    bool isFound = false;
};

class NetworkServiceLocator final : public ServiceLocator {
public:
    explicit NetworkServiceLocator(ServiceLocatorMeans locatorMeans)
        : means(std::move(locatorMeans))
    {
    }
    NetworkServiceLocator(const NetworkServiceLocator&) = delete;
    NetworkServiceLocator& operator=(const NetworkServiceLocator&) = delete;

    void locate(const std::string& instanceName, Completion completion) override
    {
        const int number = ++lastNumber;
        const auto search = std::make_shared<Search>(
            means, instanceName,
            [this, number, completion = std::move(completion)](const auto& server) {
                // Keeps the search alive until this handler returns. The completion may destroy the
                // locator.
                const auto held = std::move(searches.extract(number).mapped());
                completion(server);
            });
        searches.emplace(number, search);
        search->start();
    }

private:
    const ServiceLocatorMeans means;
    std::map<int, std::shared_ptr<Search>> searches;
    int lastNumber = 0;
};

} // namespace

std::unique_ptr<ServiceLocator> makeServiceLocator(ServiceLocatorMeans means)
{
    return std::make_unique<NetworkServiceLocator>(std::move(means));
}

} // namespace quillbox
