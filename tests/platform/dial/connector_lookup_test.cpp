#include "tests/fakes/socket_addresses.h"
#include "tests/platform/tcp/scripted_names.h"
#include "tests/platform/tcp/tcp_harness.h"

#include <memory>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace quillbox {

namespace {

using namespace std::chrono_literals;
using State = Connection::State;

/// Waits until this process has `count` open file descriptors; false on timeout.
bool waitForDescriptors(std::size_t count)
{
    const auto end = std::chrono::steady_clock::now() + kPatience;
    while (openDescriptorCount() != count && std::chrono::steady_clock::now() < end)
        std::this_thread::yield();
    return openDescriptorCount() == count;
}

} // namespace

TEST(Connector, dialsWhatTheNameServiceFound)
{
    ScriptedNames names;
    Harness harness;
    const PeerListener phone("127.0.0.3");
    auto subject = harness.dial(kScriptedName, phone.port());
    ASSERT_TRUE(names.waitForLookups(1, kPatience));
    names.answer({"127.0.0.3"});
    EXPECT_TRUE(subject.log->waitFor(State::Ready));
}

TEST(Connector, mayBeCancelledDuringALookup)
{
    ScriptedNames names;
    Harness harness;
    const PeerListener phone;
    const HostEndpoint endpoint{.host = kScriptedName, .port = phone.port()};
    // The second one gets the answer of the same lookup, after the first one, on the same queue.
    const auto queue = harness.makeQueue();
    Subject cancelled(harness.network->makeConnection(endpoint, {}), queue);
    Subject other(harness.network->makeConnection(endpoint, {}), queue);
    cancelled.start();
    other.start();
    ASSERT_TRUE(names.waitForLookups(1, kPatience));
    cancelled.cancel();
    ASSERT_TRUE(cancelled.log->waitFor(State::Cancelled));
    names.answer({"127.0.0.1"});
    ASSERT_TRUE(other.log->waitFor(State::Ready));
    EXPECT_EQ(cancelled.log->states(), (std::vector{State::Preparing, State::Cancelled}));
    EXPECT_FALSE(names.waitForLookups(2, 0ms));
}

TEST(Connector, mayBeDroppedDuringALookup)
{
    ScriptedNames names;
    Harness harness;
    const PeerListener phone;
    const HostEndpoint endpoint{.host = kScriptedName, .port = phone.port()};
    const auto queue = harness.makeQueue();
    Subject dropped(harness.network->makeConnection(endpoint, {}), queue);
    Subject other(harness.network->makeConnection(endpoint, {}), queue);
    dropped.start();
    other.start();
    ASSERT_TRUE(names.waitForLookups(1, kPatience));
    dropped.drop();
    dropped.settle();
    names.answer({"127.0.0.1"});
    ASSERT_TRUE(other.log->waitFor(State::Ready));
    EXPECT_EQ(dropped.log->states(), std::vector{State::Preparing});
}

TEST(Connector, doesNotFailByFormerAddressesWhileTheNameIsLookedUpAgain)
{
    ScriptedNames names;
    Harness harness;
    auto former = std::make_unique<SilentAddress>("127.0.0.2");
    // Nothing can be sent to the first address, so the connection waits for a change.
    auto subject = harness.dial(kScriptedName, former->port());
    names.answer({"fe80::1"});
    ASSERT_TRUE(subject.log->waitFor(State::Waiting));
    const auto before = openDescriptorCount();
    names.answer({"127.0.0.2"});
    harness.monitor.tellChange();
    ASSERT_TRUE(waitForDescriptors(before + 1)) << "an attempt is pending";
    harness.monitor.tellChange();
    ASSERT_TRUE(names.waitForLookups(3, kPatience));
    // Takes the sockets of `former` with it, and once its kernel sends the request again, the
    // attempt is refused.
    const auto withFormer = openDescriptorCount();
    former.reset();
    ASSERT_TRUE(waitForDescriptors(withFormer - SilentAddress::kDescriptors - 1)) << "refused";
    subject.settle();
    EXPECT_EQ(subject.log->count(State::Failed), 0U);
    names.answer({"127.0.0.2"});
    EXPECT_TRUE(subject.log->waitFor(State::Failed));
    EXPECT_EQ(subject.log->errorOf(State::Failed), std::errc::connection_refused);
}

} // namespace quillbox
