#include "platform/netlink/route_lookup.h"

#include "platform/posix/file_descriptor.h"

#include <array>
#include <cstddef>
#include <cstring>
#include <span>

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <netinet/in.h>
#include <sys/socket.h>

namespace quillbox {

namespace {

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
    if (address.size() == sizeof(sockaddr_in)) {
        sockaddr_in ipv4{};
        std::memcpy(&ipv4, address.data(), sizeof ipv4);
        request.route.rtm_family = AF_INET;
        request.route.rtm_dst_len = 32;
        append(request, RTA_DST, &ipv4.sin_addr, sizeof ipv4.sin_addr);
    } else if (address.size() == sizeof(sockaddr_in6)) {
        sockaddr_in6 ipv6{};
        std::memcpy(&ipv6, address.data(), sizeof ipv6);
        request.route.rtm_family = AF_INET6;
        request.route.rtm_dst_len = 128;
        append(request, RTA_DST, &ipv6.sin6_addr, sizeof ipv6.sin6_addr);
        // A link-local address has a route only on its link.
        if (boundTo == 0)
            boundTo = static_cast<int>(ipv6.sin6_scope_id);
    } else {
        return std::nullopt;
    }
    if (boundTo != 0)
        append(request, RTA_OIF, &boundTo, sizeof boundTo);
    return request;
}

/// nullopt if the answer is an error, which means that there is no route.
std::optional<RouteLookup> routeIn(std::span<const std::byte> answer)
{
    auto remaining = static_cast<unsigned>(answer.size());
    const auto* header = reinterpret_cast<const nlmsghdr*>(answer.data());
    if (!NLMSG_OK(header, remaining) || header->nlmsg_type != RTM_NEWROUTE
        || header->nlmsg_len < NLMSG_LENGTH(sizeof(rtmsg)))
        return std::nullopt;
    const auto* route = static_cast<const rtmsg*>(NLMSG_DATA(header));
    RouteLookup result{.isUnicast = route->rtm_type == RTN_UNICAST, .interfaceIndex = 0};
    auto length = RTM_PAYLOAD(header);
    for (const auto* attribute = RTM_RTA(route); RTA_OK(attribute, length);
         attribute = RTA_NEXT(attribute, length)) {
        if (attribute->rta_type == RTA_OIF && RTA_PAYLOAD(attribute) >= sizeof(int))
            std::memcpy(&result.interfaceIndex, RTA_DATA(attribute), sizeof(int));
    }
    return result;
}

} // namespace

std::optional<RouteLookup> lookUpRoute(const SocketAddress& address, int boundTo)
{
    const auto request = routeRequest(address, boundTo);
    const FileDescriptor socket(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
    if (!request || socket.get() < 0)
        return std::nullopt;
    // The kernel answers within the call to send(): recv() does not block.
    if (::send(socket.get(), &*request, request->header.nlmsg_len, 0) < 0)
        return std::nullopt;
    alignas(nlmsghdr) std::array<std::byte, 2048> answer;
    const auto count = ::recv(socket.get(), answer.data(), answer.size(), MSG_DONTWAIT);
    if (count < 0)
        return std::nullopt;
    return routeIn(std::span(answer).first(static_cast<std::size_t>(count)));
}

} // namespace quillbox
