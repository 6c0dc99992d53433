#include "platform/desktop/file_user_defaults.h"
#include "tests/fakes/fake_dispatch.h"
#include "tests/platform/desktop/qt_support.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <csignal>

#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>

namespace quillbox {

namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;

class FileUserDefaultsTest : public ::testing::Test {
protected:
    QString pathOf(const char* name) const { return folder.filePath(QString::fromLatin1(name)); }

    void write(const QByteArray& bytes, const char* name = "settings.json") const
    {
        QFile target(pathOf(name));
        ASSERT_TRUE(target.open(QIODevice::WriteOnly));
        target.write(bytes);
    }

    QByteArray read(const char* name = "settings.json") const
    {
        QFile source(pathOf(name));
        return source.open(QIODevice::ReadOnly) ? source.readAll() : QByteArray();
    }

    QJsonObject object() const { return QJsonDocument::fromJson(read()).object(); }

    /// Opens the store and returns what it prints to standard error.
    std::string open(const char* name = "settings.json")
    {
        store = nullptr;
        return printedBy([&] {
            store = makeFileUserDefaults(pathOf(name).toStdString(), dispatch.mainQueue());
        });
    }

    template <class Action> static std::string printedBy(Action action)
    {
        ::testing::internal::CaptureStderr();
        action();
        return ::testing::internal::GetCapturedStderr();
    }

    /// Runs the main queue, which writes the values, and returns what is printed to standard error.
    std::string settle()
    {
        return printedBy([this] { dispatch.runAll(); });
    }

    static mode_t modeOf(const QString& path)
    {
        struct stat status {};
        ::stat(QFile::encodeName(path).constData(), &status);
        return status.st_mode & 07777U;
    }

    QTemporaryDir folder;
    FakeDispatch dispatch;
    std::unique_ptr<UserDefaults> store;
};

TEST_F(FileUserDefaultsTest, withoutAFileNothingIsStoredAndNothingIsSaid)
{
    EXPECT_THAT(open(), IsEmpty());
    EXPECT_EQ(store->stringForKey("host"), std::nullopt);
    EXPECT_EQ(store->boolForKey("showInFinder"), std::nullopt);
    store = nullptr;
    EXPECT_FALSE(QFile::exists(pathOf("settings.json")));
}

TEST_F(FileUserDefaultsTest, valuesComeBackInTheirKind)
{
    open();
    store->setString("host", "192.0.2.7");
    store->setString("share", " Fotos \u00e9 \"x\" \n");
    store->setBool("showInFinder", false);
    EXPECT_EQ(store->stringForKey("host"), "192.0.2.7");
    EXPECT_THAT(settle(), IsEmpty());
    EXPECT_THAT(open(), IsEmpty());
    EXPECT_EQ(store->stringForKey("host"), "192.0.2.7");
    EXPECT_EQ(store->stringForKey("share"), " Fotos \u00e9 \"x\" \n");
    EXPECT_EQ(store->boolForKey("showInFinder"), false);
}

TEST_F(FileUserDefaultsTest, fileAndFolderAreTheirOwnersAlone)
{
    open("new/folder/settings.json");
    store->setString("host", "h");
    settle();
    EXPECT_EQ(modeOf(pathOf("new/folder/settings.json")), 0600U);
    EXPECT_EQ(modeOf(pathOf("new/folder")), 0700U);
    EXPECT_EQ(modeOf(pathOf("new")), 0700U);
}

TEST_F(FileUserDefaultsTest, aFileThatOthersCouldReadIsClosedToThem)
{
    write("{}");
    QFile::setPermissions(pathOf("settings.json"),
                          QFile::ReadOwner | QFile::WriteOwner | QFile::ReadOther);
    open();
    store->setString("host", "h");
    settle();
    EXPECT_EQ(modeOf(pathOf("settings.json")), 0600U);
}

TEST_F(FileUserDefaultsTest, onlyBooleansAndZeroAndOneAreBooleans)
{
    write(R"({"t": true, "f": false, "0": 0, "1": 1, "2": 2, "half": 0.5, "text": "true",)"
          R"( "null": null, "list": [true], "object": {}})");
    open();
    EXPECT_EQ(store->boolForKey("t"), true);
    EXPECT_EQ(store->boolForKey("f"), false);
    EXPECT_EQ(store->boolForKey("0"), false);
    EXPECT_EQ(store->boolForKey("1"), true);
    for (const char* key : {"2", "half", "text", "null", "list", "object", "absent"})
        EXPECT_EQ(store->boolForKey(key), std::nullopt) << key;
}

TEST_F(FileUserDefaultsTest, onlyTextsAreTexts)
{
    write(R"({"number": 445, "bool": true, "text": "445"})");
    open();
    EXPECT_EQ(store->stringForKey("number"), std::nullopt);
    EXPECT_EQ(store->stringForKey("bool"), std::nullopt);
    EXPECT_EQ(store->stringForKey("text"), "445");
}

TEST_F(FileUserDefaultsTest, aValueOfAnotherKindIsNamedOnce)
{
    write(R"({"port": 445, "showInFinder": "yes"})");
    EXPECT_THAT(open(), IsEmpty());
    const auto ask = [this] {
        store->stringForKey("port");
        store->boolForKey("showInFinder");
        store->stringForKey("absent");
    };
    const std::string said = printedBy(ask);
    EXPECT_THAT(said, HasSubstr("\"port\""));
    EXPECT_THAT(said, HasSubstr("\"showInFinder\""));
    EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 2);
    EXPECT_THAT(printedBy(ask), IsEmpty());
}

TEST_F(FileUserDefaultsTest, keysThatNobodySetsAreKept)
{
    write(R"({"future": {"a": [1, 2.5, null]}, "host": "old"})");
    open();
    store->setString("host", "new");
    settle();
    EXPECT_EQ(object().value(QStringLiteral("host")), QStringLiteral("new"));
    const QJsonObject future = object().value(QStringLiteral("future")).toObject();
    EXPECT_EQ(QJsonDocument(future).toJson(QJsonDocument::Compact), "{\"a\":[1,2.5,null]}");
}

TEST_F(FileUserDefaultsTest, whatSomebodyElseWroteMeanwhileIsKept)
{
    write(R"({"host": "old"})");
    open();
    write(R"({"host": "old", "added": 1})");
    store->setString("user", "me");
    settle();
    EXPECT_EQ(object().value(QStringLiteral("added")).toInt(), 1);
    EXPECT_EQ(object().value(QStringLiteral("user")), QStringLiteral("me"));
}

TEST_F(FileUserDefaultsTest, severalValuesOfOneTurnAreOneWrite)
{
    open();
    store->setString("host", "h");
    store->setString("port", "445");
    store->setBool("showInFinder", true);
    EXPECT_EQ(dispatch.main().pending(), 1U);
    EXPECT_FALSE(QFile::exists(pathOf("settings.json")));
    settle();
    EXPECT_EQ(object().size(), 3);
}

TEST_F(FileUserDefaultsTest, aValueThatIsStoredAlreadyIsNotWritten)
{
    write(R"({"host": "h", "showInFinder": true})");
    open();
    store->setString("host", "h");
    store->setBool("showInFinder", true);
    EXPECT_EQ(dispatch.main().pending(), 0U);
    EXPECT_EQ(read(), R"({"host": "h", "showInFinder": true})");
}

TEST_F(FileUserDefaultsTest, whatIsNotWrittenYetIsWrittenAtTheEnd)
{
    open();
    store->setString("host", "h");
    store = nullptr;
    EXPECT_EQ(object().value(QStringLiteral("host")), QStringLiteral("h"));
    dispatch.runAll();
}

TEST_F(FileUserDefaultsTest, aDamagedFileIsReadAsEmptyAndLeftAloneUntilTheFirstWrite)
{
    const QByteArray huge = R"({"a": ")" + QByteArray(1'048'576, 'x') + R"("})";
    for (const QByteArray& damaged :
         {QByteArray(R"({"host": "h")"), QByteArray("[1]"), QByteArray(R"("text")"), QByteArray(),
          QByteArray(R"({"host": "h"} more)"), QByteArray("{\"host\": \"\xff\"}"), huge}) {
        write(damaged);
        const std::string said = open();
        EXPECT_THAT(said, HasSubstr("quillbox-helper: the settings in "));
        EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 1);
        EXPECT_EQ(store->stringForKey("host"), std::nullopt);
        store = nullptr;
        EXPECT_EQ(read(), damaged);
    }
}

TEST_F(FileUserDefaultsTest, damagedFilesAreSetAsideUnderNamesOfTheirOwn)
{
    write("first damage");
    open();
    store->setString("host", "h");
    EXPECT_THAT(settle(), HasSubstr("settings.json.invalid"));
    EXPECT_EQ(read("settings.json.invalid"), "first damage");
    EXPECT_EQ(object().value(QStringLiteral("host")), QStringLiteral("h"));

    for (const char* name : {"settings.json.invalid-1", "settings.json.invalid-2"}) {
        write(name);
        open();
        store->setString("host", "h");
        settle();
        EXPECT_EQ(read(name), name);
    }
    EXPECT_EQ(read("settings.json.invalid"), "first damage");
}

TEST_F(FileUserDefaultsTest, aFileDamagedWhileTheProgramRunsIsSetAsideToo)
{
    open();
    write("damage");
    store->setString("host", "h");
    settle();
    EXPECT_EQ(read("settings.json.invalid"), "damage");
    EXPECT_EQ(object().value(QStringLiteral("host")), QStringLiteral("h"));
}

TEST_F(FileUserDefaultsTest, somethingThatIsNoFileIsSetAside)
{
    ASSERT_EQ(::mkfifo(QFile::encodeName(pathOf("settings.json")).constData(), 0600), 0);
    EXPECT_THAT(open(), HasSubstr("it is not a regular file"));
    store->setString("host", "h");
    settle();
    EXPECT_EQ(object().value(QStringLiteral("host")), QStringLiteral("h"));
    EXPECT_TRUE(QFile::exists(pathOf("settings.json.invalid")));

    QFile::remove(pathOf("settings.json"));
    QDir().mkdir(pathOf("settings.json"));
    EXPECT_THAT(open(), HasSubstr("it is not a regular file"));
    store->setString("host", "h");
    settle();
    EXPECT_EQ(object().value(QStringLiteral("host")), QStringLiteral("h"));
    EXPECT_TRUE(QFileInfo(pathOf("settings.json.invalid-1")).isDir());
}

TEST_F(FileUserDefaultsTest, aFileThatCannotBeReadIsKept)
{
    write(R"({"host": "old"})");
    QFile::setPermissions(pathOf("settings.json"), {});
    const OrdinaryUser user(folder.path().toStdString());
    EXPECT_THAT(open(), HasSubstr("Permission denied"));
    EXPECT_EQ(store->stringForKey("host"), std::nullopt);
    store->setString("host", "new");
    settle();
    EXPECT_EQ(object().value(QStringLiteral("host")), QStringLiteral("new"));
    EXPECT_TRUE(QFile::exists(pathOf("settings.json.invalid")));
}

TEST_F(FileUserDefaultsTest, inAFolderThatCannotBeWrittenToTheOldFileStaysAndLaterWritesTryAgain)
{
    write(R"({"host": "old"})");
    QFile::setPermissions(pathOf("settings.json"),
                          QFile::ReadOwner | QFile::ReadGroup | QFile::ReadOther);
    const OrdinaryUser user(folder.path().toStdString());
    ASSERT_EQ(::chmod(QFile::encodeName(folder.path()).constData(), 0500), 0);
    EXPECT_THAT(open(), IsEmpty());
    store->setString("host", "new");
    EXPECT_THAT(settle(), HasSubstr("settings cannot be stored"));
    EXPECT_EQ(read(), R"({"host": "old"})");
    EXPECT_EQ(store->stringForKey("host"), "new");

    ASSERT_EQ(::chmod(QFile::encodeName(folder.path()).constData(), 0700), 0);
    QFile::remove(pathOf("settings.json"));
    // The value is the same, but it is not on disk yet, so it must be written.
    store->setString("host", "new");
    EXPECT_THAT(settle(), IsEmpty());
    EXPECT_EQ(object().value(QStringLiteral("host")), QStringLiteral("new"));
}

TEST_F(FileUserDefaultsTest, whenTheDiskIsFullTheOldFileStaysWhole)
{
    write(R"({"host": "old"})");
    open();
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit before{};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
    rlimit small = before;
    small.rlim_cur = 65'536;
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
    store->setString("host", std::string(200'000, 'x'));
    const std::string said = settle();
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &before), 0);
    std::signal(SIGXFSZ, SIG_DFL);
    EXPECT_THAT(said, HasSubstr("settings cannot be stored"));
    EXPECT_EQ(read(), R"({"host": "old"})");
    EXPECT_EQ(QDir(folder.path()).entryList(QDir::Files).size(), 1);

    store->setString("user", "me");
    EXPECT_THAT(settle(), IsEmpty());
    EXPECT_EQ(object().value(QStringLiteral("host")).toString().size(), 200'000);
}

TEST_F(FileUserDefaultsTest, aSymbolicLinkStaysOne)
{
    QDir().mkdir(pathOf("elsewhere"));
    write(R"({"host": "old"})", "elsewhere/real.json");
    ASSERT_TRUE(QFile::link(QStringLiteral("elsewhere/real.json"), pathOf("settings.json")));
    open();
    EXPECT_EQ(store->stringForKey("host"), "old");
    store->setString("host", "new");
    EXPECT_THAT(settle(), IsEmpty());
    EXPECT_TRUE(QFileInfo(pathOf("settings.json")).isSymLink());
    EXPECT_THAT(read("elsewhere/real.json").toStdString(), HasSubstr("new"));
}

TEST_F(FileUserDefaultsTest, aSymbolicLinkToAFileThatIsNotThereMakesIt)
{
    ASSERT_TRUE(QFile::link(QStringLiteral("elsewhere/real.json"), pathOf("settings.json")));
    EXPECT_THAT(open(), IsEmpty());
    store->setString("host", "new");
    EXPECT_THAT(settle(), IsEmpty());
    EXPECT_TRUE(QFileInfo(pathOf("settings.json")).isSymLink());
    EXPECT_THAT(read("elsewhere/real.json").toStdString(), HasSubstr("new"));
}

TEST_F(FileUserDefaultsTest, aLoopOfLinksIsSetAside)
{
    ASSERT_TRUE(QFile::link(QStringLiteral("settings.json"), pathOf("settings.json")));
    EXPECT_THAT(open(), HasSubstr("cannot be used"));
    store->setString("host", "new");
    settle();
    EXPECT_EQ(object().value(QStringLiteral("host")), QStringLiteral("new"));
}

TEST_F(FileUserDefaultsTest, withoutAPlaceToStoreThingsTheyAreKeptInMemory)
{
    const std::string said =
        printedBy([this] { store = makeFileUserDefaults({}, dispatch.mainQueue()); });
    EXPECT_THAT(said, HasSubstr("there is no home folder"));
    store->setString("host", "h");
    EXPECT_THAT(settle(), IsEmpty());
    EXPECT_EQ(store->stringForKey("host"), "h");
}

TEST_F(FileUserDefaultsTest, theFileIsWhereTheDesktopKeepsSettings)
{
    Environment environment;
    environment.set("HOME", "/home/somebody");
    environment.set("XDG_CONFIG_HOME", "/elsewhere");
    EXPECT_EQ(settingsPath("org.example"), "/elsewhere/org.example/settings.json");
    for (const char* unusable : {"", "relative"}) {
        environment.set("XDG_CONFIG_HOME", unusable);
        EXPECT_EQ(settingsPath("org.example"), "/home/somebody/.config/org.example/settings.json");
    }
}

} // namespace

} // namespace quillbox
