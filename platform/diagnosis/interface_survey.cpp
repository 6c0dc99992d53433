#include "platform/diagnosis/network_probes.h"
#include "platform/posix/file_descriptor.h"
#include "platform/values/socket_address.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>

#include <ifaddrs.h>
#include <linux/neighbour.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>

namespace quillbox::diagnosis {

namespace {

/// A computer with containers may have hundreds; the physical ones come first.
constexpr std::size_t kMostInterfaces = 16;

constexpr std::size_t kAnswerSize = 65536;

/// Datagrams of one table; the rest is ignored.
constexpr int kMostParts = 1000;

using Attributes = std::map<int, std::string_view>;

/// Parses a sequence of attributes; stops at one that is truncated.
Attributes attributesIn(const void* first, std::size_t size)
{
    Attributes attributes;
    auto left = static_cast<int>(size);
    for (const auto* each = static_cast<const rtattr*>(first); RTA_OK(each, left);
         each = RTA_NEXT(each, left))
        attributes[each->rta_type & NLA_TYPE_MASK] = {static_cast<const char*>(RTA_DATA(each)),
                                                      RTA_PAYLOAD(each)};
    return attributes;
}

int numberIn(const Attributes& attributes, int key)
{
    const auto found = attributes.find(key);
    std::uint32_t number = 0;
    if (found != attributes.end() && found->second.size() == sizeof number)
        std::memcpy(&number, found->second.data(), sizeof number);
    return static_cast<int>(number);
}

/// Reads a table of the kernel over rtnetlink(7), and calls `handle` with the header and the
/// attributes of each entry. Stops where it fails.
template <typename Header, typename Handler> void dump(int request, const Handler& handle)
{
    const FileDescriptor socket(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
    // A safeguard: the kernel answers at once.
    const timeval limit{.tv_sec = 1, .tv_usec = 0};
    ::setsockopt(socket.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    struct {
        nlmsghdr header{};
        Header body{};
    } message;
    message.header.nlmsg_len = sizeof message;
    message.header.nlmsg_type = static_cast<std::uint16_t>(request);
    message.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    if (::send(socket.get(), &message, sizeof message, 0) < 0)
        return;
    for (int part = 0; part < kMostParts; ++part) {
        alignas(nlmsghdr) std::array<char, kAnswerSize> buffer;
        const auto count = ::recv(socket.get(), buffer.data(), buffer.size(), 0);
        if (count <= 0)
            return;
        auto left = static_cast<unsigned>(count);
        for (const auto* header = reinterpret_cast<const nlmsghdr*>(buffer.data());
             NLMSG_OK(header, left); header = NLMSG_NEXT(header, left)) {
            if (header->nlmsg_type == NLMSG_DONE || header->nlmsg_type == NLMSG_ERROR)
                return;
            if (header->nlmsg_len < NLMSG_SPACE(sizeof(Header)))
                continue;
            const auto* body = static_cast<const Header*>(NLMSG_DATA(header));
            handle(*body,
                   attributesIn(reinterpret_cast<const char*>(body) + NLMSG_ALIGN(sizeof(Header)),
                                header->nlmsg_len - NLMSG_SPACE(sizeof(Header))));
        }
    }
}

bool isTunnel(int hardwareType)
{
    constexpr std::array kTunnels{ARPHRD_NONE,    ARPHRD_PPP, ARPHRD_TUNNEL,
                                  ARPHRD_TUNNEL6, ARPHRD_SIT, ARPHRD_IPGRE};
    return std::find(kTunnels.begin(), kTunnels.end(), hardwareType) != kTunnels.end();
}

bool isBridge(const Attributes& attributes)
{
    const auto found = attributes.find(IFLA_LINKINFO);
    if (found == attributes.end())
        return false;
    const auto nested = attributesIn(found->second.data(), found->second.size());
    const auto kind = nested.find(IFLA_INFO_KIND);
    return kind != nested.end() && kind->second.starts_with("bridge");
}

/// Includes /1 routes: some VPNs add two of them instead of replacing the default route.
bool isDefault(const rtmsg& route)
{
    return route.rtm_type == RTN_UNICAST && route.rtm_dst_len <= 1;
}

bool isAlive(const ndmsg& neighbour)
{
    constexpr unsigned kKnown = NUD_REACHABLE | NUD_STALE | NUD_DELAY | NUD_PROBE | NUD_PERMANENT;
    return (neighbour.ndm_state & kKnown) != 0;
}

bool isWireless(const std::string& name)
{
    std::error_code ignored;
    return std::filesystem::exists("/sys/class/net/" + name + "/phy80211", ignored)
           || std::filesystem::exists("/sys/class/net/" + name + "/wireless", ignored);
}

void addAddress(InterfaceFacts& facts, const sockaddr* address)
{
    facts.addresses.push_back(numericHost(toSocketAddress(address)).value_or(""));
    (address->sa_family == AF_INET ? facts.ipv4 : facts.ipv6).isTried = true;
}

void describe(InterfaceFacts& facts, const ifaddrs& entry)
{
    facts.index = static_cast<int>(::if_nametoindex(entry.ifa_name));
    facts.name = entry.ifa_name;
    facts.isRunning = (entry.ifa_flags & IFF_RUNNING) != 0;
    facts.hasMulticast = (entry.ifa_flags & IFF_MULTICAST) != 0;
    if (isWireless(facts.name))
        facts.kind = InterfaceFacts::Kind::Wireless;
}

/// Adds what the kernel's tables say.
void addTables(std::vector<InterfaceFacts>& interfaces)
{
    InterfaceFacts none;
    const auto at = [&](int index) -> InterfaceFacts& {
        const auto found = std::find_if(interfaces.begin(), interfaces.end(),
                                        [index](const auto& each) { return each.index == index; });
        return found == interfaces.end() ? none : *found;
    };
    dump<ifinfomsg>(RTM_GETLINK, [&](const ifinfomsg& link, const Attributes& attributes) {
        if (isBridge(attributes))
            at(link.ifi_index).kind = InterfaceFacts::Kind::Bridge;
        if (isTunnel(link.ifi_type))
            at(link.ifi_index).kind = InterfaceFacts::Kind::Vpn;
    });
    dump<rtmsg>(RTM_GETROUTE, [&](const rtmsg& route, const Attributes& attributes) {
        if (isDefault(route))
            at(numberIn(attributes, RTA_OIF)).hasDefaultRoute = true;
    });
    // Counted by hardware address, because a host may have several IP addresses.
    std::map<int, std::set<std::string>> cards;
    dump<ndmsg>(RTM_GETNEIGH, [&](const ndmsg& neighbour, const Attributes& attributes) {
        const auto card = attributes.find(NDA_LLADDR);
        if (isAlive(neighbour) && card != attributes.end())
            cards[neighbour.ndm_ifindex].insert(std::string(card->second));
    });
    for (const auto& [index, each] : cards)
        at(index).neighbours = each.size();
}

} // namespace

Survey surveyInterfaces()
{
    Survey survey;
    ifaddrs* first = nullptr;
    if (::getifaddrs(&first) != 0)
        return survey;
    const std::unique_ptr<ifaddrs, decltype(&::freeifaddrs)> owner(first, &::freeifaddrs);
    const auto named = [&survey](const char* name) {
        return std::find_if(survey.interfaces.begin(), survey.interfaces.end(),
                            [name](const auto& each) { return each.name == name; });
    };
    // getifaddrs() lists the links first, then their addresses.
    for (const auto* each = first; each != nullptr; each = each->ifa_next) {
        const bool isOut = (each->ifa_flags & IFF_LOOPBACK) != 0;
        const int family = each->ifa_addr == nullptr ? AF_UNSPEC : each->ifa_addr->sa_family;
        if (!isOut && named(each->ifa_name) == survey.interfaces.end()
            && survey.interfaces.size() < kMostInterfaces)
            describe(survey.interfaces.emplace_back(), *each);
        if (family != AF_INET && family != AF_INET6)
            continue;
        survey.addresses.push_back(toSocketAddress(each->ifa_addr));
        if (const auto found = named(each->ifa_name); found != survey.interfaces.end())
            addAddress(*found, each->ifa_addr);
    }
    addTables(survey.interfaces);
    return survey;
}

} // namespace quillbox::diagnosis
