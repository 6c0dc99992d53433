#include "platform/dial/proven_addresses.h"
#include "platform/tcp/own_ports.h"
#include "platform/tcp/socket_ledger.h"
#include "tests/fakes/socket_addresses.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/resource.h>

namespace quillbox {

namespace {

using namespace std::chrono_literals;

constexpr bool kIsOwn = true;

} // namespace

class SocketLedgerTest : public testing::Test {
protected:
    /// Admits clients of that host until one is refused; returns the number of the others.
    std::size_t admitAll(const std::string& host, bool isOwn = false)
    {
        for (std::size_t count = 0; count < 100; ++count) {
            // Each connection has another port.
            auto place =
                ledger->admit(ipv4Address(host, static_cast<std::uint16_t>(40000 + count)), isOwn);
            if (!place)
                return count;
            places.push_back(std::move(place));
        }
        return 100;
    }

    void open(int count)
    {
        for (int number = 0; number < count; ++number)
            places.push_back(ledger->open());
    }

    const std::shared_ptr<SocketLedger> ledger = std::make_shared<SocketLedger>(48);
    std::vector<SocketLedger::Place> places;
};

TEST_F(SocketLedgerTest, callsOnceAfterTheNextClose)
{
    auto first = ledger->open();
    auto second = ledger->open();
    int calls = 0;
    ledger->afterNextClose([&calls] { ++calls; });
    EXPECT_EQ(calls, 0);
    first.reset();
    EXPECT_EQ(calls, 1);
    second.reset();
    EXPECT_EQ(calls, 1);
}

TEST_F(SocketLedgerTest, letsACallAskForTheOneAfter)
{
    auto first = ledger->open();
    auto second = ledger->open();
    int calls = 0;
    ledger->afterNextClose([&] { ledger->afterNextClose([&calls] { ++calls; }); });
    first.reset();
    EXPECT_EQ(calls, 0);
    second.reset();
    EXPECT_EQ(calls, 1);
}

TEST_F(SocketLedgerTest, waitsUntilNoneIsOpen)
{
    EXPECT_TRUE(ledger->waitUntilNoneIsOpen(0ms));
    auto place = ledger->open();
    EXPECT_EQ(ledger->openCount(), 1U);
    EXPECT_FALSE(ledger->waitUntilNoneIsOpen(10ms));
    std::thread closer([&place] { place.reset(); });
    EXPECT_TRUE(ledger->waitUntilNoneIsOpen(20s));
    closer.join();
}

TEST_F(SocketLedgerTest, admitsAHostWhileItHasFewerConnectionsThanThereAreSocketsLeft)
{
    EXPECT_EQ(admitAll("192.0.2.1"), 24U);
    EXPECT_EQ(ledger->openCount(), 24U);
    EXPECT_EQ(admitAll("192.0.2.2"), 12U);
    EXPECT_EQ(admitAll("192.0.2.1"), 0U);
    EXPECT_EQ(admitAll("192.0.2.3"), 6U);
}

TEST_F(SocketLedgerTest, countsTheConnectionsToPhonesToo)
{
    open(16);
    EXPECT_EQ(admitAll("192.0.2.1"), 16U);
    open(16);
    EXPECT_EQ(admitAll("192.0.2.2"), 0U);
    // Connections to phones may use as many as clients of this computer.
    open(6);
    EXPECT_EQ(ledger->openCount(), 54U);
    EXPECT_EQ(admitAll("192.0.2.2"), 0U);
    EXPECT_FALSE(ledger->open());
}

TEST_F(SocketLedgerTest, admitsAHostAgainWhenItHasClosedConnections)
{
    EXPECT_EQ(admitAll("192.0.2.1"), 24U);
    places.pop_back();
    places.pop_back();
    EXPECT_EQ(admitAll("192.0.2.1"), 2U);
    places.clear();
    EXPECT_EQ(ledger->openCount(), 0U);
    EXPECT_EQ(admitAll("192.0.2.1"), 24U);
}

TEST_F(SocketLedgerTest, hasSomethingLeftForThisComputerWhenOthersTakeAll)
{
    for (int host = 1; host <= 100; ++host)
        admitAll("192.0.2." + std::to_string(host));
    EXPECT_EQ(ledger->openCount(), 48U);
    EXPECT_EQ(admitAll("127.0.0.1", kIsOwn), 3U);
    EXPECT_EQ(admitAll("127.0.0.1", kIsOwn), 0U);
}

TEST_F(SocketLedgerTest, hasPlentyWhileLessThanHalfOfThePlacesAreTaken)
{
    open(23);
    EXPECT_TRUE(ledger->hasPlenty());
    open(1);
    EXPECT_FALSE(ledger->hasPlenty());
}

TEST_F(SocketLedgerTest, keepsNoMemoryOfHostsThatHaveNoConnections)
{
    const auto admitOneOfEach = [this](int hosts) {
        for (int host = 0; host < hosts; ++host)
            EXPECT_EQ(ledger->admit(ipv4Address("10.1." + std::to_string(host / 256) + '.'
                                                    + std::to_string(host % 256),
                                                40000),
                                    false)
                          != nullptr,
                      ledger->openCount() < 48);
    };
    admitOneOfEach(10);
    const auto before = ::mallinfo2().uordblks; // 0 with AddressSanitizer
    admitOneOfEach(2000);
    EXPECT_LT(::mallinfo2().uordblks, before + 50'000) << "of those that have closed them";
    open(48);
    admitOneOfEach(2000);
    EXPECT_LT(::mallinfo2().uordblks, before + 50'000) << "of those that were refused";
}

TEST(ProvenAddresses, areTheLatest)
{
    ProvenAddresses proven;
    const auto number = [](std::uint16_t port) { return ipv4Address("192.0.2.1", port); };
    for (std::uint16_t port = 1; port <= ProvenAddresses::kMost; ++port)
        proven.add(number(port));
    EXPECT_TRUE(proven.contains(number(1)));
    proven.add(number(ProvenAddresses::kMost - 1));
    EXPECT_TRUE(proven.contains(number(1))) << "no address takes two places";
    proven.add(number(1));
    proven.add(number(1000));
    EXPECT_FALSE(proven.contains(number(2)));
    for (const int port : {1, 3, 255, 256, 1000})
        EXPECT_TRUE(proven.contains(number(static_cast<std::uint16_t>(port)))) << port;
}

TEST(OwnPorts, areThoseThatSomeListenerHas)
{
    OwnPorts ports;
    auto one = ports.add(445);
    auto other = ports.add(445);
    one.reset();
    EXPECT_TRUE(ports.contains(445)) << "the other listener has it";
    other.reset();
    EXPECT_FALSE(ports.contains(445));
}

TEST(SocketLedger, isLimitedByTheDescriptorsOfTheProcess)
{
    rlimit before{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
    auto limit = before;
    for (const auto& [descriptors, most] :
         {std::pair<rlim_t, std::size_t>{1000, 800}, {before.rlim_max, 16'384}}) {
        if (descriptors != 1000 && descriptors < 20'480)
            continue; // too few here to see the other limit
        limit.rlim_cur = descriptors;
        EXPECT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
        EXPECT_EQ(SocketLedger::defaultMost(), most);
    }
    ::setrlimit(RLIMIT_NOFILE, &before);
}

} // namespace quillbox
