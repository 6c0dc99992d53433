#include "platform/diagnosis/network_probes.h"
#include "tests/fakes/socket_addresses.h"
#include "tests/platform/netlink/network_namespace.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <functional>
#include <future>
#include <map>
#include <string>
#include <thread>
#include <utility>

#include <gmock/gmock.h>
#include <poll.h>
#include <sys/syscall.h>

namespace quillbox::diagnosis {

namespace {

using namespace std::chrono_literals;
using ::testing::Contains;
using ::testing::ElementsAre;
using Kind = InterfaceFacts::Kind;

constexpr const char* kType = "_phone._tcp";

/// A cable between two interfaces of this thread's network namespace, both of them up.
void addCable(const std::string& name, const std::string& other)
{
    ip("link add " + name + " type veth peer name " + other);
    ip("link set " + name + " up");
    ip("link set " + other + " up");
}

const InterfaceFacts& factsOf(const Survey& survey, const std::string& name)
{
    const auto found = std::find_if(survey.interfaces.begin(), survey.interfaces.end(),
                                    [&name](const auto& each) { return each.name == name; });
    static const InterfaceFacts none;
    EXPECT_NE(found, survey.interfaces.end()) << name;
    return found == survey.interfaces.end() ? none : *found;
}

bool holdsIpv4Address(const Survey& survey, const char* text)
{
    in_addr wanted{};
    EXPECT_EQ(::inet_pton(AF_INET, text, &wanted), 1);
    return std::any_of(survey.addresses.begin(), survey.addresses.end(),
                       [&wanted](const SocketAddress& each) {
                           sockaddr_in address{};
                           if (each.size() != sizeof address)
                               return false;
                           std::memcpy(&address, each.data(), sizeof address);
                           return address.sin_addr.s_addr == wanted.s_addr;
                       });
}

TEST(InterfaceSurvey, namesEachInterfaceOnceWithItsAddressesButNotTheLoopback)
{
    inNetworkNamespace([] {
        setLoopbackUp(true);
        addCable("wire0", "wire1");
        ip("addr add 192.0.2.1/24 dev wire0");
        ip("addr add 192.0.2.8/24 dev wire0");
        ip("addr add fd00::1/64 dev wire1 nodad");
        const Survey survey = surveyInterfaces();
        EXPECT_EQ(survey.interfaces.size(), 2U);
        const auto& first = factsOf(survey, "wire0");
        EXPECT_THAT(first.addresses, Contains("192.0.2.1"));
        EXPECT_THAT(first.addresses, Contains("192.0.2.8"));
        EXPECT_TRUE(first.ipv4.isTried);
        EXPECT_TRUE(first.isRunning);
        EXPECT_TRUE(first.hasMulticast);
        EXPECT_EQ(first.kind, Kind::Wired);
        const auto& second = factsOf(survey, "wire1");
        EXPECT_THAT(second.addresses, Contains("fd00::1"));
        EXPECT_TRUE(second.ipv6.isTried);
        EXPECT_FALSE(second.ipv4.isTried);
        EXPECT_TRUE(holdsIpv4Address(survey, "192.0.2.1"));
        EXPECT_TRUE(holdsIpv4Address(survey, "127.0.0.1"));
    });
}

TEST(InterfaceSurvey, tellsWhatRunsFromWhatHasNoCarrierOrIsDown)
{
    inNetworkNamespace([] {
        addCable("wire0", "wire1");
        ip("link set wire1 down");
        ip("link set wire0 multicast off");
        const Survey survey = surveyInterfaces();
        EXPECT_FALSE(factsOf(survey, "wire0").isRunning) << "up, but nothing is connected";
        EXPECT_FALSE(factsOf(survey, "wire0").hasMulticast);
        EXPECT_FALSE(factsOf(survey, "wire1").isRunning);
    });
}

TEST(InterfaceSurvey, knowsBridgesAndTunnels)
{
    inNetworkNamespace([] {
        ip("link add bridge0 type bridge");
        ip("tuntap add dev tunnel0 mode tun");
        const Survey survey = surveyInterfaces();
        EXPECT_EQ(factsOf(survey, "bridge0").kind, Kind::Bridge);
        EXPECT_EQ(factsOf(survey, "tunnel0").kind, Kind::Vpn);
    });
}

TEST(InterfaceSurvey, aDefaultRouteMayConsistOfTwoHalves)
{
    inNetworkNamespace([] {
        addCable("wire0", "wire1");
        addCable("wire2", "wire3");
        ip("route add default dev wire0");
        ip("route add 128.0.0.0/1 dev wire1");
        ip("route add 64.0.0.0/2 dev wire2");
        // As transparent proxies have it: it leads to this computer.
        ip("route add local default dev wire3 table 100");
        const Survey survey = surveyInterfaces();
        for (const char* name : {"wire0", "wire1", "wire2", "wire3"})
            EXPECT_EQ(factsOf(survey, name).hasDefaultRoute, name < std::string("wire2")) << name;
    });
}

TEST(InterfaceSurvey, aNeighbourCountsOnceAndOnlyWhileItIsKnown)
{
    inNetworkNamespace([] {
        addCable("wire0", "wire1");
        ip("addr add 192.0.2.1/24 dev wire0");
        const auto add = [](const std::string& address, const std::string& card,
                            const std::string& state) {
            ip("neigh add " + address + " lladdr 02:00:00:00:00:0" + card + " dev wire0 nud "
               + state);
        };
        add("192.0.2.2", "2", "permanent");
        add("192.0.2.3", "2", "stale");
        add("192.0.2.4", "4", "reachable");
        add("192.0.2.5", "5", "noarp");
        EXPECT_EQ(factsOf(surveyInterfaces(), "wire0").neighbours, 2U);
    });
}

/// A responder in a network namespace of its own, at the other end of a cable. Answers each query
/// that it gets: one from the port of multicast DNS by multicast, others to the asker, and with a
/// response of `size` bytes.
class Responder final {
public:
    /// Takes over the interface, which gets the address. Calls `before` before each answer.
    Responder(const std::string& interface, const std::string& address,
              std::function<void()> before = {}, std::size_t size = 12)
        : whenAsked(std::move(before)), responseSize(size)
    {
        std::promise<long> ready;
        auto place = ready.get_future();
        std::promise<void> connected;
        auto connection = connected.get_future();
        std::promise<void> listening;
        auto listens = listening.get_future();
        thread = std::thread([&, interface, address] {
            const bool isIsolated = ::unshare(CLONE_NEWNET) == 0;
            ready.set_value(isIsolated ? ::syscall(SYS_gettid) : 0);
            connection.wait();
            ip("addr add " + address + "/24 dev " + interface);
            ip("link set " + interface + " up");
            const int socket = open(interface);
            listening.set_value();
            answer(socket);
            ::close(socket);
        });
        ip("link set " + interface + " netns " + std::to_string(place.get()));
        connected.set_value();
        listens.wait();
    }
    Responder(const Responder&) = delete;
    Responder& operator=(const Responder&) = delete;
    ~Responder() { stop(); }

    /// The queries that it got, by the ports from which it was asked.
    std::map<std::uint16_t, std::string> stop()
    {
        isOver = true;
        if (thread.joinable())
            thread.join();
        return queries;
    }

private:
    static int open(const std::string& interface)
    {
        const int socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_in here{};
        here.sin_family = AF_INET;
        here.sin_port = htons(5353);
        EXPECT_EQ(::bind(socket, reinterpret_cast<sockaddr*>(&here), sizeof here), 0);
        ip_mreqn group{};
        group.imr_ifindex = static_cast<int>(::if_nametoindex(interface.c_str()));
        ::inet_pton(AF_INET, "224.0.0.251", &group.imr_multiaddr);
        EXPECT_EQ(::setsockopt(socket, IPPROTO_IP, IP_ADD_MEMBERSHIP, &group, sizeof group), 0);
        EXPECT_EQ(::setsockopt(socket, IPPROTO_IP, IP_MULTICAST_IF, &group, sizeof group), 0);
        const int isOwnHeard = 0;
        EXPECT_EQ(
            ::setsockopt(socket, IPPROTO_IP, IP_MULTICAST_LOOP, &isOwnHeard, sizeof isOwnHeard), 0);
        return socket;
    }

    void answer(int socket)
    {
        while (!isOver) {
            pollfd waiting{socket, POLLIN, 0};
            if (::poll(&waiting, 1, 20) <= 0)
                continue;
            std::array<char, 9000> query{};
            sockaddr_in from{};
            socklen_t size = sizeof from;
            const auto length = ::recvfrom(socket, query.data(), query.size(), 0,
                                           reinterpret_cast<sockaddr*>(&from), &size);
            queries[ntohs(from.sin_port)].assign(query.data(), static_cast<std::size_t>(length));
            if (whenAsked)
                whenAsked();
            if (ntohs(from.sin_port) == 5353)
                ::inet_pton(AF_INET, "224.0.0.251", &from.sin_addr);
            // A response with one answer, whose content nobody reads.
            const std::array<unsigned char, 12> response{0, 0, 0x84, 0, 0, 0, 0, 1, 0, 0, 0, 0};
            ::sendto(socket, response.data(), responseSize, 0, reinterpret_cast<sockaddr*>(&from),
                     size);
        }
    }

    const std::function<void()> whenAsked;
    std::thread thread;
    std::atomic<bool> isOver = false;
    const std::size_t responseSize;
    std::map<std::uint16_t, std::string> queries;
};

/// What the probe finds on one end of a cable after `change` of what the survey says.
template <typename Change> MulticastFacts probed(const Change& change)
{
    Survey survey = surveyInterfaces();
    auto& wire = *std::find_if(survey.interfaces.begin(), survey.interfaces.end(),
                               [](const auto& each) { return each.name == "wire0"; });
    change(wire);
    probeMulticast(survey, kType, 400ms);
    return wire.ipv4;
}

/// Waits until the kernel has noticed that the other end of a cable is up.
void awaitRunning(const std::string& name)
{
    const auto end = std::chrono::steady_clock::now() + 20s;
    while (!factsOf(surveyInterfaces(), name).isRunning && std::chrono::steady_clock::now() < end)
        std::this_thread::yield();
}

void addOwnEnd()
{
    addCable("wire0", "wire1");
    ip("addr add 192.0.2.1/24 dev wire0");
    awaitRunning("wire0");
}

TEST(MulticastProbe, hearsItsOwnQueriesAndTheAnswersOfOthers)
{
    inNetworkNamespace([] {
        addOwnEnd();
        Responder responder("wire1", "192.0.2.2");
        awaitRunning("wire0");
        MulticastFacts facts;
        // Once more if the computer was too slow for the answer to arrive in time.
        for (int attempt = 0; attempt < 20 && facts.hostsAnswered == 0; ++attempt)
            facts = probed([](const auto&) {});
        EXPECT_TRUE(facts.isOwnHeard);
        EXPECT_FALSE(facts.listenError) << facts.listenError.message();
        EXPECT_FALSE(facts.sendError) << facts.sendError.message();
        EXPECT_EQ(facts.hostsHeard, 1U);
        EXPECT_EQ(facts.hostsAnswered, 1U);
        const auto queries = responder.stop();
        EXPECT_GE(queries.size(), 2U);
        ASSERT_TRUE(queries.contains(5353)) << "it asks for answers by multicast, too";
        using namespace std::string_literals;
        EXPECT_EQ(queries.at(5353), "\0\0\0\0\0\2\0\0\0\0\0\0"s
                                    "\x09_services\x07_dns-sd\x04_udp\x05local\0\0\x0c\0\1"s
                                    "\x06_phone\x04_tcp\x05local\0\0\x0c\0\1"s);
        const auto& own = *queries.rbegin();
        EXPECT_EQ(own.second.substr(0, 2),
                  (std::string{static_cast<char>(own.first >> 8U), static_cast<char>(own.first)}));
    });
}

TEST(MulticastProbe, hearsItsOwnQueriesOverIpv6)
{
    inNetworkNamespace([] {
        addCable("wire0", "wire1");
        ip("addr add fd00::1/64 dev wire0 nodad");
        awaitRunning("wire0");
        Survey survey = surveyInterfaces();
        const auto& facts = factsOf(survey, "wire0").ipv6;
        for (int attempt = 0; attempt < 20 && !facts.isOwnHeard; ++attempt)
            probeMulticast(survey, kType, 400ms);
        EXPECT_TRUE(facts.isOwnHeard);
        EXPECT_FALSE(facts.listenError) << facts.listenError.message();
        EXPECT_FALSE(facts.sendError) << facts.sendError.message();
    });
}

TEST(MulticastProbe, takesNothingForAnAnswerThatIsShorterThanAHeader)
{
    inNetworkNamespace([] {
        addOwnEnd();
        const Responder responder("wire1", "192.0.2.2", {}, 11);
        awaitRunning("wire0");
        MulticastFacts facts;
        for (int attempt = 0; attempt < 20 && facts.hostsHeard == 0; ++attempt)
            facts = probed([](const auto&) {});
        EXPECT_EQ(facts.hostsHeard, 1U);
        EXPECT_EQ(facts.hostsAnswered, 0U);
    });
}

TEST(MulticastProbe, tellsItsOwnQueriesFromWhatOtherProgramsOfThisComputerSend)
{
    inNetworkNamespace([] {
        addOwnEnd();
        const Responder responder("wire1", "192.0.2.2");
        awaitRunning("wire0");
        Survey survey = surveyInterfaces();
        const auto& facts = factsOf(survey, "wire0").ipv4;
        // As if the responder was on this computer, and the queries came from elsewhere.
        survey.addresses = {ipv4Address("192.0.2.2", 0)};
        probeMulticast(survey, kType, 400ms);
        EXPECT_FALSE(facts.isOwnHeard);
        EXPECT_EQ(facts.hostsHeard, 1U);
        EXPECT_EQ(facts.hostsAnswered, 0U);
    });
}

TEST(MulticastProbe, hearsOnAnInterfaceOnlyWhatArrivesThere)
{
    inNetworkNamespace([] {
        addOwnEnd();
        addCable("wire2", "wire3");
        ip("addr add 198.51.100.1/24 dev wire2");
        const Responder responder("wire3", "198.51.100.2");
        awaitRunning("wire2");
        Survey survey = surveyInterfaces();
        const auto& silent = factsOf(survey, "wire0").ipv4;
        const auto& answered = factsOf(survey, "wire2").ipv4;
        for (int attempt = 0; attempt < 20 && answered.hostsAnswered == 0; ++attempt)
            probeMulticast(survey, kType, 400ms);
        EXPECT_EQ(answered.hostsAnswered, 1U);
        EXPECT_EQ(silent.hostsHeard, 0U);
        EXPECT_TRUE(silent.isOwnHeard);
    });
}

TEST(MulticastProbe, takesOneQueryThatWasSentForEnough)
{
    inNetworkNamespace([] {
        addOwnEnd();
        // Ends both ends of the cable.
        const Responder responder("wire1", "192.0.2.2", [] {
            if (::if_nametoindex("wire1") != 0)
                ip("link delete wire1");
        });
        awaitRunning("wire0");
        const auto facts = probed([](const auto&) {});
        EXPECT_FALSE(facts.sendError) << facts.sendError.message();
    });
}

TEST(MulticastProbe, saysThatItCannotSend)
{
    inNetworkNamespace([] {
        addOwnEnd();
        EXPECT_EQ(probed([](auto&) { ip("link set wire0 down"); }).sendError,
                  std::errc::network_unreachable);
    });
}

TEST(MulticastProbe, leavesOutVpnsAndWhatHasNoMulticastOrDoesNotRun)
{
    inNetworkNamespace([] {
        addOwnEnd();
        const auto isHeard = [](const auto& change) { return probed(change).isOwnHeard; };
        EXPECT_FALSE(isHeard([](auto& wire) { wire.kind = Kind::Vpn; }));
        EXPECT_FALSE(isHeard([](auto& wire) { wire.hasMulticast = false; }));
        EXPECT_FALSE(isHeard([](auto& wire) { wire.isRunning = false; }));
        EXPECT_TRUE(isHeard([](const auto&) {}));
    });
}

TEST(MulticastProbe, saysThatItCannotJoinTheGroup)
{
    inNetworkNamespace([] {
        addOwnEnd();
        EXPECT_EQ(probed([](auto& wire) { wire.index = 9999; }).listenError,
                  std::errc::no_such_device);
    });
}

} // namespace

} // namespace quillbox::diagnosis
