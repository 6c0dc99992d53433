#include "platform/diagnosis/multicast_probe.h"

#include "platform/diagnosis/mdns_message.h"
#include "platform/posix/file_descriptor.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <optional>
#include <set>
#include <vector>

#include <arpa/inet.h>
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

/// The bytes of the IP address, without port and scope, for comparison.
std::string hostOf(const sockaddr_storage& address)
{
    if (address.ss_family == AF_INET) {
        const auto* v4 = reinterpret_cast<const sockaddr_in*>(&address);
        return {reinterpret_cast<const char*>(&v4->sin_addr), sizeof v4->sin_addr};
    }
    const auto* v6 = reinterpret_cast<const sockaddr_in6*>(&address);
    return {reinterpret_cast<const char*>(&v6->sin6_addr), sizeof v6->sin6_addr};
}

std::uint16_t portOf(const sockaddr_storage& address)
{
    return ntohs(address.ss_family == AF_INET
                     ? reinterpret_cast<const sockaddr_in*>(&address)->sin_port
                     : reinterpret_cast<const sockaddr_in6*>(&address)->sin6_port);
}

template <typename Value> bool set(int socket, int level, int name, const Value& value)
{
    return ::setsockopt(socket, level, name, &value, sizeof value) == 0;
}

/// The address of the multicast DNS group on an interface, or a local address.
struct Place {
    sockaddr_storage address{};
    socklen_t size = 0;

    const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&address); }
};

Place placeOf(int family, int interfaceIndex, const char* host, std::uint16_t port)
{
    Place place;
    if (family == AF_INET) {
        auto* v4 = reinterpret_cast<sockaddr_in*>(&place.address);
        v4->sin_family = AF_INET;
        v4->sin_port = htons(port);
        ::inet_pton(AF_INET, host, &v4->sin_addr);
        place.size = sizeof *v4;
        return place;
    }
    auto* v6 = reinterpret_cast<sockaddr_in6*>(&place.address);
    v6->sin6_family = AF_INET6;
    v6->sin6_port = htons(port);
    v6->sin6_scope_id = static_cast<std::uint32_t>(interfaceIndex);
    ::inet_pton(AF_INET6, host, &v6->sin6_addr);
    place.size = sizeof *v6;
    return place;
}

/// One address family on one interface.
class Lane final {
public:
    Lane(int addressFamily, int index, MulticastFacts& result)
        : family(addressFamily),
          interfaceIndex(index),
          group(placeOf(family, index, family == AF_INET ? "224.0.0.251" : "ff02::fb", kPort)),
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
            || ::bind(listener.get(), group.get(), group.size) != 0 || !join())
            facts.listenError = systemError();
        const Place anywhere = placeOf(family, 0, family == AF_INET ? "0.0.0.0" : "::", 0);
        // If this fails, sendto() chooses a port, and our own queries are not recognised when they
        // come back.
        static_cast<void>(::bind(asker.get(), anywhere.get(), anywhere.size));
        sockaddr_storage bound{};
        socklen_t size = sizeof bound;
        if (::getsockname(asker.get(), reinterpret_cast<sockaddr*>(&bound), &size) == 0)
            ownPort = portOf(bound);
    }

    void ask(const std::string& type)
    {
        // One success is enough: sending fails while a new address is still tentative.
        const bool isSent = send(asker, mdnsQuestion(ownPort, type));
        const std::error_code error = isSent ? std::error_code() : systemError();
        hasSent = hasSent || isSent;
        facts.sendError = hasSent ? std::error_code() : error;
        if (!facts.sendError && !facts.listenError)
            send(listener, mdnsQuestion(0, type));
    }

    int listenerDescriptor() const { return facts.listenError ? -1 : listener.get(); }
    int askerDescriptor() const { return asker.get(); }

    void read(int socket, const std::set<std::string>& ownHosts)
    {
        std::array<std::byte, 9000> buffer;
        for (int count = 0; count < kMostAtOnce; ++count) {
            sockaddr_storage from{};
            socklen_t size = sizeof from;
            const auto length = ::recvfrom(socket, buffer.data(), buffer.size(), MSG_DONTWAIT,
                                           reinterpret_cast<sockaddr*>(&from), &size);
            if (length < 0)
                return;
            const bool isOwn = ownHosts.contains(hostOf(from));
            if (isOwn && portOf(from) == ownPort)
                facts.isOwnHeard = true;
            if (!isOwn && heard.size() < kMostHosts)
                note(from, isMdnsAnswer({buffer.data(), static_cast<std::size_t>(length)}));
        }
    }

private:
    void note(const sockaddr_storage& from, bool isAnswer)
    {
        heard.insert(hostOf(from));
        if (isAnswer)
            answered.insert(hostOf(from));
        facts.hostsHeard = heard.size();
        facts.hostsAnswered = answered.size();
    }

    FileDescriptor open() const
    {
        FileDescriptor made(::socket(family, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        if (family == AF_INET) {
            set(made.get(), IPPROTO_IP, IP_MULTICAST_IF, membership());
            set(made.get(), IPPROTO_IP, IP_MULTICAST_TTL, kHops);
        } else {
            set(made.get(), IPPROTO_IPV6, IPV6_V6ONLY, 1);
            set(made.get(), IPPROTO_IPV6, IPV6_MULTICAST_IF, interfaceIndex);
            set(made.get(), IPPROTO_IPV6, IPV6_MULTICAST_HOPS, kHops);
        }
        return made;
    }

    ip_mreqn membership() const
    {
        ip_mreqn request{};
        request.imr_ifindex = interfaceIndex;
        ::inet_pton(AF_INET, "224.0.0.251", &request.imr_multiaddr);
        return request;
    }

    bool join() const
    {
        if (family == AF_INET)
            return set(listener.get(), IPPROTO_IP, IP_ADD_MEMBERSHIP, membership());
        ipv6_mreq request{};
        request.ipv6mr_interface = static_cast<unsigned>(interfaceIndex);
        ::inet_pton(AF_INET6, "ff02::fb", &request.ipv6mr_multiaddr);
        return set(listener.get(), IPPROTO_IPV6, IPV6_ADD_MEMBERSHIP, request);
    }

    bool send(const FileDescriptor& socket, const std::vector<std::byte>& question) const
    {
        return ::sendto(socket.get(), question.data(), question.size(), MSG_NOSIGNAL, group.get(),
                        group.size)
               >= 0;
    }

    const int family;
    const int interfaceIndex;
    const Place group;
    MulticastFacts& facts;
    const FileDescriptor listener; ///< bound to the group's address and port
    const FileDescriptor asker;    ///< bound to an ephemeral port
    std::uint16_t ownPort = 0;
    bool hasSent = false;
    std::set<std::string> heard;
    std::set<std::string> answered;
};

std::set<std::string> hostsOf(const std::vector<SocketAddress>& addresses)
{
    std::set<std::string> hosts;
    for (const SocketAddress& each : addresses) {
        sockaddr_storage storage{};
        std::memcpy(&storage, each.data(), std::min<std::size_t>(each.size(), sizeof storage));
        hosts.insert(hostOf(storage));
    }
    return hosts;
}

void listen(std::vector<std::unique_ptr<Lane>>& lanes, const std::set<std::string>& ownHosts,
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
    for (SurveyedInterface& each : survey.interfaces) {
        if (!each.facts.isRunning || !each.facts.hasMulticast
            || each.facts.kind == InterfaceFacts::Kind::Vpn)
            continue;
        if (each.facts.ipv4.isTried)
            lanes.push_back(std::make_unique<Lane>(AF_INET, each.index, each.facts.ipv4));
        if (each.facts.ipv6.isTried)
            lanes.push_back(std::make_unique<Lane>(AF_INET6, each.index, each.facts.ipv6));
    }
    const auto ownHosts = hostsOf(survey.addresses);
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
