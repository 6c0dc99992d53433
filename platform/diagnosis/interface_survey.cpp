#include "platform/diagnosis/interface_survey.h"

#include "platform/diagnosis/kernel_tables.h"
#include "platform/values/socket_address.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <map>
#include <memory>

#include <ifaddrs.h>
#include <net/if.h>
#include <netdb.h>
#include <netinet/in.h>

namespace quillbox::diagnosis {

namespace {

/// A computer with containers may have hundreds; the physical ones come first.
constexpr std::size_t kMostInterfaces = 16;

bool isWireless(const std::string& name)
{
    std::error_code ignored;
    return std::filesystem::exists("/sys/class/net/" + name + "/phy80211", ignored)
           || std::filesystem::exists("/sys/class/net/" + name + "/wireless", ignored);
}

std::string textOf(const sockaddr* address)
{
    std::array<char, NI_MAXHOST> host{};
    const auto size = address->sa_family == AF_INET6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in);
    if (::getnameinfo(address, static_cast<socklen_t>(size), host.data(), host.size(), nullptr, 0,
                      NI_NUMERICHOST)
        != 0)
        return {};
    return host.data();
}

void addAddress(InterfaceFacts& facts, const sockaddr* address)
{
    facts.addresses.push_back(textOf(address));
    (address->sa_family == AF_INET ? facts.ipv4 : facts.ipv6).isTried = true;
}

void describe(SurveyedInterface& interface, const ifaddrs& entry, const KernelTables& tables)
{
    InterfaceFacts& facts = interface.facts;
    interface.index = static_cast<int>(::if_nametoindex(entry.ifa_name));
    facts.name = entry.ifa_name;
    facts.isRunning = (entry.ifa_flags & IFF_RUNNING) != 0;
    facts.hasMulticast = (entry.ifa_flags & IFF_MULTICAST) != 0;
    facts.hasDefaultRoute = tables.defaultRoutes.contains(interface.index);
    const auto neighbours = tables.neighbours.find(interface.index);
    facts.neighbours = neighbours == tables.neighbours.end() ? 0 : neighbours->second;
    if (tables.tunnels.contains(interface.index))
        facts.kind = InterfaceFacts::Kind::Vpn;
    else if (tables.bridges.contains(interface.index))
        facts.kind = InterfaceFacts::Kind::Bridge;
    else if (isWireless(facts.name))
        facts.kind = InterfaceFacts::Kind::Wireless;
}

} // namespace

Survey surveyInterfaces()
{
    Survey survey;
    ifaddrs* first = nullptr;
    if (::getifaddrs(&first) != 0)
        return survey;
    const std::unique_ptr<ifaddrs, decltype(&::freeifaddrs)> owner(first, &::freeifaddrs);
    const KernelTables tables = readKernelTables();
    const auto named = [&survey](const char* name) {
        return std::find_if(survey.interfaces.begin(), survey.interfaces.end(),
                            [name](const auto& each) { return each.facts.name == name; });
    };
    // getifaddrs() lists the links first, then their addresses.
    for (const auto* each = first; each != nullptr; each = each->ifa_next) {
        const bool isOut = (each->ifa_flags & IFF_LOOPBACK) != 0;
        const int family = each->ifa_addr == nullptr ? AF_UNSPEC : each->ifa_addr->sa_family;
        if (!isOut && named(each->ifa_name) == survey.interfaces.end()
            && survey.interfaces.size() < kMostInterfaces)
            describe(survey.interfaces.emplace_back(), *each, tables);
        if (family != AF_INET && family != AF_INET6)
            continue;
        survey.addresses.push_back(toSocketAddress(each->ifa_addr));
        if (const auto found = named(each->ifa_name); found != survey.interfaces.end())
            addAddress(found->facts, each->ifa_addr);
    }
    return survey;
}

} // namespace quillbox::diagnosis
