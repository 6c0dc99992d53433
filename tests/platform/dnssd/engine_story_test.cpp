#include "platform/dnssd/engine/engine_story.h"
#include "tests/fakes/fake_engine.h"
#include "tests/fakes/recording_log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace quillbox::dnssd {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

RegisterRequest registration(AskId id, const std::string& name)
{
    RegisterRequest request;
    request.id = id;
    request.name = name;
    request.type = "_smb._tcp";
    return request;
}

class EngineStoryTest : public testing::Test {
protected:
    void start()
    {
        engine->start([this](const Event& event) { events.push_back(event); });
        log.lines.clear();
    }

    RecordingLog log;
    FakeEngine fake;
    std::vector<Event> events;
    std::unique_ptr<Engine> engine = withStory(fake.makeEngine(), "the engine", log);
};

TEST_F(EngineStoryTest, tellsOfItsComingAndGoing)
{
    engine->start([](const Event&) {});
    log.time += 150ms;
    fake.up();
    fake.down(DnsSdError::EngineUnavailable);
    log.time += 2s;
    fake.up();
    engine->stop();
    engine->stop();
    EXPECT_THAT(
        log.lines,
        ElementsAre("engine: the engine is starting", "engine: the engine is up, after 150 ms",
                    "engine: the engine is down: "
                        + make_error_code(DnsSdError::EngineUnavailable).message(),
                    "engine: the engine is up, after 2.0 s", "engine: the engine is stopping"));
}

TEST_F(EngineStoryTest, tellsWhatBecomesOfAName)
{
    start();
    engine->send(1, registration(1, "Quillbox"));
    log.time += 950ms;
    fake.emit(Registered{1});
    engine->send(1, registration(2, "Quillbox Office"));
    fake.emit(Collision{2, Collision::Of::Service});
    engine->send(1, StopRequest{2});
    engine->send(1, registration(3, "Quillbox Office #2"));
    fake.emit(Collision{3, Collision::Of::Host});
    fake.emit(Failed{3, DnsSdError::TooManyEntries});
    engine->send(1, StopRequest{1});
    engine->send(1, StopRequest{1});
    EXPECT_THAT(
        log.lines,
        ElementsAre(R"(advertising: "Quillbox" is being registered)",
                    R"(advertising: "Quillbox" is advertised, after 950 ms)",
                    R"(advertising: "Quillbox Office" is being registered)",
                    R"(advertising: "Quillbox Office" has a name conflict, after 0 ms)",
                    R"(advertising: "Quillbox Office" is withdrawn, after 0 ms)",
                    R"(advertising: "Quillbox Office #2" is being registered)",
                    R"(advertising: "Quillbox Office #2" has a host name conflict, after 0 ms)",
                    R"(advertising: "Quillbox Office #2" )"
                        + make_error_code(DnsSdError::TooManyEntries).message() + ", after 0 ms",
                    R"(advertising: "Quillbox" is withdrawn, after 950 ms)"));
}

TEST_F(EngineStoryTest, forgetsNamesWithTheEngineThatHadThem)
{
    start();
    for (const Event& change : {Event(EngineUp{"pc.local", 1}),
                                Event(EngineDown{make_error_code(DnsSdError::Internal)})}) {
        engine->send(1, registration(1, "Quillbox"));
        fake.emit(change);
        log.lines.clear();
        fake.emit(Registered{1});
        engine->send(1, StopRequest{1});
        EXPECT_THAT(log.lines, IsEmpty());
    }
}

TEST_F(EngineStoryTest, saysNothingOfQuestions)
{
    start();
    engine->send(1, BrowseRequest{7, "_quillbox._tcp"});
    fake.emit(Settled{7});
    engine->send(1, StopRequest{7});
    EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(EngineStoryTest, passesEverythingOn)
{
    start();
    fake.up("pc.local");
    engine->send(1, registration(1, "Quillbox"));
    fake.emit(Registered{1});
    engine->stop();
    EXPECT_THAT(events, ElementsAre(Event(EngineUp{"pc.local", 1}), Event(Registered{1})));
    EXPECT_THAT(fake.requests(), ElementsAre(Request(registration(1, "Quillbox"))));
    EXPECT_TRUE(fake.isStopped());
}

TEST(EngineStory, isTheEngineItselfWhileNobodyListens)
{
    RecordingLog log;
    log.isTelling = false;
    FakeEngine fake;
    auto engine = fake.makeEngine();
    const Engine* itself = engine.get();
    EXPECT_EQ(withStory(std::move(engine), "the engine", log).get(), itself);
}

TEST(EngineStory, isToldForEitherOfItsCategories)
{
    for (const LogCategory category : {LogCategory::Engine, LogCategory::Advertising}) {
        RecordingLog log;
        log.only = category;
        FakeEngine fake;
        const auto engine = withStory(fake.makeEngine(), "the engine", log);
        engine->start([](const Event&) {});
        engine->send(1, registration(1, "Quillbox"));
        EXPECT_EQ(log.lines.size(), 1U);
    }
}

} // namespace
} // namespace quillbox::dnssd
