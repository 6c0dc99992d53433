#include "platform/desktop/opening/smb_opener.h"
#include "tests/fakes/recording_log.h"
#include "tests/platform/desktop/event_wait.h"
#include "tests/platform/desktop/opening/file_manager.h"
#include "tests/platform/desktop/opening/programs.h"
#include "tests/platform/desktop/private_bus.h"

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

namespace quillbox {

namespace {

using namespace std::chrono_literals;
using ::testing::UnorderedElementsAre;
using ::testing::UnorderedElementsAreArray;
using Manner = FileManager::Manner;

constexpr const char* kUrl = "smb://nas@office.local/NAS";

class FakeServiceLocator final : public ServiceLocator {
public:
    void locate(const std::string& instanceName, Completion completion) override
    {
        names.push_back(instanceName);
        completions.push_back(std::move(completion));
    }

    std::vector<std::string> names;
    std::vector<Completion> completions;
};

class SmbOpenerTest : public ::testing::Test {
protected:
    void makeOpener(const SmbOpenerTimes& times = {.moment = 60s})
    {
        means = std::make_unique<FileBrowserMeans>(
            FileBrowserMeans{.bus = bus.connect(),
                             .inheritance = programs.inheritance(),
                             .log = log,
                             .limit = limit});
        opener = makeSmbOpener(locator, *means, times);
    }

    void addFileManager(FileManager::Manner manner)
    {
        fileManager = std::make_unique<FileManager>(bus.connect(), manner);
    }

    void open(const char* url) { opener->open(url, "token", reporter()); }

    /// Keeps the results in `results`; "" for success.
    SmbOpener::Opened reporter()
    {
        return [this](const auto& reason) { results.push_back(reason.value_or("")); };
    }

    bool waitForFolders(std::size_t count)
    {
        return waitUntil([this, count] { return fileManager->folders.size() >= count; });
    }

    Programs programs;
    PrivateBus bus;
    RecordingLog log;
    std::chrono::milliseconds limit{15'000};
    FakeServiceLocator locator;
    std::unique_ptr<FileManager> fileManager;
    std::unique_ptr<FileBrowserMeans> means;
    std::unique_ptr<SmbOpener> opener;
    std::vector<std::string> results;
};

TEST_F(SmbOpenerTest, opensAnyOtherHostUnchanged)
{
    addFileManager(Manner::Obliging);
    makeOpener();
    open(kUrl);
    ASSERT_TRUE(waitUntil([this] { return !results.empty(); }));
    EXPECT_EQ(results, std::vector<std::string>{""});
    EXPECT_EQ(fileManager->folders, std::vector<std::string>{kUrl});
    EXPECT_EQ(fileManager->calls.at(0).arguments().value(1), QStringLiteral("token"));
    EXPECT_TRUE(locator.names.empty()) << "the locator is not asked for other hosts";
}

TEST_F(SmbOpenerTest, tellsWhatItOpenedAShareWith)
{
    programs.addGio(QStringLiteral("files.desktop"));
    programs.addHandler(QStringLiteral("files %U"));
    programs.addScript(QStringLiteral("files"));
    makeOpener();
    open("smb://nas@Quillbox%20Office._smb._tcp.local/NAS");
    ASSERT_EQ(locator.completions.size(), 1U);
    log.time += 20ms;
    locator.completions[0](HostEndpoint{.host = "office.local", .port = 40123});
    ASSERT_TRUE(waitUntil([this] { return log.lines.size() == 2; }));
    EXPECT_EQ(log.lines, (std::vector<std::string>{
                             "desktop: server found, after 20 ms",
                             "desktop: opened with the default program for folders, after 20 ms"}));
}

TEST_F(SmbOpenerTest, tellsThatAServerWasNotFoundAndThatTheFileManagerTookIt)
{
    addFileManager(Manner::Obliging);
    makeOpener();
    open("smb://nas@Quillbox%20Office._smb._tcp.local/NAS");
    ASSERT_EQ(locator.completions.size(), 1U);
    locator.completions[0](std::nullopt);
    ASSERT_TRUE(waitUntil([this] { return log.lines.size() == 2; }));
    EXPECT_EQ(log.lines, (std::vector<std::string>{"desktop: server not found, after 0 ms",
                                                   "desktop: opened with the file manager, "
                                                   "after 0 ms"}));
}

TEST_F(SmbOpenerTest, reportsOnAShareThatTakesLongAlsoWhenAnotherWasOpenedMeanwhile)
{
    addFileManager(Manner::Silent);
    makeOpener({.moment = 0s});
    open(kUrl);
    ASSERT_TRUE(waitForFolders(1));
    opener->open("smb://nas@other.local/NAS", "token", nullptr);
    fileManager->bus.send(fileManager->calls.at(0).createReply());
    EXPECT_TRUE(waitUntil([this] { return !results.empty(); }));
    EXPECT_EQ(results, std::vector<std::string>{""});
}

TEST_F(SmbOpenerTest, reportsAndPrintsThatNothingOpensTheUrl)
{
    programs.addGio(QStringLiteral("missing.desktop"), QStringLiteral("open"));
    makeOpener();
    ::testing::internal::CaptureStderr();
    open(kUrl);
    EXPECT_TRUE(waitUntil([this] { return !results.empty(); }));
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              std::string("quillbox-helper: no file manager can open ") + kUrl + '\n');
    EXPECT_EQ(results, std::vector<std::string>{"No file manager opened the share"});
}

TEST_F(SmbOpenerTest, triesAgainAtOnceAfterAFailure)
{
    programs.addGio(QStringLiteral("missing.desktop"), QStringLiteral("open"));
    makeOpener();
    open(kUrl);
    ASSERT_TRUE(waitUntil([this] { return !results.empty(); }));
    addFileManager(Manner::Obliging);
    open(kUrl);
    ASSERT_TRUE(waitUntil([this] { return results.size() == 2; }));
    EXPECT_EQ(results.back(), "");
}

TEST_F(SmbOpenerTest, opensAServiceWhereItIs)
{
    addFileManager(Manner::Obliging);
    makeOpener();
    open("smb://nas@Quillbox%20Office._smb._tcp.local/N%20S");
    ASSERT_EQ(locator.names, std::vector<std::string>{"Quillbox Office"});
    locator.completions[0](HostEndpoint{"quillbox-1.local", 40123});
    ASSERT_TRUE(waitUntil([this] { return !fileManager->folders.empty(); }));
    EXPECT_EQ(fileManager->folders[0], "smb://nas@quillbox-1.local:40123/N%20S");
}

TEST_F(SmbOpenerTest, looksForTheServiceWhoseNameTheHostEncodes)
{
    makeOpener();
    for (const char* host : {"K%C3%BCche%20A&B%2F%25", "a.b._smb._tcp.local", "Office%E2%80%AEgpj",
                             "_smb._tcp.local", "x._smb._udp"})
        open((std::string("smb://a%40b@") + host + "._smb._tcp.local/B%C3%BCro@:/x").c_str());
    EXPECT_EQ(locator.names,
              (std::vector<std::string>{"K\u00fcche A&B/%", "a.b._smb._tcp.local",
                                        "Office\u202egpj", "_smb._tcp.local", "x._smb._udp"}));
}

TEST_F(SmbOpenerTest, putsAnyServerIntoTheUrl)
{
    addFileManager(Manner::Obliging);
    makeOpener({.moment = 0s});
    const std::vector<std::pair<HostEndpoint, std::string>> servers{
        {{"192.0.2.1", 445}, "192.0.2.1"},
        {{"2001:db8::1", 1}, "[2001:db8::1]:1"},
        {{"fe80::1%eth 0", 445}, "[fe80::1%25eth%200]"},
        {{"fe80::1%", 445}, "[fe80::1]"},
        {{"x/y@z:1?#[ ]%", 40123}, "x%2Fy%40z%3A1%3F%23%5B%20%5D%25:40123"},
        {{"K\u00fcche", 40123}, "K%C3%BCche:40123"},
        {{"--help", 40123}, "--help:40123"}};
    for (const auto& [server, host] : servers) {
        const std::size_t count = fileManager->folders.size();
        open("smb://a%40b@Quillbox._smb._tcp.local/B%C3%BCro%20A&B@x");
        locator.completions.back()(server);
        ASSERT_TRUE(waitForFolders(count + 1));
        EXPECT_EQ(fileManager->folders.back(), "smb://a%40b@" + host + "/B%C3%BCro%20A&B@x");
    }
}

constexpr const char* kServiceUrl = "smb://Office._smb._tcp.local/NAS";

TEST_F(SmbOpenerTest, opensTheUrlAsItIsWhenTheServiceIsNotFound)
{
    addFileManager(Manner::Obliging);
    makeOpener();
    open(kServiceUrl);
    locator.completions.at(0)(std::nullopt);
    ASSERT_TRUE(waitUntil([this] { return !fileManager->folders.empty(); }));
    EXPECT_EQ(fileManager->folders[0], kServiceUrl);
}

TEST_F(SmbOpenerTest, opensTheUrlAsItIsWhenTheServiceIsNotFoundInTime)
{
    addFileManager(Manner::Obliging);
    makeOpener({.location = 30ms});
    ::testing::internal::CaptureStderr();
    open(kServiceUrl);
    EXPECT_TRUE(waitUntil([this] { return !fileManager->folders.empty(); }));
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              std::string("quillbox-helper: not found on this network, opening unchanged: ")
                  + kServiceUrl + '\n');
    ASSERT_EQ(fileManager->folders.size(), 1U);
    EXPECT_EQ(fileManager->folders[0], kServiceUrl);
    locator.completions.at(0)(HostEndpoint{"late.local", 1});
    open(kUrl);
    ASSERT_TRUE(waitUntil([this] { return fileManager->folders.size() >= 2; }));
    EXPECT_EQ(fileManager->folders[1], kUrl) << "what comes late opens nothing";
}

TEST_F(SmbOpenerTest, opensTheUrlAsItIsWhenTheServiceIsAtNoHost)
{
    addFileManager(Manner::Obliging);
    makeOpener();
    std::vector<std::string> urls;
    for (const auto& server :
         {HostEndpoint{"", 445}, HostEndpoint{"off\xffice", 445},
          HostEndpoint{std::string("a\0b", 3), 445}, HostEndpoint{"office.local", 0}}) {
        urls.push_back(std::string(kServiceUrl) + std::to_string(urls.size()));
        open(urls.back().c_str());
        locator.completions.back()(server);
    }
    ASSERT_TRUE(waitUntil([&] { return fileManager->folders.size() >= urls.size(); }));
    EXPECT_THAT(fileManager->folders, UnorderedElementsAreArray(urls));
}

TEST_F(SmbOpenerTest, opensSeveralUrlsAtOnce)
{
    addFileManager(Manner::Obliging);
    makeOpener();
    open(kServiceUrl);
    open("smb://Home._smb._tcp.local/NAS");
    ASSERT_EQ(locator.completions.size(), 2U);
    locator.completions[1](HostEndpoint{"home.local", 445});
    locator.completions[0](HostEndpoint{"office.local", 445});
    ASSERT_TRUE(waitUntil([this] { return fileManager->folders.size() == 2; }));
    EXPECT_THAT(fileManager->folders,
                UnorderedElementsAre("smb://home.local/NAS", "smb://office.local/NAS"));
}

TEST_F(SmbOpenerTest, opensOneWindowForTwoClicksInQuickSuccession)
{
    addFileManager(Manner::Obliging);
    makeOpener();
    open(kServiceUrl);
    open(kServiceUrl);
    ASSERT_EQ(locator.completions.size(), 1U);
    locator.completions[0](HostEndpoint{"office.local", 445});
    open(kServiceUrl);
    open(kUrl);
    ASSERT_TRUE(waitUntil([this] { return results.size() >= 4; }));
    open(kServiceUrl); // The file manager has answered, but may not show its window yet.
    EXPECT_EQ(results, std::vector<std::string>(5, "")) << "each click gets the result";
    EXPECT_THAT(fileManager->folders, UnorderedElementsAre("smb://office.local/NAS", kUrl));
    EXPECT_EQ(locator.completions.size(), 1U);
}

TEST_F(SmbOpenerTest, opensAgainWhatWasOpenedAMomentBefore)
{
    addFileManager(Manner::Obliging);
    makeOpener({.moment = 0ms});
    for (std::size_t count = 1; count <= 2; ++count) {
        open(kUrl);
        ASSERT_TRUE(waitUntil([&] { return results.size() == count; }));
    }
    EXPECT_EQ(fileManager->folders.size(), 2U);
}

TEST_F(SmbOpenerTest, opensAgainWhileAFileManagerHangs)
{
    addFileManager(Manner::Silent);
    makeOpener({.moment = 0ms});
    open(kUrl);
    ASSERT_TRUE(waitForFolders(1));
    open(kUrl);
    ASSERT_TRUE(waitForFolders(2));
    EXPECT_TRUE(results.empty());
}

TEST_F(SmbOpenerTest, joinsARequestForAServerThatIsStillLookedFor)
{
    addFileManager(Manner::Obliging);
    makeOpener({.moment = 0ms});
    open(kServiceUrl);
    open(kServiceUrl);
    ASSERT_EQ(locator.completions.size(), 1U);
    locator.completions[0](HostEndpoint{"office.local", 445});
    ASSERT_TRUE(waitUntil([this] { return results.size() == 2; }));
    EXPECT_EQ(fileManager->folders.size(), 1U);
}

TEST_F(SmbOpenerTest, opensNothingOnceItIsDropped)
{
    addFileManager(Manner::Obliging);
    makeOpener();
    open(kServiceUrl);
    opener.reset();
    locator.completions.at(0)(HostEndpoint{"office.local", 445});
    makeOpener();
    open(kUrl);
    ASSERT_TRUE(waitUntil([this] { return !fileManager->folders.empty(); }));
    EXPECT_EQ(fileManager->folders, std::vector<std::string>{kUrl});
}

} // namespace

} // namespace quillbox
