#include "platform/desktop/opening/folder_showing.h"
#include "platform/posix/file_descriptor.h"
#include "tests/fakes/recording_log.h"
#include "tests/platform/desktop/event_wait.h"
#include "tests/platform/desktop/opening/file_manager.h"
#include "tests/platform/desktop/opening/programs.h"
#include "tests/platform/desktop/private_bus.h"

#include <QDBusArgument>
#include <QStringList>
#include <QVariantMap>
#include <memory>
#include <optional>
#include <string>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

namespace quillbox {

namespace {

using namespace std::chrono_literals;
using Manner = FileManager::Manner;

constexpr const char* kFolder = "smb://nas@office.local:40123/NAS";
constexpr const char* kByHandler = "the default program for folders";
constexpr const char* kByManager = "the file manager";

class FolderShowingTest : public ::testing::Test {
protected:
    void show(const QDBusConnection& connection, const std::string& url = kFolder,
              const std::string& token = "token")
    {
        means = std::make_unique<FileBrowserMeans>(
            FileBrowserMeans{.bus = connection,
                             .inheritance = programs.inheritance(),
                             .log = log,
                             .limit = limit,
                             .moment = moment});
        showing = showFolder(*means, url, token, [this](const auto& with) {
            EXPECT_FALSE(shown) << "it reports once";
            shown = with;
        });
        EXPECT_FALSE(shown) << "it reports from the event loop only";
    }

    void show() { show(bus.connect()); }

    /// What opened the folder; "nothing" if nothing did.
    std::string shownWith()
    {
        EXPECT_TRUE(waitUntil([this] { return shown.has_value(); }));
        return shown ? shown->value_or("nothing") : "no report";
    }

    void addFileManager(Manner manner)
    {
        fileManager = std::make_unique<FileManager>(bus.connect(), manner);
    }

    /// Makes a program the default one for folders that opens URLs over the bus.
    void addBusHandler()
    {
        programs.addGio(QStringLiteral("org.example.My-Files.desktop"));
        programs.addHandler(QStringLiteral("files %U"),
                            QStringLiteral("org.example.My-Files.desktop"),
                            QStringLiteral("DBusActivatable=true"));
    }

    /// Makes the default program for folders one that fails when `endHandler` is called, not
    /// before.
    void addHandlerThatStays()
    {
        ASSERT_EQ(::mkfifo(pathOfEnd().c_str(), 0600), 0);
        programs.addGio(QStringLiteral("files.desktop"));
        programs.addHandler(QStringLiteral("files %U"));
        programs.addScript(QStringLiteral("files"),
                           QStringLiteral("read -r end < \"${0%/*}/end\"\nexit 1\n"));
    }

    /// Awaits that the program waits for its end.
    void endHandler() const
    {
        FileDescriptor end;
        EXPECT_TRUE(waitUntil([&] {
            end = FileDescriptor(::open(pathOfEnd().c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
            return end.isOpen();
        }));
    }

    std::string pathOfEnd() const
    {
        return (programs.path() + QStringLiteral("/end")).toStdString();
    }

    static QStringList expectedMount()
    {
        const QString text = QLatin1String(kFolder);
        return {QStringLiteral("gio|mount|") + text + u'|',
                QStringLiteral("gio|open|") + text + u'|'};
    }

    Programs programs;
    PrivateBus bus;
    RecordingLog log;
    std::chrono::milliseconds limit{15'000};
    std::chrono::milliseconds moment{15'000};
    std::unique_ptr<FileManager> fileManager;
    std::unique_ptr<FileBrowserMeans> means;
    std::unique_ptr<QObject> showing;
    std::optional<std::optional<std::string>> shown;
};

TEST_F(FolderShowingTest, startsTheUsersProgramForFoldersEvenIfAFileManagerIsOnTheBus)
{
    // Thunar's would answer with success and show nothing.
    addFileManager(Manner::Obliging);
    programs.addGio(QStringLiteral("files.desktop"));
    programs.addHandler(QStringLiteral("files %U"));
    programs.addScript(QStringLiteral("files"));
    show();
    EXPECT_EQ(shownWith(), kByHandler);
    EXPECT_EQ(programs.calls(2),
              (QStringList{QStringLiteral("gio|mime|inode/directory|"),
                           QStringLiteral("files|%1|").arg(QLatin1String(kFolder))}));
    EXPECT_TRUE(fileManager->calls.empty());
}

TEST_F(FolderShowingTest, startsTheProgramThatTheRealGioNamesWithTheUrlUnchangedAndAToken)
{
    programs.environment.set("XDG_CONFIG_HOME", programs.path().toUtf8());
    ASSERT_TRUE(QFile::remove(programs.path() + QStringLiteral("/gio")));
    programs.write(QStringLiteral("mimeapps.list"),
                   QStringLiteral("[Default Applications]\ninode/directory=files.desktop\n"));
    programs.addHandler(
        programs.addScript(QStringLiteral("files"),
                           QStringLiteral("env | grep -c =fresh$ > \"${0%/*}/tokens\"\n"
                                          "exec \"${0%/*}/seen\"\n"))
        + QStringLiteral(" %U"));
    programs.addScript(QStringLiteral("seen"));
    constexpr const char* kHardUrl = "smb://a$(b)&c'@office.local:40123/N%20S/;x=%25+--";
    show(bus.connect(), kHardUrl, "fresh");
    EXPECT_EQ(programs.calls(2),
              (QStringList{QStringLiteral("files|%1|").arg(QLatin1String(kHardUrl)),
                           QStringLiteral("seen|")}));
    QFile tokens(programs.path() + QStringLiteral("/tokens"));
    EXPECT_TRUE(tokens.open(QIODevice::ReadOnly));
    EXPECT_EQ(tokens.readAll().trimmed(), "2");
}

/// `gio mime` then names the first registered program as the default one.
TEST_F(FolderShowingTest, startsAFileManagerOfWhichTheRealGioKnowsWhereNoDefaultIsChosen)
{
    programs.environment.set("XDG_CONFIG_HOME", programs.path().toUtf8());
    programs.environment.set("XDG_DATA_DIRS", programs.path().toUtf8());
    ASSERT_TRUE(QFile::remove(programs.path() + QStringLiteral("/gio")));
    programs.addHandler(programs.addScript(QStringLiteral("usage")) + QStringLiteral(" %u"),
                        QStringLiteral("a.usage.desktop"),
                        QStringLiteral("Categories=GTK;System;"));
    programs.addHandler(programs.addScript(QStringLiteral("files")) + QStringLiteral(" %U"),
                        QStringLiteral("files.desktop"),
                        QStringLiteral("Categories=GTK;FileManager;"));
    programs.write(
        QStringLiteral("applications/mimeinfo.cache"),
        QStringLiteral("[MIME Cache]\ninode/directory=a.usage.desktop;files.desktop;\n"));
    show();
    EXPECT_EQ(shownWith(), kByHandler);
    EXPECT_EQ(programs.calls(1),
              QStringList(QStringLiteral("files|%1|").arg(QLatin1String(kFolder))));
}

TEST_F(FolderShowingTest, asksAProgramThatOpensUrlsOverTheBusThereWithTheToken)
{
    addBusHandler();
    const FileManager files(bus.connect(), Manner::Obliging,
                            QStringLiteral("org.example.My-Files"));
    show();
    EXPECT_EQ(shownWith(), kByHandler);
    ASSERT_EQ(files.calls.size(), 1U);
    const QDBusMessage& call = files.calls.front();
    EXPECT_EQ(call.interface(), QStringLiteral("org.freedesktop.Application"));
    EXPECT_EQ(call.member(), QStringLiteral("Open"));
    EXPECT_EQ(call.signature(), QStringLiteral("asa{sv}"));
    EXPECT_EQ(files.folders, std::vector<std::string>{kFolder});
    const auto data = qdbus_cast<QVariantMap>(call.arguments().value(1));
    EXPECT_EQ(data.value(QStringLiteral("activation-token")), QStringLiteral("token"));
    EXPECT_EQ(data.value(QStringLiteral("desktop-startup-id")), QStringLiteral("token"));
}

TEST_F(FolderShowingTest, startsAProgramThatIsNotOnTheBusAfterAll)
{
    addBusHandler();
    programs.addScript(QStringLiteral("files"));
    show();
    EXPECT_EQ(shownWith(), kByHandler);
    EXPECT_EQ(programs.calls(2).mid(1),
              QStringList(QStringLiteral("files|%1|").arg(QLatin1String(kFolder))));
}

TEST_F(FolderShowingTest, asksTheFileManagerOnTheBusWithoutAProgramForFolders)
{
    addFileManager(Manner::Obliging);
    show();
    EXPECT_EQ(shownWith(), kByManager);
    ASSERT_EQ(fileManager->calls.size(), 1U);
    const QDBusMessage& call = fileManager->calls.front();
    EXPECT_EQ(call.interface(), QStringLiteral("org.freedesktop.FileManager1"));
    EXPECT_EQ(call.member(), QStringLiteral("ShowFolders"));
    EXPECT_EQ(call.signature(), QStringLiteral("ass"));
    EXPECT_EQ(fileManager->folders, std::vector<std::string>{kFolder});
    EXPECT_EQ(call.arguments().value(1), QStringLiteral("token"));
}

TEST_F(FolderShowingTest, hasTheBusStartTheFileManager)
{
    const QString script = programs.addScript(QStringLiteral("shown"));
    bus.makeActivatable(QStringLiteral("org.freedesktop.FileManager1"),
                        QStringLiteral(FILE_MANAGER_STAND_IN " ") + script);
    show();
    EXPECT_EQ(programs.calls(2).mid(1),
              QStringList(QStringLiteral("shown|ShowFolders|%1|").arg(QLatin1String(kFolder))));
}

TEST_F(FolderShowingTest, asksTheFileManagerWhenTheProgramForFoldersTakesNoUrls)
{
    addFileManager(Manner::Obliging);
    programs.addGio(QStringLiteral("files.desktop"));
    programs.addHandler(QStringLiteral("files %F"));
    show();
    EXPECT_EQ(shownWith(), kByManager);
}

TEST_F(FolderShowingTest, asksTheFileManagerWhenTheProgramForFoldersDoesNotStart)
{
    addFileManager(Manner::Obliging);
    programs.addGio(QStringLiteral("files.desktop"));
    programs.addHandler(QStringLiteral("/nonexistent/files %U"));
    show();
    EXPECT_EQ(shownWith(), kByManager);
}

TEST_F(FolderShowingTest, asksTheFileManagerWhenTheProgramForFoldersFailsAtOnce)
{
    addFileManager(Manner::Obliging);
    programs.addGio(QStringLiteral("files.desktop"));
    programs.addHandler(QStringLiteral("files %U"));
    programs.addScript(QStringLiteral("files"), QStringLiteral("exit 1\n"));
    show();
    EXPECT_EQ(shownWith(), kByManager);
}

/// PCManFM does, when the process that opens its windows is about to end.
TEST_F(FolderShowingTest, startsAProgramAgainThatFailsOnce)
{
    addFileManager(Manner::Obliging);
    programs.addGio(QStringLiteral("files.desktop"));
    programs.addHandler(QStringLiteral("files %U"));
    programs.addScript(QStringLiteral("files"),
                       QStringLiteral("mkdir \"${0%/*}/failed\" 2>/dev/null && exit 1\nexit 0\n"));
    show();
    EXPECT_EQ(shownWith(), kByHandler);
    EXPECT_TRUE(fileManager->calls.empty());
}

TEST_F(FolderShowingTest, leavesTheFolderToAProgramThatGoesOnRunning)
{
    moment = 200ms;
    addFileManager(Manner::Obliging);
    addHandlerThatStays();
    show();
    EXPECT_EQ(shownWith(), kByHandler);
    EXPECT_TRUE(fileManager->calls.empty());
    endHandler();
}

TEST_F(FolderShowingTest, leavesTheFolderToAProgramThatMayStillFailWhenTheTimeIsOver)
{
    limit = 300ms;
    addFileManager(Manner::Obliging);
    addHandlerThatStays();
    show();
    EXPECT_EQ(shownWith(), std::string(kByHandler) + ", which has not answered yet");
    endHandler();
    // A failure that comes late opens no second window, of the program or of the file manager.
    EXPECT_FALSE(waitUntil([this] { return programs.calls(2).size() > 2; }, 100));
    EXPECT_TRUE(fileManager->calls.empty());
}

TEST_F(FolderShowingTest, givesUpWhenNothingElseOpensTheFolderInPlaceOfAProgramThatFailed)
{
    programs.addHandler(QStringLiteral("files %U"));
    programs.addScript(QStringLiteral("files"), QStringLiteral("exit 1\n"));
    // Mounting takes longer than the limit.
    programs.addScript(QStringLiteral("gio"),
                       QStringLiteral("[ \"$1\" != mime ] && exec sleep 60\n"
                                      "echo 'Default application for x: files.desktop'\n"));
    std::string with;
    // Longer limits for slow computers, on which the program has not failed yet after a shorter
    // one.
    for (limit = 500ms; with != "nothing" && limit <= 8s; limit *= 2) {
        shown.reset();
        show(QDBusConnection(QStringLiteral("none")));
        with = shownWith();
    }
    EXPECT_EQ(with, "nothing");
}

TEST_F(FolderShowingTest, mountsWhenTheFileManagerRefuses)
{
    addFileManager(Manner::Refusing);
    show();
    EXPECT_EQ(shownWith(), "gio open");
    EXPECT_EQ(programs.calls(3).mid(1), expectedMount());
    EXPECT_EQ(log.lines,
              std::vector<std::string>{"desktop: the file manager failed: org.example.No"});
}

TEST_F(FolderShowingTest, mountsWithoutABus)
{
    show(QDBusConnection(QStringLiteral("none")));
    EXPECT_EQ(shownWith(), "gio open");
}

TEST_F(FolderShowingTest, opensWhatWasMountedBefore)
{
    programs.addGio(QStringLiteral("missing.desktop"), QStringLiteral("mount"));
    show();
    EXPECT_EQ(shownWith(), "gio open");
    EXPECT_EQ(programs.calls(3).mid(1), expectedMount());
}

TEST_F(FolderShowingTest, leavesTheFolderToAFileManagerThatHasNotAnsweredInTime)
{
    limit = 1s;
    addFileManager(Manner::Silent);
    show();
    EXPECT_EQ(shownWith(), "the file manager, which has not answered yet");
    ASSERT_EQ(fileManager->calls.size(), 1U);
    // A refusal that comes late opens no second window.
    fileManager->refuse(fileManager->calls.front());
    EXPECT_FALSE(waitUntil([this] { return programs.calls(1).size() > 1; }, 100));
}

TEST_F(FolderShowingTest, goesOnWhenAFileManagerCrashesInsteadOfAnswering)
{
    addFileManager(Manner::Silent);
    show();
    ASSERT_TRUE(waitUntil([this] { return !fileManager->calls.empty(); }));
    QDBusConnection::disconnectFromBus(fileManager->bus.name());
    fileManager.reset();
    EXPECT_EQ(shownWith(), "gio open");
}

TEST_F(FolderShowingTest, reportsThatNothingOpensTheFolder)
{
    programs.addGio(QStringLiteral("missing.desktop"), QStringLiteral("open"));
    show();
    EXPECT_EQ(shownWith(), "nothing");
}

TEST_F(FolderShowingTest, givesUpWhenNothingHasOpenedTheFolderInTime)
{
    limit = 200ms;
    addFileManager(Manner::Obliging);
    programs.addScript(QStringLiteral("gio"), QStringLiteral("exec sleep 60"));
    show();
    EXPECT_EQ(shownWith(), "nothing");
    showing.reset();
    EXPECT_FALSE(waitUntil([this] { return !fileManager->calls.empty(); }, 100));
}

TEST_F(FolderShowingTest, reportsNothingOnceItIsDropped)
{
    addFileManager(Manner::Obliging);
    show();
    showing.reset();
    EXPECT_FALSE(waitUntil([this] { return shown || !fileManager->calls.empty(); }, 200));
}

} // namespace

} // namespace quillbox
