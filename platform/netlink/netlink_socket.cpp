#include "platform/netlink/netlink_socket.h"

#include <array>
#include <cerrno>
#include <cstddef>

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <unistd.h>

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

} // namespace

int openRouteSocket(std::error_code& error)
{
    error.clear();
    const int descriptor =
        ::socket(AF_NETLINK, SOCK_RAW | SOCK_NONBLOCK | SOCK_CLOEXEC, NETLINK_ROUTE);
    if (descriptor < 0) {
        error.assign(errno, std::system_category());
        return -1;
    }
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_groups = RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV6_IFADDR | RTMGRP_IPV4_ROUTE
                        | RTMGRP_IPV6_ROUTE;
    if (::bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        error.assign(errno, std::system_category());
        ::close(descriptor);
        return -1;
    }
    return descriptor;
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

} // namespace quillbox
