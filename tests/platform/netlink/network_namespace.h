#pragma once

#include <array>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <system_error>
#include <thread>

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <net/route.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace quillbox {

/// Runs `work` on a thread in a new, empty network namespace; threads that `work` starts inherit
/// it. Skips the test where that is not permitted.
inline void inNetworkNamespace(const std::function<void()>& work)
{
    bool isPermitted = false;
    std::thread([&] {
        isPermitted = ::unshare(CLONE_NEWNET) == 0;
        if (isPermitted)
            work();
    }).join();
    if (!isPermitted)
        GTEST_SKIP() << "no permission to make a network namespace";
}

/// Runs ip(8) in this thread's network namespace.
inline void ip(const std::string& arguments)
{
    EXPECT_EQ(std::system(("ip " + arguments).c_str()), 0) << arguments;
}

/// Sets the loopback interface of this thread's network namespace up or down.
inline void setLoopbackUp(bool isUp)
{
    const int socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ifreq request{};
    request.ifr_name[0] = 'l';
    request.ifr_name[1] = 'o';
    EXPECT_EQ(::ioctl(socket, SIOCGIFFLAGS, &request), 0);
    const auto flags = static_cast<unsigned short>(request.ifr_flags);
    request.ifr_flags = static_cast<short>(isUp ? flags | IFF_UP : flags & ~IFF_UP);
    EXPECT_EQ(::ioctl(socket, SIOCSIFFLAGS, &request), 0);
    ::close(socket);
}

/// Makes the kernel notice now, not later, that the link of an interface is up (ETHTOOL_GLINK).
inline void settleLink(const char* name)
{
    const int socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ethtool_value isUp{.cmd = ETHTOOL_GLINK, .data = 0};
    ifreq request{};
    std::strncpy(request.ifr_name, name, sizeof request.ifr_name - 1);
    request.ifr_data = reinterpret_cast<char*>(&isUp);
    EXPECT_EQ(::ioctl(socket, SIOCETHTOOL, &request), 0);
    EXPECT_EQ(isUp.data, 1U) << name;
    ::close(socket);
}

/// Renames the loopback interface of this thread's network namespace, while it is down.
inline void renameLoopback(const char* name)
{
    const int socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ifreq request{};
    std::strcpy(request.ifr_name, "lo");
    std::strncpy(request.ifr_newname, name, sizeof request.ifr_newname - 1);
    EXPECT_EQ(::ioctl(socket, SIOCSIFNAME, &request), 0);
    ::close(socket);
}

/// Adds or deletes a route of this thread's network namespace to 192.0.2.0/24 by the loopback
/// interface: `request` is SIOCADDRT or SIOCDELRT.
inline void changeRoute(unsigned long request)
{
    const int socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const auto fill = [](sockaddr& place, const char* text) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        EXPECT_EQ(::inet_pton(AF_INET, text, &address.sin_addr), 1);
        std::memcpy(&place, &address, sizeof address);
    };
    std::array<char, IF_NAMESIZE> device{"lo"};
    rtentry route{};
    fill(route.rt_dst, "192.0.2.0");
    fill(route.rt_genmask, "255.255.255.0");
    route.rt_flags = RTF_UP;
    route.rt_dev = device.data();
    EXPECT_EQ(::ioctl(socket, request, &route), 0);
    ::close(socket);
}

/// Overflows the receive buffer of a netlink socket with link changes.
inline void fillReceiveBuffer(int socket)
{
    const int size = 2304;
    EXPECT_EQ(::setsockopt(socket, SOL_SOCKET, SO_RCVBUF, &size, sizeof size), 0);
    for (int count = 0; count < 20; ++count) {
        setLoopbackUp(true);
        setLoopbackUp(false);
    }
}

inline void closeDescriptor(int descriptor)
{
    ::close(descriptor);
}

} // namespace quillbox
