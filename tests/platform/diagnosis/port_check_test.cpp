#include "platform/dial/dialable_address.h"
#include "platform/dial/port_check.h"
#include "platform/tcp/socket_calls.h"
#include "platform/values/socket_address.h"

#include <chrono>

#include <gtest/gtest.h>
#include <unistd.h>

namespace quillbox {

namespace {

using State = PortFacts::State;

TEST(PortCheck, tellsOpenPortsFromThoseThatRefuse)
{
    std::error_code error;
    const int listener = openListeningSocket(0, false, error);
    ASSERT_FALSE(error);
    const std::uint16_t port = localPort(listener);
    const auto open = *parseNumericHost("127.0.0.1", port);
    // Nothing listens on port 1 of the last loopback address.
    const auto closed = *parseNumericHost("127.255.255.254", 1);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(checkPorts({{closed}, {open}}, std::chrono::seconds(20)),
              (std::vector<State>{State::Refused, State::Open}));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
    ::close(listener);
}

TEST(PortCheck, whatCannotBeReachedIsKnownAtOnce)
{
    // A link-local address without a scope.
    EXPECT_EQ(checkPorts({{*parseNumericHost("fe80::1", 4445)}}, std::chrono::seconds(20)),
              std::vector<State>{State::Unreachable});
}

TEST(PortCheck, portsAreReachedThroughTheInterfaceThatIsNamed)
{
    constexpr int kNoInterface = 2'000'000'000;
    std::error_code error;
    const int listener = openListeningSocket(0, false, error);
    ASSERT_FALSE(error);
    const auto open = *parseNumericHost("127.0.0.1", localPort(listener));
    EXPECT_EQ(
        checkPorts({{open, kLoopbackInterface}, {open, kNoInterface}}, std::chrono::seconds(20)),
        (std::vector<State>{State::Open, State::Unreachable}));
    ::close(listener);
}

TEST(PortCheck, nothingToTryIsNothingFound)
{
    EXPECT_TRUE(checkPorts({}, std::chrono::seconds(20)).empty());
}

} // namespace

} // namespace quillbox
