#include "platform/diagnosis/network_probes.h"
#include "platform/posix/file_descriptor.h"
#include "platform/values/socket_address.h"
#include "platform/values/text.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

namespace quillbox::diagnosis {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::uint16_t kPort = 5353;
constexpr int kHops = 255;
constexpr std::size_t kMostHosts = 1000;

/// Packets read from one socket before the other sockets are read.
constexpr int kMostAtOnce = 64;

std::error_code systemError()
{
    return {errno, std::system_category()};
}

/// A host, whatever its port and scope.
using Host = std::array<std::uint8_t, 16>;

Host hostOf(const SocketAddress& address)
{
    return PlainAddress::of(address).value_or(PlainAddress()).bytes;
}

/// An address of the family and the port.
SocketAddress placeOf(const std::string& host, std::uint16_t port)
{
    return parseNumericHost(host, port).value_or(SocketAddress());
}

template <typename Value> bool set(int socket, int level, int name, const Value& value)
{
    return ::setsockopt(socket, level, name, &value, sizeof value) == 0;
}

/// A multicast DNS query for PTR records (RFC 6762, section 5): for all service types, and for the
/// services of `type`.
std::string questionFor(std::uint16_t identifier, const std::string& type)
{
    constexpr std::string_view kTwoQuestions("\0\0\0\2\0\0\0\0\0\0", 10);
    constexpr std::string_view kEndOfPointerQuestion("\0\0\x0c\0\1", 5);
    std::string message{static_cast<char>(identifier >> 8U), static_cast<char>(identifier & 0xffU)};
    message += kTwoQuestions;
    for (const std::string& name : {std::string("_services._dns-sd._udp.local"), type + ".local"}) {
        // As labels, each preceded by its length (RFC 1035, section 3.1).
        for (std::string_view rest = name; !rest.empty();) {
            const std::string_view label = takePart(rest, '.');
            message += static_cast<char>(label.size());
            message += label;
        }
        message += kEndOfPointerQuestion;
    }
    return message;
}

/// Whether it is a multicast DNS response (RFC 6762, section 18) with at least one answer.
bool isAnswer(std::string_view message)
{
    constexpr std::size_t kHeaderSize = 12;
    return message.size() >= kHeaderSize && (static_cast<unsigned char>(message[2]) & 0x80U) != 0
           && (message[6] != 0 || message[7] != 0);
}

/// One address family on one interface.
class Lane final {
public:
    Lane(int addressFamily, int index, MulticastFacts& result)
        : family(addressFamily),
          interfaceIndex(index),
          level(family == AF_INET ? IPPROTO_IP : IPPROTO_IPV6),
          group(placeOf(family == AF_INET ? "224.0.0.251" : "ff02::fb%" + std::to_string(index),
                        kPort)),
          facts(result),
          listener(open()),
          asker(open())
    {
        set(listener.get(), SOL_SOCKET, SO_REUSEADDR, 1);
        set(listener.get(), SOL_SOCKET, SO_REUSEPORT, 1);
        // Packets of other interfaces would arrive as well. IP_MULTICAST_ALL does not keep them
        // out: with SO_REUSEPORT, Linux 6.18 hands a packet to any of the sockets with the same
        // address.
        if (!set(listener.get(), SOL_SOCKET, SO_BINDTOIFINDEX, interfaceIndex)
            || !bind(listener, group) || !join())
            facts.listenError = systemError();
        // If this fails, sendto() chooses a port, and our own queries are not recognised when they
        // come back.
        bind(asker, placeOf(family == AF_INET ? "0.0.0.0" : "::", 0));
        sockaddr_storage bound{};
        socklen_t size = sizeof bound;
        if (::getsockname(asker.get(), reinterpret_cast<sockaddr*>(&bound), &size) == 0)
            ownPort = portOf(toSocketAddress(reinterpret_cast<const sockaddr*>(&bound)));
    }

    void ask(const std::string& type)
    {
        // One success is enough: sending fails while a new address is still tentative.
        const bool isSent = send(asker, questionFor(ownPort, type));
        const std::error_code error = isSent ? std::error_code() : systemError();
        hasSent = hasSent || isSent;
        facts.sendError = hasSent ? std::error_code() : error;
        if (!facts.sendError && !facts.listenError)
            send(listener, questionFor(0, type));
    }

    int listenerDescriptor() const { return facts.listenError ? -1 : listener.get(); }
    int askerDescriptor() const { return asker.get(); }

    void read(int socket, const std::set<Host>& ownHosts)
    {
        std::array<char, 9000> buffer;
        for (int count = 0; count < kMostAtOnce; ++count) {
            sockaddr_storage storage{};
            socklen_t size = sizeof storage;
            auto* sender = reinterpret_cast<sockaddr*>(&storage);
            const auto length =
                ::recvfrom(socket, buffer.data(), buffer.size(), MSG_DONTWAIT, sender, &size);
            if (length < 0)
                return;
            const SocketAddress from = toSocketAddress(sender);
            const bool isOwn = ownHosts.contains(hostOf(from));
            if (isOwn && portOf(from) == ownPort)
                facts.isOwnHeard = true;
            if (!isOwn && heard.size() < kMostHosts)
                note(hostOf(from), isAnswer({buffer.data(), static_cast<std::size_t>(length)}));
        }
    }

private:
    void note(const Host& host, bool hasAnswered)
    {
        heard.insert(host);
        if (hasAnswered)
            answered.insert(host);
        facts.hostsHeard = heard.size();
        facts.hostsAnswered = answered.size();
    }

    FileDescriptor open() const
    {
        FileDescriptor made(::socket(family, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        if (family == AF_INET) {
            set(made.get(), IPPROTO_IP, IP_MULTICAST_IF,
                ip_mreqn{.imr_multiaddr = {}, .imr_address = {}, .imr_ifindex = interfaceIndex});
            set(made.get(), IPPROTO_IP, IP_MULTICAST_TTL, kHops);
        } else {
            set(made.get(), IPPROTO_IPV6, IPV6_V6ONLY, 1);
            set(made.get(), IPPROTO_IPV6, IPV6_MULTICAST_IF, interfaceIndex);
            set(made.get(), IPPROTO_IPV6, IPV6_MULTICAST_HOPS, kHops);
        }
        return made;
    }

    static bool bind(const FileDescriptor& socket, const SocketAddress& address)
    {
        return ::bind(socket.get(), address.data(), address.size()) == 0;
    }

    bool join() const
    {
        group_req request{};
        request.gr_interface = static_cast<std::uint32_t>(interfaceIndex);
        std::memcpy(&request.gr_group, group.data(), group.size());
        return set(listener.get(), level, MCAST_JOIN_GROUP, request);
    }

    bool send(const FileDescriptor& socket, const std::string& question) const
    {
        return ::sendto(socket.get(), question.data(), question.size(), MSG_NOSIGNAL, group.data(),
                        group.size())
               >= 0;
    }

    const int family;
    const int interfaceIndex;
    const int level;
    const SocketAddress group;
    MulticastFacts& facts;
    const FileDescriptor listener; ///< bound to the group's address and port
    const FileDescriptor asker;    ///< bound to an ephemeral port
    std::uint16_t ownPort = 0;
    bool hasSent = false;
    std::set<Host> heard;
    std::set<Host> answered;
};

void listen(std::vector<std::unique_ptr<Lane>>& lanes, const std::set<Host>& ownHosts,
            Clock::time_point end)
{
    std::vector<pollfd> sockets;
    for (const auto& lane : lanes) {
        sockets.push_back({lane->listenerDescriptor(), POLLIN, 0});
        sockets.push_back({lane->askerDescriptor(), POLLIN, 0});
    }
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
        if (left <= 0 || ::poll(sockets.data(), sockets.size(), static_cast<int>(left)) <= 0)
            return;
        for (std::size_t i = 0; i < sockets.size(); ++i) {
            if (sockets[i].revents != 0)
                lanes[i / 2]->read(sockets[i].fd, ownHosts);
        }
    }
}

} // namespace

void probeMulticast(Survey& survey, const std::string& type, std::chrono::milliseconds duration)
{
    std::vector<std::unique_ptr<Lane>> lanes;
    for (InterfaceFacts& each : survey.interfaces) {
        if (!each.isRunning || !each.hasMulticast || each.kind == InterfaceFacts::Kind::Vpn)
            continue;
        if (each.ipv4.isTried)
            lanes.push_back(std::make_unique<Lane>(AF_INET, each.index, each.ipv4));
        if (each.ipv6.isTried)
            lanes.push_back(std::make_unique<Lane>(AF_INET6, each.index, each.ipv6));
    }
    std::set<Host> ownHosts;
    for (const SocketAddress& each : survey.addresses)
        ownHosts.insert(hostOf(each));
    // Two queries, because packets may be lost, with a pause in between, because a responder does
    // not multicast the same record again within a second (RFC 6762, section 6).
    const auto start = Clock::now();
    for (const int half : {1, 2}) {
        for (const auto& lane : lanes)
            lane->ask(type);
        if (!lanes.empty())
            listen(lanes, ownHosts, start + duration * half / 2);
    }
}

} // namespace quillbox::diagnosis
