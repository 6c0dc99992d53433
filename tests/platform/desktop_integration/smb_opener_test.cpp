#include "platform/desktop/smb_opener.h"
#include "tests/fakes/recording_log.h"
#include "tests/platform/desktop_integration/event_wait.h"
#include "tests/platform/desktop_integration/private_bus.h"
#include "tests/platform/desktop_integration/recorder.h"

#include <QDBusMessage>
#include <QDBusVirtualObject>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace quillbox {

namespace {

using namespace std::chrono_literals;

constexpr const char* kUrl = "smb://nas@office.local:40123/NAS";

class FileManager final : public QDBusVirtualObject {
public:
    enum class Manner { Obliging, Refusing, Silent };

    FileManager(QDBusConnection connection, Manner itsManner)
        : bus(std::move(connection)), manner(itsManner)
    {
        bus.registerVirtualObject(QStringLiteral("/org/freedesktop/FileManager1"), this);
        EXPECT_TRUE(bus.registerService(QStringLiteral("org.freedesktop.FileManager1")));
    }

    QString introspect(const QString& /*path*/) const override { return {}; }

    bool handleMessage(const QDBusMessage& message, const QDBusConnection& /*connection*/) override
    {
        EXPECT_EQ(message.interface(), QStringLiteral("org.freedesktop.FileManager1"));
        EXPECT_EQ(message.member(), QStringLiteral("ShowFolders"));
        EXPECT_EQ(message.signature(), QStringLiteral("ass"));
        for (const QString& folder : message.arguments().value(0).toStringList())
            folders.push_back(folder.toStdString());
        if (manner == Manner::Obliging)
            bus.send(message.createReply());
        else if (manner == Manner::Refusing)
            bus.send(message.createErrorReply(QStringLiteral("org.example.No"), QString()));
        return true;
    }

    QDBusConnection bus;
    const Manner manner;
    std::vector<std::string> folders;
};

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
    SmbOpenerTest() { qputenv("PATH", scripts.path().toUtf8() + ':' + path); }

    ~SmbOpenerTest() override { qputenv("PATH", path); }

    void makeOpener(const SmbOpenerTimes& times = {})
    {
        opener = makeSmbOpener(locator, bus.connect(), InheritedLimits(), log, times);
    }

    void addFileManager(FileManager::Manner manner)
    {
        fileManager = std::make_unique<FileManager>(bus.connect(), manner);
    }

    /// Installs a fake `gio` that answers "gio mime" with `handler` and fails for the command
    /// `failing`.
    void addGio(const QString& handler, const QString& failing = QStringLiteral("none"))
    {
        scripts.addScript(QStringLiteral("gio"),
                          QStringLiteral("if [ \"$1\" = mime ]; then\n"
                                         "echo 'Default application for inode/directory: %1'\n"
                                         "fi\n"
                                         "[ \"$1\" != %2 ]")
                              .arg(handler, failing));
    }

    /// Installs a desktop entry for folders in a data folder that only this test uses.
    void addHandler(const QString& command)
    {
        qputenv("XDG_DATA_HOME", scripts.path().toUtf8());
        scripts.write(QStringLiteral("applications/files.desktop"),
                      QStringLiteral("[Desktop Entry]\nType=Application\nName=Files\n"
                                     "MimeType=inode/directory;\nExec=%1\n")
                          .arg(command));
    }

    QStringList expectedMount(const char* url = kUrl)
    {
        const QString text = QLatin1String(url);
        return {QStringLiteral("gio|mount|") + text + u'|',
                QStringLiteral("gio|open|") + text + u'|'};
    }

    const QByteArray path = qgetenv("PATH");
    Recorder scripts;
    PrivateBus bus;
    RecordingLog log;
    FakeServiceLocator locator;
    std::unique_ptr<FileManager> fileManager;
    std::unique_ptr<SmbOpener> opener;
};

TEST_F(SmbOpenerTest, asksTheFileManagerOnTheBus)
{
    addFileManager(FileManager::Manner::Obliging);
    addGio(QStringLiteral("files.desktop"));
    makeOpener();
    opener->open(kUrl);
    ASSERT_TRUE(waitUntil([this] { return !fileManager->folders.empty(); }));
    EXPECT_EQ(fileManager->folders, std::vector<std::string>{kUrl});
    EXPECT_TRUE(locator.names.empty()) << "the locator is not asked for other hosts";
}

TEST_F(SmbOpenerTest, tellsWhatItOpenedAShareWithAndWhyNotWithTheFileManager)
{
    addFileManager(FileManager::Manner::Refusing);
    addGio(QStringLiteral("files.desktop"));
    addHandler(QStringLiteral("files %U"));
    makeOpener();
    opener->open("smb://nas@Quillbox%20Office._smb._tcp.local/NAS");
    ASSERT_EQ(locator.completions.size(), 1U);
    log.time += 20ms;
    locator.completions[0](HostEndpoint{.host = "office.local", .port = 40123});
    ASSERT_TRUE(waitUntil([this] { return log.lines.size() == 3; }));
    EXPECT_EQ(log.lines, (std::vector<std::string>{
                             "desktop: server found, after 20 ms",
                             "desktop: the file manager failed: org.example.No, after 20 ms",
                             "desktop: opened with the default program for folders, after 20 ms"}));
}

TEST_F(SmbOpenerTest, tellsThatAServerWasNotFoundAndThatTheFileManagerTookIt)
{
    addFileManager(FileManager::Manner::Obliging);
    makeOpener();
    opener->open("smb://nas@Quillbox%20Office._smb._tcp.local/NAS");
    ASSERT_EQ(locator.completions.size(), 1U);
    locator.completions[0](std::nullopt);
    ASSERT_TRUE(waitUntil([this] { return log.lines.size() == 2; }));
    EXPECT_EQ(log.lines, (std::vector<std::string>{"desktop: server not found, after 0 ms",
                                                   "desktop: opened with the file manager, "
                                                   "after 0 ms"}));
}

TEST_F(SmbOpenerTest, tellsThatItOpenedWhatWasMounted)
{
    addGio(QStringLiteral("missing.desktop"));
    makeOpener();
    opener->open(kUrl);
    ASSERT_TRUE(waitUntil([this] { return log.lines.size() == 2; }));
    EXPECT_EQ(log.lines.back(), "desktop: opened with gio open, after 0 ms");
}

TEST_F(SmbOpenerTest, hasTheBusStartTheFileManager)
{
    const QString script = scripts.addScript(QStringLiteral("shown"));
    bus.makeActivatable(QStringLiteral("org.freedesktop.FileManager1"),
                        QStringLiteral(FILE_MANAGER_STAND_IN " ") + script);
    makeOpener();
    opener->open(kUrl);
    EXPECT_EQ(scripts.calls(1),
              QStringList(QStringLiteral("shown|ShowFolders|%1|").arg(QLatin1String(kUrl))));
}

TEST_F(SmbOpenerTest, startsTheUsersProgramForFoldersWithoutAFileManagerOnTheBus)
{
    addGio(QStringLiteral("files.desktop"));
    addHandler(QStringLiteral("files %U"));
    makeOpener();
    opener->open(kUrl);
    EXPECT_EQ(scripts.calls(2),
              (QStringList{QStringLiteral("gio|mime|inode/directory|"),
                           QStringLiteral("gio|launch|%1/applications/files.desktop|%2|")
                               .arg(scripts.path(), QLatin1String(kUrl))}));
}

TEST_F(SmbOpenerTest, startsTheUsersProgramWithTheRealGio)
{
    const QByteArray configuration = qgetenv("XDG_CONFIG_HOME");
    qputenv("XDG_CONFIG_HOME", scripts.path().toUtf8());
    scripts.write(QStringLiteral("mimeapps.list"),
                  QStringLiteral("[Default Applications]\ninode/directory=files.desktop\n"));
    addHandler(scripts.addScript(QStringLiteral("files")) + QStringLiteral(" %U"));
    makeOpener();
    constexpr const char* kHardUrl = "smb://a$(b)&c'@office.local:40123/N%20S/;x=%25+--";
    opener->open(kHardUrl);
    EXPECT_EQ(scripts.calls(1),
              QStringList(QStringLiteral("files|%1|").arg(QLatin1String(kHardUrl))));
    qputenv("XDG_CONFIG_HOME", configuration);
}

TEST_F(SmbOpenerTest, mountsWhenTheProgramForFoldersTakesNoUrls)
{
    addGio(QStringLiteral("files.desktop"));
    addHandler(QStringLiteral("files %F"));
    makeOpener();
    opener->open(kUrl);
    EXPECT_EQ(scripts.calls(3).mid(1), expectedMount());
}

TEST_F(SmbOpenerTest, mountsWhenTheProgramForFoldersDoesNotStart)
{
    addGio(QStringLiteral("files.desktop"), QStringLiteral("launch"));
    addHandler(QStringLiteral("files %U"));
    makeOpener();
    opener->open(kUrl);
    EXPECT_EQ(scripts.calls(4).mid(2), expectedMount());
}

TEST_F(SmbOpenerTest, opensWhatWasMountedBefore)
{
    addGio(QStringLiteral("missing.desktop"), QStringLiteral("mount"));
    makeOpener();
    opener->open(kUrl);
    EXPECT_EQ(scripts.calls(3).mid(1), expectedMount());
}

TEST_F(SmbOpenerTest, goesOnWhenTheFileManagerRefuses)
{
    addFileManager(FileManager::Manner::Refusing);
    addGio(QStringLiteral("missing.desktop"));
    makeOpener();
    opener->open(kUrl);
    EXPECT_EQ(scripts.calls(3).mid(1), expectedMount());
}

TEST_F(SmbOpenerTest, goesOnWhenTheFileManagerDoesNotAnswer)
{
    addFileManager(FileManager::Manner::Silent);
    addGio(QStringLiteral("missing.desktop"));
    makeOpener({.fileManager = 50ms});
    opener->open(kUrl);
    EXPECT_EQ(scripts.calls(3).mid(1), expectedMount());
    EXPECT_EQ(fileManager->folders.size(), 1U);
}

TEST_F(SmbOpenerTest, saysInOneLineThatNothingOpensTheUrl)
{
    addGio(QStringLiteral("missing.desktop"), QStringLiteral("open"));
    makeOpener();
    ::testing::internal::CaptureStderr();
    opener->open(kUrl);
    // While an attempt is active, opening the same URL again is ignored.
    EXPECT_TRUE(waitUntil([this] {
        opener->open(kUrl);
        return scripts.calls(3).size() > 3;
    }));
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              std::string("quillbox-helper: no file manager can open ") + kUrl + '\n');
}

TEST_F(SmbOpenerTest, goesOnWithoutABus)
{
    addGio(QStringLiteral("missing.desktop"));
    opener =
        makeSmbOpener(locator, QDBusConnection(QStringLiteral("none")), InheritedLimits(), log);
    opener->open(kUrl);
    EXPECT_EQ(scripts.calls(3).mid(1), expectedMount());
}

TEST_F(SmbOpenerTest, opensAServiceWhereItIs)
{
    addFileManager(FileManager::Manner::Obliging);
    makeOpener();
    opener->open("smb://nas@Quillbox%20Office._smb._tcp.local/N%20S");
    ASSERT_EQ(locator.names, std::vector<std::string>{"Quillbox Office"});
    locator.completions[0](HostEndpoint{"quillbox-1.local", 40123});
    ASSERT_TRUE(waitUntil([this] { return !fileManager->folders.empty(); }));
    EXPECT_EQ(fileManager->folders[0], "smb://nas@quillbox-1.local:40123/N%20S");
}

constexpr const char* kServiceUrl = "smb://Office._smb._tcp.local/NAS";

TEST_F(SmbOpenerTest, opensTheUrlAsItIsWhenTheServiceIsNotFound)
{
    addFileManager(FileManager::Manner::Obliging);
    makeOpener();
    opener->open(kServiceUrl);
    locator.completions.at(0)(std::nullopt);
    ASSERT_TRUE(waitUntil([this] { return !fileManager->folders.empty(); }));
    EXPECT_EQ(fileManager->folders[0], kServiceUrl);
}

TEST_F(SmbOpenerTest, opensTheUrlAsItIsWhenTheServiceIsNotFoundInTime)
{
    addFileManager(FileManager::Manner::Obliging);
    makeOpener({.location = 30ms});
    ::testing::internal::CaptureStderr();
    opener->open(kServiceUrl);
    EXPECT_TRUE(waitUntil([this] { return !fileManager->folders.empty(); }));
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              std::string("quillbox-helper: not found on this network, opening unchanged: ")
                  + kServiceUrl + '\n');
    ASSERT_EQ(fileManager->folders.size(), 1U);
    EXPECT_EQ(fileManager->folders[0], kServiceUrl);
    locator.completions.at(0)(HostEndpoint{"late.local", 1});
    opener->open(kUrl);
    ASSERT_TRUE(waitUntil([this] { return fileManager->folders.size() >= 2; }));
    EXPECT_EQ(fileManager->folders[1], kUrl) << "what comes late opens nothing";
}

TEST_F(SmbOpenerTest, opensTheUrlAsItIsWhenTheServiceIsAtNoHost)
{
    addFileManager(FileManager::Manner::Obliging);
    makeOpener();
    std::vector<std::string> urls;
    for (const char* host : {"", "off\xffice"}) {
        urls.push_back(std::string(kServiceUrl) + std::to_string(urls.size()));
        opener->open(urls.back());
        locator.completions.back()(HostEndpoint{host, 445});
    }
    ASSERT_TRUE(waitUntil([&] { return fileManager->folders.size() >= urls.size(); }));
    EXPECT_EQ(fileManager->folders, urls);
}

TEST_F(SmbOpenerTest, opensSeveralUrlsAtOnce)
{
    addFileManager(FileManager::Manner::Obliging);
    makeOpener();
    opener->open(kServiceUrl);
    opener->open("smb://Home._smb._tcp.local/NAS");
    ASSERT_EQ(locator.completions.size(), 2U);
    locator.completions[1](HostEndpoint{"home.local", 445});
    locator.completions[0](HostEndpoint{"office.local", 445});
    ASSERT_TRUE(waitUntil([this] { return fileManager->folders.size() == 2; }));
    EXPECT_EQ(fileManager->folders,
              (std::vector<std::string>{"smb://home.local/NAS", "smb://office.local/NAS"}));
}

TEST_F(SmbOpenerTest, opensOneWindowForTwoClicksInQuickSuccession)
{
    addFileManager(FileManager::Manner::Obliging);
    makeOpener();
    opener->open(kServiceUrl);
    opener->open(kServiceUrl);
    ASSERT_EQ(locator.completions.size(), 1U);
    locator.completions[0](HostEndpoint{"office.local", 445});
    opener->open(kServiceUrl);
    opener->open(kUrl);
    ASSERT_TRUE(waitUntil([this] { return fileManager->folders.size() >= 2; }));
    EXPECT_EQ(fileManager->folders, (std::vector<std::string>{"smb://office.local/NAS", kUrl}));
    EXPECT_EQ(locator.completions.size(), 1U) << "also not while the file manager is asked";
}

TEST_F(SmbOpenerTest, opensAgainWhatWasOpenedBefore)
{
    addFileManager(FileManager::Manner::Obliging);
    makeOpener();
    for (std::size_t count = 1; count <= 2; ++count) {
        // The call is recorded before its reply arrives; until then, opening the same URL is
        // ignored.
        ASSERT_TRUE(waitUntil([&] {
            opener->open(kUrl);
            return fileManager->folders.size() >= count;
        }));
    }
}

TEST_F(SmbOpenerTest, opensNothingOnceItIsDropped)
{
    addFileManager(FileManager::Manner::Obliging);
    makeOpener();
    opener->open(kServiceUrl);
    opener.reset();
    locator.completions.at(0)(HostEndpoint{"office.local", 445});
    makeOpener();
    opener->open(kUrl);
    ASSERT_TRUE(waitUntil([this] { return !fileManager->folders.empty(); }));
    EXPECT_EQ(fileManager->folders, std::vector<std::string>{kUrl});
}

TEST_F(SmbOpenerTest, opensNothingThatIsNoSmbUrl)
{
    addFileManager(FileManager::Manner::Obliging);
    makeOpener();
    for (const char* url : {"", "--help", "file:///etc", "https://office/", "smb://", "smb://a b/"})
        opener->open(url);
    opener->open(kUrl);
    ASSERT_TRUE(waitUntil([this] { return !fileManager->folders.empty(); }));
    EXPECT_EQ(fileManager->folders, std::vector<std::string>{kUrl});
}

} // namespace

} // namespace quillbox
