#include "platform/desktop/process/main_queue.h"
#include "tests/platform/desktop/qt_support.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QObject>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>

namespace quillbox {

namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;

class MainQueueTest : public ::testing::Test {
protected:
    std::function<void()> noting(const std::string& name)
    {
        return [this, name] { notes.push_back(name); };
    }

    bool runUntilNoted(std::size_t count)
    {
        return runUntil([this, count] { return notes.size() >= count; });
    }

    std::unique_ptr<MainQueue> mainQueue = makeMainQueue();
    std::shared_ptr<DispatchQueue> queue = mainQueue->queue();
    std::vector<std::string> notes;
};

TEST_F(MainQueueTest, isTheSameAtEveryQuestion)
{
    EXPECT_EQ(mainQueue->queue(), queue);
    EXPECT_EQ(queue->label(), "main");
    EXPECT_EQ(queue->qualityOfService(), QualityOfService::Unspecified);
}

TEST_F(MainQueueTest, runsClosuresInTheOrderTheyCame)
{
    std::vector<int> order;
    std::vector<int> expected;
    for (int number = 0; number < 1000; ++number) {
        expected.push_back(number);
        queue->async([&order, number] { order.push_back(number); });
    }
    ASSERT_TRUE(runUntil([&] { return order.size() == expected.size(); }));
    EXPECT_EQ(order, expected);
}

TEST_F(MainQueueTest, runsOneClosureATurnOfTheLoop)
{
    QObject other;
    queue->async([&] {
        notes.emplace_back("first");
        QMetaObject::invokeMethod(&other, noting("event"), Qt::QueuedConnection);
    });
    queue->async(noting("second"));
    queue->async(noting("third"));
    ASSERT_TRUE(runUntilNoted(4));
    EXPECT_THAT(notes, ElementsAre("first", "event", "second", "third"));
}

TEST_F(MainQueueTest, runsNoClosureBeforeTheOneBeforeIsDestroyed)
{
    struct Turn {
        std::vector<std::string>& notes;
        ~Turn()
        {
            QCoreApplication::processEvents();
            notes.emplace_back("destroyed");
        }
    };
    queue->async([turn = std::shared_ptr<Turn>(new Turn{notes})] {});
    queue->async(noting("second"));
    ASSERT_TRUE(runUntilNoted(2));
    EXPECT_THAT(notes, ElementsAre("destroyed", "second"));
}

TEST_F(MainQueueTest, neverRunsAClosureInsideTheCallThatHandsItOver)
{
    queue->async([this] {
        queue->async(noting("later"));
        queue->asyncAfter(0ms, noting("delayed"));
        notes.emplace_back("call");
    });
    EXPECT_THAT(notes, ElementsAre());
    ASSERT_TRUE(runUntilNoted(3));
    EXPECT_EQ(notes.front(), "call");
}

TEST_F(MainQueueTest, neverRunsTwoClosuresAtOnceEvenInANestedLoop)
{
    queue->async([this] {
        notes.emplace_back("begins");
        queue->async(noting("next"));
        QEventLoop nested;
        QMetaObject::invokeMethod(&nested, &QEventLoop::quit, Qt::QueuedConnection);
        nested.exec();
        notes.emplace_back("ends");
    });
    ASSERT_TRUE(runUntilNoted(3));
    EXPECT_THAT(notes, ElementsAre("begins", "ends", "next"));
}

TEST_F(MainQueueTest, isCurrentOnTheMainThreadAlone)
{
    bool onOther = true;
    std::thread([&] { onOther = queue->isCurrent(); }).join();
    EXPECT_FALSE(onOther);
    EXPECT_TRUE(queue->isCurrent());
}

TEST_F(MainQueueTest, destroysAClosureRightAfterItRan)
{
    auto token = std::shared_ptr<int>(new int(0), [this](const int* value) {
        delete value;
        notes.emplace_back("destroyed");
    });
    queue->async([this, token = std::move(token)] { notes.emplace_back("ran"); });
    queue->async(noting("next"));
    ASSERT_TRUE(runUntilNoted(3));
    EXPECT_THAT(notes, ElementsAre("ran", "destroyed", "next"));
}

TEST_F(MainQueueTest, takesClosuresFromAnyThread)
{
    constexpr int kThreads = 4;
    constexpr int kClosures = 500;
    std::vector<std::vector<int>> seen(kThreads);
    int total = 0;
    std::vector<std::thread> threads;
    for (std::size_t thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&, thread] {
            for (int number = 0; number < kClosures; ++number) {
                queue->async([&, thread, number] {
                    seen[thread].push_back(number);
                    ++total;
                });
            }
            queue->asyncAfter(1ms, [&total] { ++total; });
        });
    }
    EXPECT_TRUE(runUntil([&] { return total == kThreads * (kClosures + 1); }));
    for (std::thread& thread : threads)
        thread.join();
    for (const auto& numbers : seen) {
        EXPECT_EQ(numbers.size(), static_cast<std::size_t>(kClosures));
        EXPECT_TRUE(std::is_sorted(numbers.begin(), numbers.end()));
    }
}

TEST_F(MainQueueTest, runsDelayedClosuresInTheOrderOfTheirTime)
{
    const auto start = std::chrono::steady_clock::now();
    queue->asyncAfter(60ms, noting("third"));
    queue->asyncAfter(30ms, noting("second"));
    queue->async(noting("first"));
    ASSERT_TRUE(runUntilNoted(3));
    EXPECT_THAT(notes, ElementsAre("first", "second", "third"));
    EXPECT_GE(std::chrono::steady_clock::now() - start, 60ms);
}

TEST_F(MainQueueTest, runsWhatIsPendingWhenTheLastReferenceGoes)
{
    auto& raw = *queue;
    raw.async([this, own = std::move(queue)]() mutable {
        own.reset();
        notes.emplace_back("dropped");
    });
    raw.async(noting("next"));
    ASSERT_TRUE(runUntilNoted(2));
    EXPECT_THAT(notes, ElementsAre("dropped", "next"));
}

TEST_F(MainQueueTest, destroysPendingClosuresUnrunWhenItIsShutDown)
{
    const auto token = std::make_shared<int>(0);
    queue->async([this, token] { notes.emplace_back("ran"); });
    queue->asyncAfter(24h, [this, token, own = queue] { notes.emplace_back("ran"); });
    mainQueue = nullptr;
    EXPECT_EQ(token.use_count(), 1);
    queue->async([this, token] { notes.emplace_back("ran"); });
    queue->asyncAfter(0ms, [this, token] { notes.emplace_back("ran"); });
    EXPECT_EQ(token.use_count(), 1);
    QCoreApplication::processEvents();
    EXPECT_THAT(notes, ElementsAre());
}

} // namespace

} // namespace quillbox
