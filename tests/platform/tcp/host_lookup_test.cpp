#include "platform/tcp/dialable_address.h"
#include "platform/tcp/host_lookup.h"

#include <algorithm>
#include <future>
#include <thread>

#include <gtest/gtest.h>

namespace quillbox {

namespace {

struct Answer {
    std::vector<SocketAddress> addresses;
    std::error_code error;
    std::thread::id thread;
};

std::future<Answer> ask(HostLookup& lookup, const std::string& name)
{
    auto promise = std::make_shared<std::promise<Answer>>();
    auto future = promise->get_future();
    lookup.lookUp(name,
                  [promise](const std::vector<SocketAddress>& addresses, std::error_code error) {
                      promise->set_value({addresses, error, std::this_thread::get_id()});
                  });
    return future;
}

} // namespace

TEST(HostLookup, findsALocalName)
{
    const auto lookup = std::make_shared<HostLookup>();
    const auto answer = ask(*lookup, "localhost").get();
    EXPECT_FALSE(answer.error);
    ASSERT_FALSE(answer.addresses.empty());
    EXPECT_TRUE(std::all_of(answer.addresses.begin(), answer.addresses.end(), isLoopback));
    EXPECT_NE(answer.thread, std::this_thread::get_id());
}

TEST(HostLookup, answersEveryOneWhoAsksForTheSameName)
{
    const auto lookup = std::make_shared<HostLookup>();
    auto first = ask(*lookup, "localhost");
    auto second = ask(*lookup, "localhost");
    EXPECT_EQ(first.get().addresses, second.get().addresses);
}

TEST(HostLookup, tellsThatAnImpossibleNameIsNotFound)
{
    const auto lookup = std::make_shared<HostLookup>();
    const auto answer = ask(*lookup, std::string(300, 'x')).get();
    EXPECT_TRUE(answer.error);
    EXPECT_FALSE(answer.error.message().empty());
    EXPECT_TRUE(answer.addresses.empty());
}

} // namespace quillbox
