#include "discovery/device_story.h"
#include "tests/fakes/recording_log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace quillbox {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

DiscoveredDevice device(const std::string& name)
{
    return {ServiceEndpoint{.name = name, .type = "_quillbox._tcp", .domain = "local"}, name};
}

class DeviceStoryTest : public testing::Test {
protected:
    RecordingLog log;
    DeviceStory story{log, "_quillbox._tcp"};
};

TEST_F(DeviceStoryTest, tellsEachDeviceThatAppearsAndGoesOnce)
{
    story.noteDevices({device("Quillbox A")}, 1);
    log.time += 1500ms;
    story.noteDevices({device("Quillbox A"), device("Quillbox B")}, 2);
    story.noteDevices({device("Quillbox B")}, 1);
    story.noteDevices({device("Quillbox B")}, 1);
    story.noteDevices({device("Quillbox A"), device("Quillbox B")}, 2);
    EXPECT_THAT(
        log.lines,
        ElementsAre(R"(discovery: _quillbox._tcp: "Quillbox A" has appeared)",
                    R"(discovery: _quillbox._tcp: "Quillbox B" has appeared)",
                    R"(discovery: _quillbox._tcp: "Quillbox A" has disappeared after 1.5 s)",
                    R"(discovery: _quillbox._tcp: "Quillbox A" has appeared)"));
}

TEST_F(DeviceStoryTest, countsServicesThatAreNoDevices)
{
    story.noteDevices({device("Quillbox A")}, 3);
    EXPECT_THAT(log.lines,
                ElementsAre(R"(discovery: _quillbox._tcp: "Quillbox A" has appeared)",
                            "discovery: _quillbox._tcp: other services of this type: 2"));
}

TEST_F(DeviceStoryTest, tellsHowBrowsingDoes)
{
    const auto error = std::make_error_code(std::errc::network_down);
    story.noteState(Browser::State::Setup, {});
    story.noteState(Browser::State::Waiting, error);
    story.noteState(Browser::State::Ready, {});
    story.noteState(Browser::State::Failed, error);
    EXPECT_THAT(
        log.lines,
        ElementsAre("discovery: _quillbox._tcp: cannot browse at present: " + error.message(),
                    "discovery: _quillbox._tcp: browsing",
                    "discovery: _quillbox._tcp: cannot browse: " + error.message()));
}

TEST_F(DeviceStoryTest, isSilentWhileNobodyListens)
{
    log.isTelling = false;
    story.noteDevices({device("Quillbox A")}, 2);
    story.noteDevices({}, 0);
    story.noteState(Browser::State::Ready, {});
    EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(DeviceStoryTest, remembersNothingFromBeforeSomebodyListened)
{
    log.isTelling = false;
    story.noteDevices({device("Quillbox A")}, 1);
    log.isTelling = true;
    story.noteDevices({device("Quillbox A")}, 1);
    EXPECT_THAT(log.lines, ElementsAre(R"(discovery: _quillbox._tcp: "Quillbox A" has appeared)"));
}

} // namespace
} // namespace quillbox
