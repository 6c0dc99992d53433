#include "platform/dispatch/dispatch_pool.h"
#include "platform/dispatch_queue.h"
#include "tests/fakes/fake_dispatch.h"
#include "tests/platform/dispatch/patience.h"

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace quillbox {

namespace {

using namespace std::chrono_literals;

/// Creates and runs the queues of one backend.
class Backend {
public:
    virtual ~Backend() = default;

    virtual std::shared_ptr<DispatchQueue> makeQueue(const std::string& label,
                                                     QualityOfService qos) = 0;

    /// Runs the queues until `done` is ready; false on timeout. `done` may depend on work delayed
    /// by up to 200 ms.
    virtual bool runUntil(std::future<void>& done) = 0;

    /// Destroys the backend with all pending work.
    virtual void shutDown() = 0;

    std::shared_ptr<DispatchQueue> makeQueue()
    {
        return makeQueue("test", QualityOfService::Unspecified);
    }
};

class PoolBackend final : public Backend {
public:
    using Backend::makeQueue;
    std::shared_ptr<DispatchQueue> makeQueue(const std::string& label,
                                             QualityOfService qos) override
    {
        return pool_->makeQueue(label, qos);
    }

    bool runUntil(std::future<void>& done) override
    {
        return done.wait_for(kPatience) == std::future_status::ready;
    }

    void shutDown() override { pool_.reset(); }

private:
    std::unique_ptr<DispatchPool> pool_ = std::make_unique<DispatchPool>();
};

class FakeBackend final : public Backend {
public:
    using Backend::makeQueue;
    std::shared_ptr<DispatchQueue> makeQueue(const std::string& label,
                                             QualityOfService qos) override
    {
        return dispatch_->makeQueue(label, qos);
    }

    bool runUntil(std::future<void>& done) override
    {
        dispatch_->advance(200ms);
        return done.wait_for(0s) == std::future_status::ready;
    }

    void shutDown() override { dispatch_.reset(); }

private:
    std::unique_ptr<FakeDispatch> dispatch_ = std::make_unique<FakeDispatch>();
};

/// Calls a function when it is destroyed.
class Token final {
public:
    explicit Token(std::function<void()> destroyed) : destroyed_(std::move(destroyed)) {}
    ~Token() { destroyed_(); }

    Token(const Token&) = delete;
    Token& operator=(const Token&) = delete;

private:
    const std::function<void()> destroyed_;
};

template <typename Type> class DispatchQueueConformance : public testing::Test {
protected:
    /// Waits for all work submitted so far.
    bool settle(const std::shared_ptr<DispatchQueue>& queue)
    {
        auto done = std::make_shared<std::promise<void>>();
        auto future = done->get_future();
        queue->async([done] { done->set_value(); });
        return backend.runUntil(future);
    }

    Type backend;
};

using Backends = testing::Types<PoolBackend, FakeBackend>;
TYPED_TEST_SUITE(DispatchQueueConformance, Backends);

} // namespace

TYPED_TEST(DispatchQueueConformance, keepsLabelAndQualityOfService)
{
    const auto queue =
        this->backend.makeQueue("org.example.relay", QualityOfService::UserInitiated);
    EXPECT_EQ(queue->label(), "org.example.relay");
    EXPECT_EQ(queue->qualityOfService(), QualityOfService::UserInitiated);
}

TYPED_TEST(DispatchQueueConformance, runsClosuresInTheOrderTheyCame)
{
    const auto queue = this->backend.makeQueue();
    std::vector<int> order;
    std::vector<int> expected;
    for (int number = 0; number < 1000; ++number) {
        expected.push_back(number);
        queue->async([&order, number] { order.push_back(number); });
    }
    ASSERT_TRUE(this->settle(queue));
    EXPECT_EQ(order, expected);
}

TYPED_TEST(DispatchQueueConformance, neverRunsTwoClosuresAtOnce)
{
    // Queues of different quality of service may run on different threads.
    const auto queue = this->backend.makeQueue("queue", QualityOfService::UserInitiated);
    const auto helper = this->backend.makeQueue("helper", QualityOfService::Utility);
    std::atomic<int> running = 0;
    std::atomic<bool> overlapped = false;
    const auto work = [&running, &overlapped] {
        if (running.fetch_add(1) != 0)
            overlapped = true;
        std::this_thread::yield();
        running.fetch_sub(1);
    };
    for (int count = 0; count < 500; ++count) {
        queue->async(work);
        helper->async([queue, work] { queue->async(work); });
    }
    ASSERT_TRUE(this->settle(helper));
    ASSERT_TRUE(this->settle(queue));
    EXPECT_FALSE(overlapped);
}

TYPED_TEST(DispatchQueueConformance, neverRunsAClosureInsideTheCallThatHandsItOver)
{
    const auto queue = this->backend.makeQueue();
    bool inside = false;
    bool ranInside = false;
    queue->async([&, queue] {
        inside = true;
        queue->async([&] { ranInside = inside; });
        queue->asyncAfter(0ms, [&] { ranInside = ranInside || inside; });
        inside = false;
    });
    ASSERT_TRUE(this->settle(queue));
    ASSERT_TRUE(this->settle(queue));
    EXPECT_FALSE(ranInside);
}

TYPED_TEST(DispatchQueueConformance, isCurrentInItsClosuresAlone)
{
    const auto queue = this->backend.makeQueue();
    const auto other = this->backend.makeQueue();
    bool inOwn = false;
    bool inOther = true;
    queue->async([&, queue] { inOwn = queue->isCurrent(); });
    other->async([&, queue] { inOther = queue->isCurrent(); });
    ASSERT_TRUE(this->settle(queue));
    ASSERT_TRUE(this->settle(other));
    EXPECT_TRUE(inOwn);
    EXPECT_FALSE(inOther);
    EXPECT_FALSE(queue->isCurrent());
}

TYPED_TEST(DispatchQueueConformance, destroysAClosureOnTheQueueRightAfterItRan)
{
    const auto queue = this->backend.makeQueue();
    std::vector<std::string> events;
    bool wasOnQueue = false;
    auto token = std::make_shared<Token>([&, weak = std::weak_ptr(queue)] {
        events.emplace_back("destroyed");
        wasOnQueue = weak.lock()->isCurrent();
    });
    queue->async([&events, token = std::move(token)] { events.emplace_back("ran"); });
    queue->async([&events] { events.emplace_back("next"); });
    ASSERT_TRUE(this->settle(queue));
    EXPECT_EQ(events, (std::vector<std::string>{"ran", "destroyed", "next"}));
    EXPECT_TRUE(wasOnQueue);
}

TYPED_TEST(DispatchQueueConformance, destroysADelayedClosureOnTheQueue)
{
    const auto queue = this->backend.makeQueue();
    bool wasOnQueue = false;
    auto destroyed = std::make_shared<std::promise<void>>();
    auto future = destroyed->get_future();
    auto token = std::make_shared<Token>([&wasOnQueue, weak = std::weak_ptr(queue), destroyed] {
        wasOnQueue = weak.lock()->isCurrent();
        destroyed->set_value();
    });
    queue->asyncAfter(1ms, [token = std::move(token)] {});
    ASSERT_TRUE(this->backend.runUntil(future));
    EXPECT_TRUE(wasOnQueue);
}

TYPED_TEST(DispatchQueueConformance, runsWhatIsPendingWhenTheLastReferenceGoes)
{
    auto queue = this->backend.makeQueue();
    auto done = std::make_shared<std::promise<void>>();
    auto future = done->get_future();
    int count = 0;
    queue->async([&count] { ++count; });
    queue->async([&count] { ++count; });
    queue->async([done] { done->set_value(); });
    queue.reset();
    ASSERT_TRUE(this->backend.runUntil(future));
    EXPECT_EQ(count, 2);
}

TYPED_TEST(DispatchQueueConformance, mayBeDroppedFromItsOwnClosure)
{
    auto queue = this->backend.makeQueue();
    auto done = std::make_shared<std::promise<void>>();
    auto future = done->get_future();
    std::promise<void> released;
    bool wasLast = false;
    queue->async([&, done, own = queue]() mutable {
        released.get_future().wait();
        own->async([done] { done->set_value(); });
        const std::weak_ptr weak = own;
        own.reset();
        wasLast = weak.expired();
    });
    queue.reset();
    released.set_value();
    ASSERT_TRUE(this->backend.runUntil(future));
    EXPECT_TRUE(wasLast);
}

TYPED_TEST(DispatchQueueConformance, runsDelayedClosuresInTheOrderOfTheirTime)
{
    const auto queue = this->backend.makeQueue();
    auto done = std::make_shared<std::promise<void>>();
    auto future = done->get_future();
    std::vector<int> order;
    queue->asyncAfter(120ms, [&order, done] {
        order.push_back(3);
        done->set_value();
    });
    queue->asyncAfter(60ms, [&order] { order.push_back(2); });
    queue->async([&order] { order.push_back(1); });
    ASSERT_TRUE(this->backend.runUntil(future));
    EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));
}

TYPED_TEST(DispatchQueueConformance, destroysPendingClosuresUnrunWhenTheBackendIsShutDown)
{
    auto queue = this->backend.makeQueue();
    bool ran = false;
    int destroyed = 0;
    const auto makeToken = [&destroyed] {
        return std::make_shared<Token>([&destroyed] { ++destroyed; });
    };
    // A closure that holds its own queue is a reference cycle, which the shutdown must break.
    queue->asyncAfter(24h, [&ran, queue, token = makeToken()] { ran = true; });
    queue->asyncAfter(24h, [&ran, token = makeToken()] { ran = true; });
    const std::weak_ptr weak = queue;
    queue.reset();
    this->backend.shutDown();
    EXPECT_FALSE(ran);
    EXPECT_EQ(destroyed, 2);
    EXPECT_TRUE(weak.expired());
}

} // namespace quillbox
