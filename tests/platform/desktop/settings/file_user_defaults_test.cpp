#include "platform/desktop/settings/file_user_defaults.h"
#include "platform/desktop/settings/settings_file.h"
#include "platform/desktop/settings/user_folders.h"
#include "platform/posix/file_descriptor.h"
#include "tests/fakes/descriptor_shortage.h"
#include "tests/fakes/fake_dispatch.h"
#include "tests/platform/desktop/qt_support.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <future>
#include <map>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/file.h>
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
    EXPECT_EQ(store->stringForKey("host", "standard"), "standard");
    EXPECT_TRUE(store->boolForKey("showInFinder", true));
    EXPECT_FALSE(store->boolForKey("showInFinder", false));
    EXPECT_THAT(store->problem(), IsEmpty());
    store = nullptr;
    EXPECT_FALSE(QFile::exists(pathOf("settings.json")));
}

TEST_F(FileUserDefaultsTest, aFileOfMoreThanOneMebibyteIsNotRead)
{
    QByteArray text(R"({"host": "office"})");
    text.append(1024 * 1024 - text.size(), ' ');
    write(text);
    EXPECT_THAT(open(), IsEmpty());
    EXPECT_EQ(store->stringForKey("host", "standard"), "office");
    write(text + ' ');
    EXPECT_THAT(open(), HasSubstr("it is larger than 1 MiB"));
}

TEST_F(FileUserDefaultsTest, valuesComeBackInTheirKind)
{
    open();
    store->setString("host", "192.0.2.7");
    store->setString("share", " Fotos \u00e9 \"x\" \n");
    store->setBool("showInFinder", false);
    EXPECT_EQ(store->stringForKey("host", ""), "192.0.2.7");
    EXPECT_THAT(settle(), IsEmpty());
    EXPECT_THAT(open(), IsEmpty());
    EXPECT_EQ(store->stringForKey("host", ""), "192.0.2.7");
    EXPECT_EQ(store->stringForKey("share", ""), " Fotos \u00e9 \"x\" \n");
    EXPECT_FALSE(store->boolForKey("showInFinder", true));
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
    for (const bool standard : {true, false}) {
        open();
        EXPECT_TRUE(store->boolForKey("t", standard));
        EXPECT_FALSE(store->boolForKey("f", standard));
        EXPECT_FALSE(store->boolForKey("0", standard));
        EXPECT_TRUE(store->boolForKey("1", standard));
    }
    for (const char* key : {"2", "half", "text", "null", "list", "object"}) {
        EXPECT_THAT(printedBy([&] { EXPECT_TRUE(store->boolForKey(key, true)) << key; }),
                    HasSubstr("is not true or false; its default, true, is used instead"));
    }
    open();
    EXPECT_THAT(printedBy([&] { EXPECT_FALSE(store->boolForKey("text", false)); }),
                HasSubstr("its default, false, is used instead"));
}

TEST_F(FileUserDefaultsTest, aChoiceIsOneOfSeveralTexts)
{
    constexpr std::array<std::string_view, 3> kColours{"red", "green", "blue"};
    write(R"({"good": "green", "text": "grey", "number": 1, "null": null})");
    open();
    EXPECT_EQ(printedBy([&] {
                  EXPECT_EQ(store->choiceForKey("good", kColours), "green");
                  EXPECT_EQ(store->choiceForKey("absent", kColours), "red");
              }),
              "");
    for (const std::string key : {"text", "number", "null"}) {
        EXPECT_THAT(printedBy([&] { EXPECT_EQ(store->choiceForKey(key, kColours), "red") << key; }),
                    HasSubstr("the setting \"" + key + "\" in "
                              + pathOf("settings.json").toStdString()
                              + " is not one of \"red\", \"green\", \"blue\"; its default, "
                                "\"red\", is used instead"));
    }
    // What holds anyway does not replace what somebody wrote; anything else does.
    store->setString("text", "red");
    store->setString("number", "blue");
    settle();
    EXPECT_EQ(object()[QStringLiteral("text")], QStringLiteral("grey"));
    EXPECT_EQ(object()[QStringLiteral("number")], QStringLiteral("blue"));
}

TEST_F(FileUserDefaultsTest, areSavedAtOnceOnRequest)
{
    open();
    EXPECT_TRUE(store->save());
    EXPECT_FALSE(QFile::exists(pathOf("settings.json")));
    store->setBool("b", true);
    EXPECT_TRUE(store->save());
    EXPECT_EQ(object()[QStringLiteral("b")], true);

    QFile::remove(pathOf("settings.json"));
    QDir(folder.path()).mkdir(QStringLiteral("settings.json"));
    store->setBool("b", false);
    EXPECT_THAT(printedBy([&] { EXPECT_FALSE(store->save()); }),
                HasSubstr("settings cannot be stored"));
    EXPECT_THAT(printedBy([&] {
                    store = makeFileUserDefaults({}, dispatch.mainQueue());
                    store->setBool("b", true);
                    EXPECT_FALSE(store->save());
                }),
                HasSubstr("there is no home folder"));
}

TEST_F(FileUserDefaultsTest, onlyTextsAreTexts)
{
    write(R"({"number": 445, "bool": true, "null": null, "text": "445"})");
    open();
    for (const char* key : {"number", "bool", "null"}) {
        EXPECT_THAT(
            printedBy([&] { EXPECT_EQ(store->stringForKey(key, "standard"), "standard") << key; }),
            HasSubstr("is not a string; its default, \"standard\", is used instead"));
    }
    EXPECT_THAT(printedBy([&] { EXPECT_EQ(store->stringForKey("text", "standard"), "445"); }),
                IsEmpty());
}

TEST_F(FileUserDefaultsTest, aValueOfAnotherKindIsNamedOnce)
{
    write(R"({"port": 445, "showInFinder": "yes"})");
    EXPECT_THAT(open(), IsEmpty());
    const auto ask = [this] {
        store->stringForKey("port", "4445");
        store->boolForKey("showInFinder", true);
        store->stringForKey("absent", "standard");
    };
    const std::string said = printedBy(ask);
    EXPECT_THAT(said, HasSubstr("\"port\""));
    EXPECT_THAT(said, HasSubstr("\"showInFinder\""));
    EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 2);
    EXPECT_THAT(printedBy(ask), IsEmpty());
}

TEST_F(FileUserDefaultsTest, aValueOfAnotherKindStaysUntilAnotherThanTheDefaultIsSet)
{
    const QByteArray written = R"({"port": 445, "showInFinder": "yes"})";
    write(written);
    open();
    printedBy([this] {
        store->stringForKey("port", "4445");
        store->boolForKey("showInFinder", true);
    });
    store->setString("port", "4445");
    store->setBool("showInFinder", true);
    settle();
    EXPECT_EQ(read(), written);

    store->setString("port", "446");
    settle();
    EXPECT_EQ(object().value(QStringLiteral("port")), QStringLiteral("446"));
    EXPECT_EQ(object().value(QStringLiteral("showInFinder")), QStringLiteral("yes"));
}

TEST_F(FileUserDefaultsTest, aDefaultThatIsSetIsStoredWhereThereIsNone)
{
    open();
    store->stringForKey("port", "4445");
    store->setString("port", "4445");
    settle();
    EXPECT_EQ(object().value(QStringLiteral("port")), QStringLiteral("4445"));
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

TEST_F(FileUserDefaultsTest, whatSomebodyElseChangedMeanwhileIsKeptUntilItIsSetToAnotherValue)
{
    write(R"({"host": "old", "user": "me", "share": "NAS"})");
    open();
    write(R"({"host": "edited", "share": "NAS"})");
    store->setString("host", "old"); // as it was when the file was read
    store->setString("user", "me");
    store->setString("share", "Fotos");
    settle();
    EXPECT_EQ(object().value(QStringLiteral("host")), QStringLiteral("edited"));
    EXPECT_EQ(object().value(QStringLiteral("share")), QStringLiteral("Fotos"));
    EXPECT_FALSE(object().contains(QStringLiteral("user")));
    EXPECT_EQ(store->stringForKey("host", ""), "old");

    store->setString("host", "new");
    settle();
    EXPECT_EQ(object().value(QStringLiteral("host")), QStringLiteral("new"));
}

TEST_F(FileUserDefaultsTest, whatIsEditedBetweenReadingAndWritingIsNotOverwritten)
{
    const SettingsFile file(pathOf("settings.json").toStdString());
    const QJsonObject ours{{QStringLiteral("host"), QStringLiteral("ours")}};
    using Written = SettingsFile::Outcome;

    auto contents = file.read(); // there is none
    write("{}");
    EXPECT_EQ(file.replace(ours, contents), Written::Overtaken);
    EXPECT_EQ(read(), "{}");

    contents = file.read();
    write(R"({"host": "edited"})");
    EXPECT_EQ(file.replace(ours, contents), Written::Overtaken);
    EXPECT_EQ(read(), R"({"host": "edited"})");

    contents = file.read();
    write(R"({"host": "edited"})", "other");
    ASSERT_EQ(std::rename(pathOf("other").toStdString().c_str(), file.path().c_str()), 0);
    EXPECT_EQ(file.replace(ours, contents), Written::Overtaken);

    contents = file.read();
    QFile::remove(pathOf("settings.json"));
    EXPECT_EQ(file.replace(ours, contents), Written::Overtaken);

    write("damage");
    contents = file.read();
    write(R"({"host": "edited"})");
    EXPECT_EQ(file.replace(ours, contents), Written::Overtaken);
    EXPECT_EQ(read(), R"({"host": "edited"})");

    EXPECT_EQ(file.replace(ours, file.read()), Written::Done);
    EXPECT_EQ(object(), ours);
    EXPECT_EQ(QDir(folder.path()).entryList(QDir::Files).size(), 1);
}

TEST_F(FileUserDefaultsTest, whatSeveralProcessesWriteAtOnceIsKept)
{
    constexpr int kWrites = 100;
    write("{}");
    const auto writeOften = [this](const char* name) {
        const SettingsFile file(pathOf("settings.json").toStdString());
        const QString key = QString::fromLatin1(name);
        int lost = 0;
        for (int number = 1; number <= kWrites; ++number) {
            const QJsonObject change{{key, number}};
            if (!file.write(change, change) || file.read().object.value(key) != number)
                ++lost;
        }
        return lost;
    };
    auto other = std::async(std::launch::async, writeOften, "other");
    EXPECT_EQ(writeOften("own"), 0);
    EXPECT_EQ(other.get(), 0);
}

TEST_F(FileUserDefaultsTest, aProcessThatIsStoppedWhileItWritesHoldsNobodyUpForLong)
{
    write("{}");
    const FileDescriptor holder(
        ::open(QFile::encodeName(folder.path()).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    ASSERT_EQ(::flock(holder.get(), LOCK_EX), 0);
    open();
    store->setString("host", "h");
    EXPECT_TRUE(store->save());
    EXPECT_EQ(object().value(QStringLiteral("host")), QStringLiteral("h"));
}

TEST_F(FileUserDefaultsTest, whatWasWrittenOnceIsNotWrittenAgain)
{
    open();
    store->setString("host", "set");
    settle();
    const QByteArray edited = R"({"host":"edited","user":"me"})";
    write(edited);
    store->setString("user", "me"); // as it is in the file meanwhile
    settle();
    EXPECT_EQ(read(), edited);
    store->setString("share", "Fotos");
    settle();
    EXPECT_EQ(object().value(QStringLiteral("host")), QStringLiteral("edited"));
}

TEST_F(FileUserDefaultsTest, whatIsInMemoryIsStoredWhenTheFileIsGoneOrDamaged)
{
    const QByteArray complete =
        R"({"host": "h", "port": 445, "showInFinder": false, "future": [1]})";
    for (const char* damage :
         {R"({"host": "h", "po)", "", "[]", static_cast<const char*>(nullptr)}) {
        write(complete);
        open();
        printedBy([this] { store->stringForKey("port", "4445"); });
        if (damage)
            write(damage);
        else
            QFile::remove(pathOf("settings.json"));
        store->setBool("showInFinder", true);
        settle();
        EXPECT_EQ(object(),
                  QJsonDocument::fromJson(
                      R"({"host": "h", "port": "4445", "showInFinder": true, "future": [1]})")
                      .object());
    }
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
    EXPECT_FALSE(store->setString("host", "h"));
    EXPECT_FALSE(store->setBool("showInFinder", true));
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
        EXPECT_EQ(store->stringForKey("host", "standard"), "standard");
        store = nullptr;
        EXPECT_EQ(read(), damaged);
    }
}

TEST_F(FileUserDefaultsTest, whatIsAssumedForADamagedFileIsStoredWithTheFirstChange)
{
    write(R"({"thisComputerOnly": tr)");
    open();
    EXPECT_THAT(store->problem(), HasSubstr("settings.json: "));
    EXPECT_TRUE(store->boolForKey("thisComputerOnly", true));
    EXPECT_TRUE(store->setString("host", "h"));
    settle();
    EXPECT_EQ(object(),
              QJsonDocument::fromJson(R"({"host": "h", "thisComputerOnly": true})").object());
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

TEST_F(FileUserDefaultsTest, whatIsNoRegularFileIsLeftAlone)
{
    const std::string path = pathOf("settings.json").toStdString();
    const std::string elsewhere = pathOf("elsewhere").toStdString();
    ASSERT_EQ(::mkfifo(elsewhere.c_str(), 0600), 0);
    const std::map<std::string, std::function<int()>> kinds{
        {"pipe", [&] { return ::mkfifo(path.c_str(), 0600); }},
        {"folder", [&] { return ::mkdir(path.c_str(), 0700); }},
        {"link to a pipe", [&] { return ::symlink("elsewhere", path.c_str()); }},
        {"loop of links", [&] { return ::symlink("settings.json", path.c_str()); }}};
    const auto identity = [](const std::string& file) {
        struct stat status {};
        EXPECT_EQ(::lstat(file.c_str(), &status), 0);
        return std::pair(status.st_mode, status.st_ino);
    };
    for (const auto& [kind, make] : kinds) {
        ASSERT_EQ(make(), 0) << kind;
        const auto before = std::pair(identity(path), identity(elsewhere));
        EXPECT_THAT(open(), HasSubstr("cannot be used")) << kind;
        store->setString("host", "h");
        EXPECT_THAT(settle(), HasSubstr("settings cannot be stored")) << kind;
        EXPECT_EQ(store->stringForKey("host", ""), "h");
        EXPECT_THAT(printedBy([this] { store = nullptr; }), HasSubstr("settings cannot be stored"));
        EXPECT_EQ(std::pair(identity(path), identity(elsewhere)), before) << kind;
        EXPECT_EQ(QDir(folder.path())
                      .entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot)
                      .size(),
                  2)
            << kind;
        std::filesystem::remove(path);
    }
}

TEST_F(FileUserDefaultsTest, aFileThatCannotBeReadIsLeftAloneAndItsChangesAreWrittenLater)
{
    const QByteArray written = R"({"host": "stored", "port": "445"})";
    write(written);
    QFile::setPermissions(pathOf("settings.json"), {});
    const OrdinaryUser user(folder.path().toStdString());
    ASSERT_EQ(::chmod(QFile::encodeName(folder.path()).constData(), 0700), 0);
    EXPECT_THAT(open(), HasSubstr("Permission denied"));
    EXPECT_THAT(store->problem(), HasSubstr("Permission denied"));
    EXPECT_EQ(store->stringForKey("host", ""), "");
    EXPECT_EQ(store->stringForKey("port", "4445"), "4445");
    store->setString("host", "");
    store->setString("port", "4445");
    EXPECT_THAT(settle(), IsEmpty()) << "these are the defaults, which nobody has set";
    store->setString("user", "me");
    EXPECT_THAT(settle(), HasSubstr("Permission denied"));
    EXPECT_EQ(QDir(folder.path()).entryList(QDir::Files),
              QStringList(QStringLiteral("settings.json")));

    QFile::remove(pathOf("settings.json"));
    write(written);
    store = nullptr;
    EXPECT_EQ(
        object(),
        QJsonDocument::fromJson(R"({"host": "stored", "port": "445", "user": "me"})").object());
}

TEST_F(FileUserDefaultsTest, withoutDescriptorsTheFileStaysAndItsChangesAreWrittenLater)
{
    const QByteArray written = R"({"host": "stored"})";
    write(written);
    open();
    store->setString("user", "me");
    // The capture takes descriptors of its own.
    ::testing::internal::CaptureStderr();
    {
        const DescriptorShortage shortage;
        dispatch.runAll();
    }
    EXPECT_THAT(::testing::internal::GetCapturedStderr(), HasSubstr("Too many open files"));
    EXPECT_EQ(read(), written);
    EXPECT_EQ(QDir(folder.path()).entryList(QDir::Files),
              QStringList(QStringLiteral("settings.json")));
    store = nullptr;
    EXPECT_EQ(object().size(), 2);
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
    EXPECT_EQ(store->stringForKey("host", ""), "new");

    ASSERT_EQ(::chmod(QFile::encodeName(folder.path()).constData(), 0700), 0);
    QFile::remove(pathOf("settings.json"));
    // The value is the same, but it is not on disk yet, so it must be written.
    store->setString("host", "new");
    EXPECT_THAT(settle(), IsEmpty());
    EXPECT_EQ(object().value(QStringLiteral("host")), QStringLiteral("new"));
}

/// The largest file that may be written while it exists, as on a disk that is full.
class FullDisk final {
public:
    explicit FullDisk(rlim_t largest)
    {
        std::signal(SIGXFSZ, SIG_IGN);
        ::getrlimit(RLIMIT_FSIZE, &before);
        rlimit small = before;
        small.rlim_cur = largest;
        ::setrlimit(RLIMIT_FSIZE, &small);
    }
    FullDisk(const FullDisk&) = delete;
    FullDisk& operator=(const FullDisk&) = delete;
    ~FullDisk()
    {
        ::setrlimit(RLIMIT_FSIZE, &before);
        std::signal(SIGXFSZ, SIG_DFL);
    }

private:
    rlimit before{};
};

TEST_F(FileUserDefaultsTest, whenTheDiskIsFullTheOldFileStaysWhole)
{
    // Qt writes the small one only when it is flushed.
    for (const auto& [old, size, room] :
         {std::tuple<QByteArray, int, rlim_t>(R"({"host": "old"})", 200'000, 65'536),
          std::tuple<QByteArray, int, rlim_t>("damaged", 200'000, 65'536),
          std::tuple<QByteArray, int, rlim_t>("damaged", 5'000, 100)}) {
        write(old);
        QFile::remove(pathOf("settings.json.invalid"));
        open();
        store->setString("host", std::string(static_cast<std::size_t>(size), 'x'));
        {
            // What is printed is not captured: that takes room, too.
            const FullDisk disk(room);
            dispatch.runAll();
        }
        EXPECT_EQ(read(), old);
        EXPECT_EQ(QDir(folder.path()).entryList(QDir::Files).size(), 1);

        store->setString("user", "me");
        settle();
        EXPECT_EQ(object().value(QStringLiteral("host")).toString().size(), size);
    }
}

TEST_F(FileUserDefaultsTest, aSymbolicLinkStaysOne)
{
    QDir().mkdir(pathOf("elsewhere"));
    write(R"({"host": "old"})", "elsewhere/real.json");
    ASSERT_TRUE(QFile::link(QStringLiteral("elsewhere/real.json"), pathOf("settings.json")));
    open();
    EXPECT_EQ(store->stringForKey("host", ""), "old");
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

TEST_F(FileUserDefaultsTest, withoutAPlaceToStoreThingsTheyAreKeptInMemory)
{
    const std::string said =
        printedBy([this] { store = makeFileUserDefaults({}, dispatch.mainQueue()); });
    EXPECT_THAT(said, HasSubstr("there is no home folder"));
    store->setString("host", "h");
    EXPECT_THAT(settle(), IsEmpty());
    EXPECT_EQ(store->stringForKey("host", ""), "h");
}

TEST_F(FileUserDefaultsTest, aFileThatCannotBeReadNowIsLeftAlone)
{
    // A regular file, whose beginning nothing is mapped to.
    const std::string path = "/proc/self/mem";
    store = nullptr;
    const std::string said =
        printedBy([&] { store = makeFileUserDefaults(path, dispatch.mainQueue()); });
    EXPECT_THAT(said, HasSubstr(path + " cannot be used: Input/output error"));
    store->setString("host", "h");
    EXPECT_THAT(settle(), HasSubstr("cannot be stored: " + path + ": Input/output error"));
}

TEST_F(FileUserDefaultsTest, theFileIsWhereTheDesktopKeepsSettings)
{
    Environment environment;
    environment.set("HOME", "/home/somebody");
    environment.set("XDG_CONFIG_HOME", "/elsewhere");
    EXPECT_EQ(configurationPath("a/b"), "/elsewhere/a/b");
    for (const char* unusable : {"", "relative"}) {
        environment.set("XDG_CONFIG_HOME", unusable);
        EXPECT_EQ(configurationPath("a/b"), "/home/somebody/.config/a/b");
    }
}

} // namespace

} // namespace quillbox
