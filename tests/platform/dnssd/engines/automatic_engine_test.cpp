#include "platform/dnssd/engine/automatic_engine.h"
#include "tests/platform/dnssd/engines/event_recorder.h"

#include <atomic>
#include <memory>
#include <string>

#include <gtest/gtest.h>

namespace quillbox::dnssd {

namespace {

using namespace std::chrono_literals;

/// The state of a `RecordingEngine`; it outlives the engine.
struct EngineState {
    std::mutex mutex;
    std::condition_variable changed;
    Engine::EventHandler handler;
    std::vector<Request> requests;
    std::vector<Generation> generations; ///< of the requests
    bool isStopped = false;

    bool waitUntil(const std::function<bool()>& condition)
    {
        std::unique_lock lock(mutex);
        return changed.wait_for(lock, 5s, condition);
    }
    bool waitForStart()
    {
        return waitUntil([this] { return handler != nullptr; });
    }
    void say(const Event& event)
    {
        ASSERT_TRUE(waitForStart());
        Engine::EventHandler copy;
        {
            const std::lock_guard lock(mutex);
            copy = handler;
        }
        copy(event);
    }
};

class RecordingEngine final : public Engine {
public:
    explicit RecordingEngine(std::shared_ptr<EngineState> theState) : state(std::move(theState)) {}

    void start(EventHandler handler) override
    {
        const std::lock_guard lock(state->mutex);
        state->handler = std::move(handler);
        state->changed.notify_all();
    }
    void send(Generation generation, Request request) override
    {
        const std::lock_guard lock(state->mutex);
        state->generations.push_back(generation);
        state->requests.push_back(std::move(request));
        state->changed.notify_all();
    }
    void stop() override
    {
        const std::lock_guard lock(state->mutex);
        state->isStopped = true;
        state->handler = nullptr;
        state->changed.notify_all();
    }

private:
    std::shared_ptr<EngineState> state;
};

class AutomaticEngineTest : public testing::Test {
protected:
    void SetUp() override { engine->start(events.handler()); }
    void TearDown() override { engine->stop(); }

    static Event down() { return EngineDown{make_error_code(DnsSdError::EngineUnavailable)}; }

    std::shared_ptr<EngineState> daemon = std::make_shared<EngineState>();
    std::shared_ptr<EngineState> embedded = std::make_shared<EngineState>();
    std::mutex mutex; ///< guards `daemonChanges`
    std::vector<bool> daemonChanges;
    EventRecorder events;
    std::unique_ptr<Engine> engine = makeAutomaticEngine({
        .makeDaemon = [this] { return std::make_unique<RecordingEngine>(daemon); },
        .makeEmbedded = [this] { return std::make_unique<RecordingEngine>(embedded); },
        .daemonChanged =
            [this](bool isDaemonUp) {
                const std::lock_guard lock(mutex);
                daemonChanges.push_back(isDaemonUp);
            },
        .times = {.startPatience = 10s, .restartPatience = 1ms},
    });
};

TEST_F(AutomaticEngineTest, sendsRequestsToTheEngineThatIsUp)
{
    daemon->say(EngineUp{"daemon", 7});
    ASSERT_TRUE(events.waitForEvent(EngineUp{"daemon", 1}));
    engine->send(1, BrowseRequest{1, "_smb._tcp"});
    ASSERT_TRUE(daemon->waitUntil([this] { return daemon->requests.size() == 1; }));
    EXPECT_EQ(daemon->generations.back(), 7U) << "the daemon's engine counts for itself";

    daemon->say(down());
    embedded->say(EngineUp{"embedded", 1});
    ASSERT_TRUE(events.waitForEvent(EngineUp{"embedded", 2}));
    engine->send(2, BrowseRequest{2, "_smb._tcp"});
    ASSERT_TRUE(embedded->waitUntil([this] { return embedded->requests.size() == 1; }));
    EXPECT_EQ(embedded->generations.back(), 1U);
    EXPECT_EQ(daemon->requests.size(), 1U);
}

TEST_F(AutomaticEngineTest, dropsRequestsThatWereMeantForAnEarlierEngine)
{
    daemon->say(EngineUp{"daemon", 1});
    daemon->say(down());
    embedded->say(EngineUp{"embedded", 1});
    ASSERT_TRUE(events.waitForEvent(EngineUp{"embedded", 2}));
    engine->send(1, BrowseRequest{1, "_smb._tcp"});
    engine->send(2, BrowseRequest{2, "_smb._tcp"});
    ASSERT_TRUE(embedded->waitUntil([this] { return !embedded->requests.empty(); }));
    EXPECT_EQ(embedded->requests, (std::vector<Request>{BrowseRequest{2, "_smb._tcp"}}));
}

TEST_F(AutomaticEngineTest, stopsTheEmbeddedEngineBeforeTheDaemonIsUp)
{
    daemon->say(down());
    embedded->say(EngineUp{"embedded", 1});
    ASSERT_TRUE(events.waitForEvent(EngineUp{"embedded", 1}));
    daemon->say(EngineUp{"daemon", 1});
    ASSERT_TRUE(events.waitForEvent(EngineUp{"daemon", 2}));
    const std::lock_guard lock(embedded->mutex);
    EXPECT_TRUE(embedded->isStopped);
}

TEST_F(AutomaticEngineTest, saysWhetherTheDaemonIsUp)
{
    daemon->say(down());
    embedded->say(EngineUp{"embedded", 1});
    daemon->say(EngineUp{"daemon", 1});
    ASSERT_TRUE(events.waitForEvent(EngineUp{"daemon", 2}));
    daemon->say(down());
    embedded->say(EngineUp{"embedded again", 1});
    ASSERT_TRUE(events.waitForEvent(EngineUp{"embedded again", 3}));
    daemon->say(EngineUp{"daemon on probation", 2});
    daemon->say(down());
    embedded->say(Settled{1});
    ASSERT_TRUE(events.waitForEvent(Settled{1}));
    const std::lock_guard lock(mutex);
    EXPECT_EQ(daemonChanges, (std::vector<bool>{false, true, false, true, false}));
}

TEST_F(AutomaticEngineTest, stopsBoth)
{
    daemon->say(down());
    ASSERT_TRUE(embedded->waitForStart());
    engine->stop();
    EXPECT_TRUE(daemon->isStopped);
    EXPECT_TRUE(embedded->isStopped);
}

TEST(AutomaticEngine, waitsNoLongerForASilentDaemonThanItSays)
{
    const auto daemon = std::make_shared<EngineState>();
    const auto embedded = std::make_shared<EngineState>();
    const auto engine = makeAutomaticEngine({
        .makeDaemon = [daemon] { return std::make_unique<RecordingEngine>(daemon); },
        .makeEmbedded = [embedded] { return std::make_unique<RecordingEngine>(embedded); },
        .daemonChanged = {},
        .times = {.startPatience = 1ms},
    });
    engine->start([](const Event&) {});
    EXPECT_TRUE(embedded->waitForStart());
    engine->stop();
}

} // namespace

} // namespace quillbox::dnssd
