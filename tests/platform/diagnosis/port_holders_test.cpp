#include "platform/diagnosis/port_holders.h"

#include <csignal>
#include <vector>

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace quillbox::diagnosis {

namespace {

constexpr const char* kTable =
    "   sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid  timeout "
    "inode ref pointer drops\n"
    "  123: 00000000:14E9 00000000:0000 07 00000000:00000000 00:00000000 00000000   107        0 "
    "23871 2 0000000000000000 0\n"
    "  200: 0100007F:0035 00000000:0000 07 00000000:00000000 00:00000000 00000000     0        0 "
    "4711 2 0000000000000000 0\n";

TEST(PortHolders, aTableOfTheKernelIsRead)
{
    EXPECT_EQ(udpSocketsIn(kTable),
              (std::vector<UdpSocket>{{.port = 5353, .user = 107, .inode = 23871},
                                      {.port = 53, .user = 0, .inode = 4711}}));
}

TEST(PortHolders, theTableOfIPv6IsReadTheSameWay)
{
    EXPECT_EQ(udpSocketsIn("  1: 00000000000000000000000000000000:14E9 "
                           "00000000000000000000000000000000:0000 07 00000000:00000000 "
                           "00:00000000 00000000  1000        0 99 2 0 0"),
              (std::vector<UdpSocket>{{.port = 5353, .user = 1000, .inode = 99}}));
}

TEST(PortHolders, otherLinesAreLeftOut)
{
    EXPECT_TRUE(udpSocketsIn("").empty());
    EXPECT_TRUE(udpSocketsIn("\n\nsl local_address\n 1: x:y z 07 0 0 0 a 0 b\n").empty());
}

TEST(PortHolders, aLineNeedsNoMoreThanTheInode)
{
    EXPECT_EQ(udpSocketsIn("1: 0:14E9 0:0 07 0:0 0:0 0 107 0 99").size(), 1U);
    EXPECT_TRUE(udpSocketsIn("1: 0:14E9 0:0 07 0:0 0:0 0 107 0").empty());
    EXPECT_TRUE(udpSocketsIn("1: 0:14E9x 0:0 07 0:0 0:0 0 107 0 99").empty());
}

/// A socket that only another process has open, until the destructor ends that.
class SocketElsewhere final {
public:
    explicit SocketElsewhere(int family)
    {
        const int socket = ::socket(family, SOCK_DGRAM, 0);
        sockaddr_in6 address{};
        address.sin6_family = static_cast<sa_family_t>(family);
        socklen_t size = family == AF_INET ? sizeof(sockaddr_in) : sizeof address;
        auto* place = reinterpret_cast<sockaddr*>(&address);
        EXPECT_EQ(::bind(socket, place, size), 0);
        EXPECT_EQ(::getsockname(socket, place, &size), 0);
        port = ntohs(address.sin6_port); // at the same place in both families
        process = ::fork();
        if (process == 0) {
            ::pause();
            ::_exit(0);
        }
        ::close(socket);
    }
    SocketElsewhere(const SocketElsewhere&) = delete;
    SocketElsewhere& operator=(const SocketElsewhere&) = delete;
    ~SocketElsewhere()
    {
        ::kill(process, SIGKILL);
        ::waitpid(process, nullptr, 0);
    }

    std::uint16_t port = 0;

private:
    pid_t process = -1;
};

TEST(PortHolders, aPortIsHeldByTheProgramThatHasItOpen)
{
    for (const int family : {AF_INET, AF_INET6}) {
        const SocketElsewhere held(family);
        const auto holders = findPortHolders(held.port);
        ASSERT_EQ(holders.size(), 1U);
        EXPECT_EQ(holders.front().program, "test_diagnosis");
        EXPECT_FALSE(holders.front().user.empty());
        EXPECT_TRUE(findPortHolders(held.port == 1 ? 2 : 1).empty());
    }
}

TEST(PortHolders, socketsOfThisProcessAreLeftOut)
{
    const int socket = ::socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(::bind(socket, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    socklen_t size = sizeof address;
    ASSERT_EQ(::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size), 0);
    EXPECT_TRUE(findPortHolders(ntohs(address.sin_port)).empty());
    ::close(socket);
}

} // namespace

} // namespace quillbox::diagnosis
