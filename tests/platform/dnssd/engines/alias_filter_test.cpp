#include "platform/dnssd/processes/alias_filter.h"
#include "tests/platform/dnssd/engines/engine_network_test.h"

#include <array>
#include <memory>
#include <span>

#include <arpa/inet.h>
#include <avahi-common/simple-watch.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace quillbox::dnssd {

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint8_t kAddress = 1;
constexpr std::uint8_t kCanonicalName = 5;
constexpr std::uint8_t kDelegatedName = 39;

/// A record of "x.local" with this type and so many bytes of data; with a pointer in place of the
/// name if it is `compressed`.
Bytes record(std::uint8_t type, std::uint8_t size = 4, bool compressed = false)
{
    Bytes bytes = compressed ? Bytes{0xc0, 12} : Bytes{1, 'x', 5, 'l', 'o', 'c', 'a', 'l', 0};
    for (const std::uint8_t byte : {std::uint8_t{0}, type, std::uint8_t{0}, std::uint8_t{1}})
        bytes.push_back(byte);
    bytes.resize(bytes.size() + 4); // lifetime
    bytes.push_back(0);
    bytes.push_back(size);
    bytes.resize(bytes.size() + size, 7);
    return bytes;
}

Bytes message(const std::array<std::uint8_t, 4>& counts, const std::vector<Bytes>& parts)
{
    Bytes bytes{0, 0, 0x84, 0};
    for (const std::uint8_t count : counts) {
        bytes.push_back(0);
        bytes.push_back(count);
    }
    for (const Bytes& part : parts)
        bytes.insert(bytes.end(), part.begin(), part.end());
    return bytes;
}

const Bytes kQuestion{1, 'x', 5, 'l', 'o', 'c', 'a', 'l', 0, 0, 255, 0, 1};

TEST(AliasFilter, acceptsMessagesWithoutAliases)
{
    EXPECT_TRUE(isFreeOfAliases(message({0, 0, 0, 0}, {})));
    EXPECT_TRUE(isFreeOfAliases(message({1, 0, 0, 0}, {kQuestion})));
    EXPECT_TRUE(isFreeOfAliases(
        message({1, 1, 1, 1}, {kQuestion, record(kAddress), record(33, 0), record(12, 9, true)})));
    Bytes longer = message({0, 1, 0, 0}, {record(kAddress)});
    longer.push_back(0);
    EXPECT_TRUE(isFreeOfAliases(longer)) << "bytes behind the records belong to nothing";
}

TEST(AliasFilter, findsAnAliasInEachSection)
{
    for (const std::uint8_t type : {kCanonicalName, kDelegatedName}) {
        for (const bool compressed : {false, true}) {
            const Bytes alias = record(type, 2, compressed);
            EXPECT_FALSE(isFreeOfAliases(message({0, 1, 0, 0}, {alias})));
            EXPECT_FALSE(isFreeOfAliases(message({0, 0, 1, 0}, {alias})));
            EXPECT_FALSE(isFreeOfAliases(message({0, 0, 0, 1}, {alias})));
            EXPECT_FALSE(isFreeOfAliases(
                message({1, 2, 0, 1}, {kQuestion, record(kAddress), record(12), alias})));
        }
    }
}

TEST(AliasFilter, acceptsNothingThatIsCutOff)
{
    const Bytes whole =
        message({1, 1, 0, 1}, {kQuestion, record(kAddress, 4, true), record(12, 200)});
    EXPECT_TRUE(isFreeOfAliases(whole));
    for (std::size_t size = 0; size < whole.size(); ++size)
        EXPECT_FALSE(isFreeOfAliases(std::span(whole).first(size))) << size;
}

/// A loop with a UDP socket in it, and what was read from that socket.
class AliasFilterLoop : public EngineNetworkTest {
protected:
    void SetUp() override
    {
        EngineNetworkTest::SetUp();
        if (IsSkipped() || HasFatalFailure())
            return;
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        ASSERT_EQ(::bind(reading, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        ASSERT_EQ(::getsockname(reading, reinterpret_cast<sockaddr*>(&address), &size), 0);
        ASSERT_EQ(::connect(writing, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        const AvahiPoll* poll = filter.poll();
        watch = poll->watch_new(poll, reading, AVAHI_WATCH_IN, &AliasFilterLoop::onReadable, this);
    }
    void TearDown() override
    {
        if (watch != nullptr)
            filter.poll()->watch_free(watch);
        ::close(reading);
        ::close(writing);
    }

    static void onReadable(AvahiWatch* /*watch*/, int descriptor, AvahiWatchEvent /*event*/,
                           void* context)
    {
        Bytes bytes(10'000);
        const ssize_t length = ::recv(descriptor, bytes.data(), bytes.size(), MSG_DONTWAIT);
        bytes.resize(length > 0 ? static_cast<std::size_t>(length) : 0);
        static_cast<AliasFilterLoop*>(context)->received.push_back(bytes);
    }

    void send(const Bytes& bytes) const
    {
        ASSERT_EQ(::send(writing, bytes.data(), bytes.size(), 0),
                  static_cast<ssize_t>(bytes.size()));
    }

    void turn() const { avahi_simple_poll_iterate(loop.get(), 5000); }

    const std::unique_ptr<AvahiSimplePoll, decltype(&avahi_simple_poll_free)> loop{
        avahi_simple_poll_new(), &avahi_simple_poll_free};
    AliasFilter filter{*avahi_simple_poll_get(loop.get())};
    int reading = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    int writing = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    AvahiWatch* watch = nullptr;
    std::vector<Bytes> received;
};

TEST_F(AliasFilterLoop, discardsWhatTheLibraryIsNotToRead)
{
    const Bytes good = message({0, 1, 0, 0}, {record(kAddress)});
    send(message({0, 1, 0, 0}, {record(kCanonicalName)}));
    send(Bytes{1, 2, 3});
    send(Bytes(9001)); // longer than a message may be
    send(good);
    for (int count = 0; count < 4; ++count)
        turn();
    EXPECT_EQ(received, std::vector<Bytes>{good});
}

TEST_F(AliasFilterLoop, makesRoomForBursts)
{
    int filtered = 0;
    int usual = 0;
    socklen_t size = sizeof filtered;
    ASSERT_EQ(::getsockopt(reading, SOL_SOCKET, SO_RCVBUF, &filtered, &size), 0);
    ASSERT_EQ(::getsockopt(writing, SOL_SOCKET, SO_RCVBUF, &usual, &size), 0);
    EXPECT_GE(filtered, 2 * usual);
}

TEST_F(AliasFilterLoop, filtersIPv6AsWell)
{
    const int ipv6 = ::socket(AF_INET6, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in6 address{};
    address.sin6_family = AF_INET6;
    address.sin6_addr = in6addr_loopback;
    socklen_t size = sizeof address;
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    if (::bind(ipv6, generic, size) != 0 || ::getsockname(ipv6, generic, &size) != 0
        || ::connect(ipv6, generic, size) != 0) {
        ::close(ipv6);
        GTEST_SKIP() << "no IPv6 here";
    }
    const AvahiPoll* poll = filter.poll();
    AvahiWatch* other =
        poll->watch_new(poll, ipv6, AVAHI_WATCH_IN, &AliasFilterLoop::onReadable, this);
    const Bytes good = message({0, 1, 0, 0}, {record(kAddress)});
    for (const Bytes& bytes : {message({0, 1, 0, 0}, {record(kCanonicalName)}), good}) {
        ASSERT_EQ(::send(ipv6, bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
        turn();
    }
    EXPECT_EQ(received, std::vector<Bytes>{good});
    poll->watch_free(other);
    ::close(ipv6);
}

TEST_F(AliasFilterLoop, leavesStreamsAlone)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(::bind(listener, generic, size), 0);
    ASSERT_EQ(::listen(listener, 1), 0);
    ASSERT_EQ(::getsockname(listener, generic, &size), 0);
    const int client = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(::connect(client, generic, size), 0);
    const int accepted = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    const AvahiPoll* poll = filter.poll();
    AvahiWatch* other =
        poll->watch_new(poll, accepted, AVAHI_WATCH_IN, &AliasFilterLoop::onReadable, this);
    ASSERT_EQ(::send(client, "x", 1, 0), 1);
    turn();
    EXPECT_EQ(received, std::vector<Bytes>{Bytes{'x'}});
    poll->watch_free(other);
    for (const int descriptor : {listener, client, accepted})
        ::close(descriptor);
}

TEST_F(AliasFilterLoop, readsNothingWhenTheSocketMayBeWritten)
{
    const Bytes alias = message({0, 1, 0, 0}, {record(kCanonicalName)});
    send(alias);
    const AvahiPoll* poll = filter.poll();
    poll->watch_update(watch, AVAHI_WATCH_OUT);
    turn();
    EXPECT_EQ(received, std::vector<Bytes>{alias}) << "the library has read it itself";
}

TEST_F(AliasFilterLoop, leavesOtherDescriptorsAlone)
{
    std::array<int, 2> pair{};
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, pair.data()), 0);
    const AvahiPoll* poll = filter.poll();
    AvahiWatch* other =
        poll->watch_new(poll, pair[0], AVAHI_WATCH_IN, &AliasFilterLoop::onReadable, this);
    ASSERT_EQ(::send(pair[1], "x", 1, 0), 1);
    turn();
    EXPECT_EQ(received, std::vector<Bytes>{Bytes{'x'}});
    poll->watch_free(other);
    ::close(pair[0]);
    ::close(pair[1]);
}

} // namespace

} // namespace quillbox::dnssd
