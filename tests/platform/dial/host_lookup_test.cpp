#include "platform/dial/dialable_address.h"
#include "platform/dial/host_lookup.h"
#include "tests/platform/tcp/refused_calls.h"
#include "tests/platform/tcp/scripted_names.h"
#include "tests/platform/tcp/tcp_harness.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <future>
#include <memory>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <netdb.h>
#include <sys/syscall.h>

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

TEST(HostLookup, asksOnlyForFamiliesThatThisComputerHas)
{
    ScriptedNames names;
    const auto lookup = std::make_shared<HostLookup>();
    auto answer = ask(*lookup, kScriptedName);
    ASSERT_TRUE(names.waitForLookups(1, kPatience));
    EXPECT_NE(names.lastFlags() & AI_ADDRCONFIG, 0);
    names.answer({});
    EXPECT_EQ(answer.get().error, hostNotFound());
}

TEST(HostLookup, tellsThatNoServerAnswers)
{
    const auto lookup = std::make_shared<HostLookup>();
    std::future<Answer> answer;
    {
        const ScriptedNames names;
        answer = ask(*lookup, kScriptedName);
        ASSERT_TRUE(names.waitForLookups(1, kPatience));
    }
    const auto error = answer.get().error;
    EXPECT_EQ(error.value(), EAI_AGAIN);
    EXPECT_NE(error.message(), hostNotFound().message());
}

TEST(HostLookup, tellsThatThereIsNoThreadForIt)
{
    bool isRefused = false;
    std::future<Answer> answer;
    std::thread([&] {
        isRefused = refuseCalls(SYS_clone3, EAGAIN) && refuseCalls(SYS_clone, EAGAIN);
        answer = ask(*std::make_shared<HostLookup>(), "localhost");
    }).join();
    if (!isRefused)
        GTEST_SKIP() << "no permission to filter system calls";
    ASSERT_EQ(answer.wait_for(std::chrono::seconds(0)), std::future_status::ready);
    EXPECT_EQ(answer.get().error, std::errc::resource_unavailable_try_again);
}

} // namespace quillbox
