#include "discovery/phone_discovery.h"
#include "tests/fakes/fake_dispatch.h"
#include "tests/fakes/fake_network.h"
#include "tests/fakes/recording_log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace quillbox {
namespace {

using namespace std::chrono_literals;
using State = DnsSd::BrowseUpdate::State;
using testing::ElementsAre;
using testing::IsEmpty;

Endpoint device(const std::string& name)
{
    return ServiceEndpoint{.name = name, .type = "_quillbox._tcp", .domain = "local"};
}

class PhoneDiscoveryLogTest : public testing::Test {
protected:
    PhoneDiscoveryLogTest()
    {
        discovery->start();
        report(State::Ready, {});
        log.lines.clear();
    }
    ~PhoneDiscoveryLogTest() override
    {
        discovery->stop();
        dispatch.runAll();
    }

    void find(const std::vector<Endpoint>& results)
    {
        network.dnsSd().browses().back().tell(readyWith(results));
        dispatch.runAll();
    }

    void report(State state, std::error_code error)
    {
        network.dnsSd().browses().back().tell({state, error, {}});
        dispatch.runAll();
    }

    FakeDispatch dispatch;
    FakeNetwork network;
    RecordingLog log;
    std::shared_ptr<PhoneDiscovery> discovery = std::make_shared<PhoneDiscovery>(
        dispatch, network, log, "org.quillbox.Helper", "_quillbox._tcp");
};

TEST_F(PhoneDiscoveryLogTest, tellsEachDeviceThatAppearsAndGoesOnce)
{
    find({device("Quillbox A")});
    log.time += 1500ms;
    find({device("Quillbox A"), device("Quillbox B")});
    find({device("Quillbox B")});
    find({device("Quillbox B")});
    find({device("Quillbox A"), device("Quillbox B")});
    EXPECT_THAT(
        log.lines,
        ElementsAre(R"(discovery: _quillbox._tcp: "Quillbox A" has appeared)",
                    R"(discovery: _quillbox._tcp: "Quillbox B" has appeared)",
                    R"(discovery: _quillbox._tcp: "Quillbox A" has disappeared after 1.5 s)",
                    R"(discovery: _quillbox._tcp: "Quillbox A" has appeared)"));
}

TEST_F(PhoneDiscoveryLogTest, countsServicesThatAreNoDevices)
{
    find({device("Quillbox A"), device("Printer"), device("Scanner")});
    EXPECT_THAT(log.lines,
                ElementsAre(R"(discovery: _quillbox._tcp: "Quillbox A" has appeared)",
                            "discovery: _quillbox._tcp: other services of this type: 2"));
}

TEST_F(PhoneDiscoveryLogTest, tellsHowBrowsingDoes)
{
    const auto error = std::make_error_code(std::errc::network_down);
    const auto other = std::make_error_code(std::errc::timed_out);
    report(State::Waiting, other);
    report(State::Waiting, error);
    report(State::Ready, {});
    find({device("Quillbox A")}); // nothing new about the state
    report(State::Failed, error);
    EXPECT_THAT(
        log.lines,
        ElementsAre("discovery: _quillbox._tcp: cannot browse at present: " + other.message(),
                    "discovery: _quillbox._tcp: cannot browse at present: " + error.message(),
                    "discovery: _quillbox._tcp: browsing",
                    R"(discovery: _quillbox._tcp: "Quillbox A" has appeared)",
                    "discovery: _quillbox._tcp: cannot browse: " + error.message()));
}

TEST_F(PhoneDiscoveryLogTest, isSilentWhileNobodyListens)
{
    log.isTelling = false;
    find({device("Quillbox A")});
    find({});
    report(State::Ready, {});
    EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(PhoneDiscoveryLogTest, remembersNothingFromBeforeSomebodyListened)
{
    log.isTelling = false;
    find({device("Quillbox A")});
    log.isTelling = true;
    find({device("Quillbox A"), device("Quillbox B")});
    EXPECT_THAT(log.lines, ElementsAre(R"(discovery: _quillbox._tcp: "Quillbox A" has appeared)",
                                       R"(discovery: _quillbox._tcp: "Quillbox B" has appeared)"));
}

} // namespace
} // namespace quillbox
