#include "platform/netlink/netlink_socket.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <netinet/in.h>
#include <sys/socket.h>

namespace quillbox {

namespace {

/// The kernel sends no larger multicast messages.
constexpr std::size_t kDatagramSize = 32768;

bool isChange(unsigned type)
{
    switch (type) {
    case RTM_NEWLINK:
    case RTM_DELLINK:
    case RTM_NEWADDR:
    case RTM_DELADDR:
    case RTM_NEWROUTE:
    case RTM_DELROUTE:
        return true;
    default:
        return false;
    }
}

/// A request for the route to one address.
struct RouteRequest {
    nlmsghdr header;
    rtmsg route;
    std::array<std::byte, 64> attributes;
};

void append(RouteRequest& request, unsigned short type, const void* data, std::size_t size)
{
    auto* attribute = reinterpret_cast<rtattr*>(reinterpret_cast<std::byte*>(&request)
                                                + NLMSG_ALIGN(request.header.nlmsg_len));
    attribute->rta_type = type;
    attribute->rta_len = static_cast<unsigned short>(RTA_LENGTH(size));
    std::memcpy(RTA_DATA(attribute), data, size);
    request.header.nlmsg_len =
        NLMSG_ALIGN(request.header.nlmsg_len) + static_cast<unsigned>(RTA_SPACE(size));
}

std::optional<RouteRequest> routeRequest(const SocketAddress& address, int boundTo)
{
    RouteRequest request{};
    request.header.nlmsg_len = NLMSG_LENGTH(sizeof(rtmsg));
    request.header.nlmsg_type = RTM_GETROUTE;
    request.header.nlmsg_flags = NLM_F_REQUEST;
    if (familyOf(address) == AF_INET) {
        const auto& ipv4 = *reinterpret_cast<const sockaddr_in*>(address.data());
        request.route.rtm_family = AF_INET;
        request.route.rtm_dst_len = 32;
        append(request, RTA_DST, &ipv4.sin_addr, sizeof ipv4.sin_addr);
        append(request, RTA_DPORT, &ipv4.sin_port, sizeof ipv4.sin_port);
    } else if (familyOf(address) == AF_INET6) {
        const auto& ipv6 = *reinterpret_cast<const sockaddr_in6*>(address.data());
        request.route.rtm_family = AF_INET6;
        request.route.rtm_dst_len = 128;
        append(request, RTA_DST, &ipv6.sin6_addr, sizeof ipv6.sin6_addr);
        append(request, RTA_DPORT, &ipv6.sin6_port, sizeof ipv6.sin6_port);
        // A link-local address has a route only on its link.
        if (boundTo == 0)
            boundTo = static_cast<int>(ipv6.sin6_scope_id);
    } else {
        return std::nullopt;
    }
    // Protocol and port are for policy rules that depend on them (ip-rule(8)). Linux before 4.18
    // ignores both attributes.
    const std::uint8_t protocol = IPPROTO_TCP;
    append(request, RTA_IP_PROTO, &protocol, sizeof protocol);
    if (boundTo != 0)
        append(request, RTA_OIF, &boundTo, sizeof boundTo);
    return request;
}

/// The route in an answer. nullopt if that is an error, which is set only if the kernel could not
/// answer: any other means that there is no route.
std::optional<RouteLookup::Route> routeIn(const nlmsghdr* header, std::error_code& error)
{
    if (header->nlmsg_type == NLMSG_ERROR && header->nlmsg_len >= NLMSG_LENGTH(sizeof(nlmsgerr))) {
        const int number = -static_cast<const nlmsgerr*>(NLMSG_DATA(header))->error;
        if (number == ENOBUFS || number == ENOMEM)
            error.assign(number, std::system_category());
    }
    if (header->nlmsg_type != RTM_NEWROUTE || header->nlmsg_len < NLMSG_LENGTH(sizeof(rtmsg)))
        return std::nullopt;
    const auto* route = static_cast<const rtmsg*>(NLMSG_DATA(header));
    RouteLookup::Route result{.isUnicast = route->rtm_type == RTN_UNICAST, .interfaceIndex = 0};
    auto length = RTM_PAYLOAD(header);
    for (const auto* attribute = RTM_RTA(route); RTA_OK(attribute, length);
         attribute = RTA_NEXT(attribute, length)) {
        if (attribute->rta_type == RTA_OIF && RTA_PAYLOAD(attribute) >= sizeof(int))
            std::memcpy(&result.interfaceIndex, RTA_DATA(attribute), sizeof(int));
    }
    return result;
}

} // namespace

FileDescriptor openRouteSocket(std::error_code& error)
{
    FileDescriptor socket(
        ::socket(AF_NETLINK, SOCK_RAW | SOCK_NONBLOCK | SOCK_CLOEXEC, NETLINK_ROUTE));
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_groups = RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV6_IFADDR | RTMGRP_IPV4_ROUTE
                        | RTMGRP_IPV6_ROUTE;
    const bool isOpen =
        socket.isOpen()
        && ::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    error = isOpen ? std::error_code() : std::error_code(errno, std::system_category());
    return socket;
}

RouteNews readRouteNews(int socket)
{
    alignas(nlmsghdr) std::array<std::byte, kDatagramSize> buffer;
    const auto count = ::recv(socket, buffer.data(), buffer.size(), 0);
    if (count < 0) {
        if (errno == EAGAIN || errno == EWOULDBLOCK)
            return RouteNews::None;
        if (errno == EINTR)
            return RouteNews::Other;
        // ENOBUFS: the receive buffer overflowed and messages were lost. Callers read the current
        // state from the kernel anyway, so this counts as a change.
        return errno == ENOBUFS ? RouteNews::Changed : RouteNews::Broken;
    }
    auto remaining = static_cast<unsigned>(count);
    for (const auto* header = reinterpret_cast<const nlmsghdr*>(buffer.data());
         NLMSG_OK(header, remaining); header = NLMSG_NEXT(header, remaining)) {
        if (isChange(header->nlmsg_type))
            return RouteNews::Changed;
    }
    return RouteNews::Other;
}

RouteLookup::RouteLookup()
    : socket_(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE))
{
}

std::optional<RouteLookup::Route> RouteLookup::find(const SocketAddress& address, int boundTo,
                                                    std::error_code& error)
{
    error.clear();
    auto request = routeRequest(address, boundTo);
    if (!request)
        return std::nullopt;
    const std::lock_guard lock(mutex_);
    request->header.nlmsg_seq = ++lastNumber_;
    // The kernel answers within the call to send().
    if (::send(socket_.get(), &*request, request->header.nlmsg_len, 0) < 0) {
        error.assign(errno, std::system_category());
        return std::nullopt;
    }
    alignas(nlmsghdr) std::array<std::byte, 2048> answer;
    for (;;) {
        const auto count = ::recv(socket_.get(), answer.data(), answer.size(), 0);
        if (count < 0) {
            error.assign(errno, std::system_category());
            return std::nullopt;
        }
        const auto* header = reinterpret_cast<const nlmsghdr*>(answer.data());
        // Never the answer to an earlier request that was not read.
        if (NLMSG_OK(header, static_cast<unsigned>(count))
            && header->nlmsg_seq == request->header.nlmsg_seq)
            return routeIn(header, error);
    }
}

} // namespace quillbox
