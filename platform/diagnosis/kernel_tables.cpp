#include "platform/diagnosis/kernel_tables.h"

#include "platform/posix/file_descriptor.h"

#include <array>
#include <chrono>
#include <cstring>
#include <functional>
#include <string>
#include <string_view>

#include <linux/if_link.h>
#include <linux/neighbour.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if_arp.h>
#include <sys/socket.h>
#include <sys/time.h>

namespace quillbox::diagnosis {

namespace {

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

/// Receives the header and the attributes of one entry.
template <typename Header>
using EntryHandler = std::function<void(const Header&, const Attributes&)>;

template <typename Header> class Dump {
public:
    Dump(int request, EntryHandler<Header> entryHandler)
        : socket_(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE)),
          handler_(std::move(entryHandler))
    {
        // A safeguard: the kernel answers at once.
        const timeval limit{.tv_sec = 1, .tv_usec = 0};
        ::setsockopt(socket_.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        struct {
            nlmsghdr header{};
            Header body{};
        } message;
        message.header.nlmsg_len = sizeof message;
        message.header.nlmsg_type = static_cast<std::uint16_t>(request);
        message.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
        if (::send(socket_.get(), &message, sizeof message, 0) < 0)
            return;
        for (int part = 0; part < kMostParts && readPart(); ++part) {
        }
    }

private:
    /// Reads one datagram; false at the end of the table, or on error.
    bool readPart()
    {
        alignas(nlmsghdr) std::array<char, kAnswerSize> buffer;
        const auto count = ::recv(socket_.get(), buffer.data(), buffer.size(), 0);
        if (count <= 0)
            return false;
        auto left = static_cast<unsigned>(count);
        for (const auto* header = reinterpret_cast<const nlmsghdr*>(buffer.data());
             NLMSG_OK(header, left); header = NLMSG_NEXT(header, left)) {
            if (header->nlmsg_type == NLMSG_DONE || header->nlmsg_type == NLMSG_ERROR)
                return false;
            if (header->nlmsg_len < NLMSG_SPACE(sizeof(Header)))
                continue;
            const auto* body = static_cast<const Header*>(NLMSG_DATA(header));
            handler_(*body,
                     attributesIn(reinterpret_cast<const char*>(body) + NLMSG_ALIGN(sizeof(Header)),
                                  header->nlmsg_len - NLMSG_SPACE(sizeof(Header))));
        }
        return true;
    }

    const FileDescriptor socket_;
    const EntryHandler<Header> handler_;
};

bool isTunnel(int hardwareType)
{
    switch (hardwareType) {
    case ARPHRD_NONE:
    case ARPHRD_PPP:
    case ARPHRD_TUNNEL:
    case ARPHRD_TUNNEL6:
    case ARPHRD_SIT:
    case ARPHRD_IPGRE:
        return true;
    default:
        return false;
    }
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

} // namespace

KernelTables readKernelTables()
{
    KernelTables tables;
    const Dump<ifinfomsg> links(RTM_GETLINK,
                                [&](const ifinfomsg& link, const Attributes& attributes) {
                                    if (isBridge(attributes))
                                        tables.bridges.insert(link.ifi_index);
                                    if (isTunnel(link.ifi_type))
                                        tables.tunnels.insert(link.ifi_index);
                                });
    const Dump<rtmsg> routes(RTM_GETROUTE, [&](const rtmsg& route, const Attributes& attributes) {
        if (isDefault(route))
            tables.defaultRoutes.insert(numberIn(attributes, RTA_OIF));
    });
    // Counted by hardware address, because a host may have several IP addresses.
    std::map<int, std::set<std::string>> cards;
    const Dump<ndmsg> neighbours(
        RTM_GETNEIGH, [&](const ndmsg& neighbour, const Attributes& attributes) {
            const auto card = attributes.find(NDA_LLADDR);
            if (isAlive(neighbour) && card != attributes.end())
                cards[neighbour.ndm_ifindex].insert(std::string(card->second));
        });
    for (const auto& [index, each] : cards)
        tables.neighbours[index] = each.size();
    return tables;
}

} // namespace quillbox::diagnosis
