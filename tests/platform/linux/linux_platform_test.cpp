#include "platform/dispatch/dispatch_pool.h"
#include "platform/linux/linux_platform.h"
#include "tests/fakes/recording_log.h"
#include "tests/fakes/socket_addresses.h"
#include "tests/platform/netlink/network_namespace.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <future>
#include <iterator>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

namespace quillbox {

namespace {

using namespace std::chrono_literals;

constexpr auto kPatience = 20s;
constexpr std::uint16_t kPort = 4450;

/// A platform in a network namespace of its own. Its main queue is another thread.
class PlatformHere final {
public:
    explicit PlatformHere(DnsSdMode mode)
        : platform(mainPool.makeQueue("main", QualityOfService::UserInitiated), mode,
                   Reach::ThisComputer, log)
    {
        log.isTelling = false;
    }

    std::shared_ptr<Listener> listen()
    {
        std::error_code error;
        auto listener = platform.makeListener({}, kPort, error);
        EXPECT_TRUE(listener) << error.message();
        return listener;
    }

    std::shared_ptr<DispatchQueue> makeQueue()
    {
        return platform.makeQueue("test", QualityOfService::UserInitiated);
    }

private:
    DispatchPool mainPool;
    RecordingLog log;

public:
    LinuxPlatform platform;
};

/// Cancels a listener on its queue, and drops this reference to it there.
void cancelOn(DispatchQueue& queue, std::shared_ptr<Listener> listener)
{
    std::promise<void> cancelled;
    queue.async([&] {
        listener->cancel();
        listener = nullptr;
        cancelled.set_value();
    });
    cancelled.get_future().wait();
}

std::ptrdiff_t openDescriptors()
{
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return std::distance(begin(all), end(all));
}

/// Ready when it has been destroyed.
class LastWord final {
public:
    explicit LastWord(std::promise<void>& end) : told(end) {}
    LastWord(const LastWord&) = delete;
    LastWord& operator=(const LastWord&) = delete;
    ~LastWord() { told.set_value(); }

private:
    std::promise<void>& told;
};

TEST(LinuxPlatform, findsTheFileServerThatItAdvertises)
{
    inNetworkNamespace([] {
        setLoopbackUp(true);
        std::promise<void> ready;
        std::promise<std::optional<HostEndpoint>> located;
        PlatformHere here(DnsSdMode::Embedded);
        const auto queue = here.makeQueue();
        auto listener = here.listen();
        listener->setService({.name = "Office", .type = "_smb._tcp"});
        listener->setStateUpdateHandler([&ready](Listener::State state, std::error_code) {
            if (state == Listener::State::Ready)
                ready.set_value();
        });
        listener->setNewConnectionHandler([](const auto&) {});
        listener->start(queue);
        ASSERT_EQ(ready.get_future().wait_for(kPatience), std::future_status::ready);
        here.platform.mainQueue()->async([&] {
            here.platform.locate("Office",
                                 [&located](auto found) { located.set_value(std::move(found)); });
        });
        auto result = located.get_future();
        ASSERT_EQ(result.wait_for(kPatience), std::future_status::ready);
        EXPECT_EQ(result.get().value_or(HostEndpoint()).port, kPort);
        cancelOn(*queue, std::move(listener));
        here.platform.shutDown();
    });
}

TEST(LinuxPlatform, seesThatFileManagersListNothingWithoutTheDaemon)
{
    inNetworkNamespace([] {
        setLoopbackUp(true);
        std::promise<bool> changed;
        PlatformHere here(DnsSdMode::Automatic);
        NetworkView& view = here.platform;
        view.setChangedHandler([&] { changed.set_value(view.isAvailable()); });
        EXPECT_TRUE(view.isAvailable());
        const auto browser = here.platform.makeBrowser("_smb._tcp", {});
        auto isAvailable = changed.get_future();
        ASSERT_EQ(isAvailable.wait_for(kPatience), std::future_status::ready);
        EXPECT_FALSE(isAvailable.get());
        here.platform.shutDown();
    });
}

/// The engine then still tells that there is no daemon, which the platform knows.
TEST(LinuxPlatform, toleratesNewsOfTheDaemonAfterItsEnd)
{
    inNetworkNamespace([] {
        setLoopbackUp(true);
        std::promise<void> released;
        std::promise<void> ready;
        std::promise<void> done;
        DispatchPool mainPool;
        const auto mainQueue = mainPool.makeQueue("main", QualityOfService::UserInitiated);
        mainQueue->async([release = released.get_future().share()] { release.wait(); });
        {
            RecordingLog log;
            log.isTelling = false;
            LinuxPlatform platform(mainQueue, DnsSdMode::Automatic, Reach::ThisComputer, log);
            platform.setChangedHandler([] { FAIL() << "its owner is gone"; });
            const auto browser = platform.makeBrowser("_smb._tcp", {});
            browser->setResultsChangedHandler([](const auto&) {});
            browser->setStateUpdateHandler([&ready](Browser::State state, std::error_code) {
                if (state == Browser::State::Ready)
                    ready.set_value();
            });
            browser->start(platform.makeQueue("test", QualityOfService::Utility));
            // The engine without the daemon is up, and has told so before.
            EXPECT_EQ(ready.get_future().wait_for(kPatience), std::future_status::ready);
            browser->cancel();
        }
        released.set_value();
        mainQueue->async([&done] { done.set_value(); });
        EXPECT_EQ(done.get_future().wait_for(kPatience), std::future_status::ready);
        mainPool.shutdown();
    });
}

TEST(LinuxPlatform, isNoLongerUsedAfterItIsShutDown)
{
    inNetworkNamespace([] {
        setLoopbackUp(true);
        PlatformHere here(DnsSdMode::Daemon);
        const auto before = openDescriptors();
        here.listen()->cancel();
        EXPECT_GT(openDescriptors(), before);
        here.platform.shutDown();
        EXPECT_EQ(openDescriptors(), before);
        EXPECT_EQ(here.platform.traffic().total, Traffic());
        here.platform.locate("Office", [](const auto&) { FAIL(); });
        here.platform.shutDown();
    });
}

TEST(LinuxPlatform, runsNoWorkOnceItIsShutDown)
{
    inNetworkNamespace([] {
        PlatformHere here(DnsSdMode::Daemon);
        const auto queue = here.makeQueue();
        here.platform.shutDown();
        std::promise<void> dropped;
        auto end = dropped.get_future();
        bool hasRun = false;
        queue->async([word = std::make_shared<LastWord>(dropped), &hasRun] { hasRun = true; });
        EXPECT_EQ(end.wait_for(kPatience), std::future_status::ready);
        EXPECT_FALSE(hasRun);
    });
}

/// Bytes in memory.
class Zeros final : public ContentStorage {
public:
    std::size_t size() const override { return zeros.size(); }
    std::span<const std::byte> bytes() const override { return zeros; }

private:
    const std::vector<std::byte> zeros = std::vector<std::byte>(std::size_t{16} * 1024 * 1024);
};

/// A client that connects and reads nothing.
class SilentClient final {
public:
    SilentClient() : socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        const SocketAddress server = ipv4Address("127.0.0.1", kPort);
        EXPECT_EQ(::connect(socket, reinterpret_cast<const sockaddr*>(server.data()),
                            static_cast<socklen_t>(server.size())),
                  0);
    }
    SilentClient(const SilentClient&) = delete;
    SilentClient& operator=(const SilentClient&) = delete;
    ~SilentClient() { ::close(socket); }

private:
    const int socket;
};

TEST(LinuxPlatform, waitsForWhatIsNotYetSentWhenItEnds)
{
    inNetworkNamespace([] {
        setLoopbackUp(true);
        std::promise<void> cancelled;
        std::optional<PlatformHere> here(DnsSdMode::Daemon);
        const auto queue = here->makeQueue();
        auto listener = here->listen();
        listener->setStateUpdateHandler([](auto, auto) {});
        listener->setNewConnectionHandler([&](const std::shared_ptr<Connection>& connection) {
            connection->setStateUpdateHandler([](auto, auto) {});
            connection->start(queue);
            connection->send(Content(std::make_unique<Zeros>()), [](std::error_code) {});
            connection->cancel();
            cancelled.set_value();
        });
        listener->start(queue);
        const SilentClient client;
        ASSERT_EQ(cancelled.get_future().wait_for(kPatience), std::future_status::ready);
        cancelOn(*queue, std::move(listener));
        const auto start = std::chrono::steady_clock::now();
        here.reset();
        EXPECT_GE(std::chrono::steady_clock::now() - start, 400ms);
    });
}

} // namespace

} // namespace quillbox
