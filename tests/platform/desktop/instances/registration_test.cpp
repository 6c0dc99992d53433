#include "platform/desktop/instances/registration.h"
#include "tests/platform/desktop/qt_support.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <chrono>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quillbox {

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::SizeIs;

constexpr const char* kFolderName = "org.example.Helper";

class RegistrationFolder : public ::testing::Test {
protected:
    RegistrationFolder()
    {
        for (const std::string& path : {folders.xdg, folders.user, folders.shared})
            ::mkdir(path.c_str(), 0700);
        ::chmod(folders.shared.c_str(), 01777);
    }

    /// The path of the folder in which an instance registers, relative to that of the test; empty
    /// if it cannot register.
    std::string opened(const std::string& identifier = kFolderName)
    {
        problem.clear();
        const auto added = addRegistration(folders, identifier, problem);
        if (!added)
            return {};
        const auto link = "/proc/self/fd/" + std::to_string(added->registration.folder->get());
        const QString path = QFile::symLinkTarget(QString::fromStdString(link));
        return QDir(base.path()).relativeFilePath(path).toStdString();
    }

    std::string pathOf(const char* name) const
    {
        return base.filePath(QString::fromLatin1(name)).toStdString();
    }

    const std::string sharedName =
        std::string("common/") + kFolderName + '-' + std::to_string(::geteuid());
    QTemporaryDir base;
    RuntimeFolders folders{
        .xdg = pathOf("xdg"), .user = pathOf("user"), .shared = pathOf("common")};
    std::string problem;
};

TEST_F(RegistrationFolder, isMadeInTheRuntimeFolderForThisUserAlone)
{
    EXPECT_EQ(opened(), "xdg/org.example.Helper");
    struct stat status {};
    ASSERT_EQ(::stat(pathOf("xdg/org.example.Helper").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0700U);
    EXPECT_EQ(opened(), "xdg/org.example.Helper");
}

TEST_F(RegistrationFolder, isInTheUsersFolderWhereTheVariableIsOfNoUse)
{
    for (const std::string& xdg : {std::string(), std::string("xdg"), pathOf("absent")}) {
        folders.xdg = xdg;
        EXPECT_EQ(opened(), "user/org.example.Helper") << xdg;
    }
    folders.xdg = pathOf("file");
    QFile file(QString::fromStdString(folders.xdg));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    EXPECT_EQ(opened(), "user/org.example.Helper");
}

TEST_F(RegistrationFolder, isNotInAFolderThatOthersMayWriteTo)
{
    ::chmod(folders.xdg.c_str(), 0777);
    EXPECT_EQ(opened(), "user/org.example.Helper");
}

TEST_F(RegistrationFolder, isAFolderOfThisUsersOwnInASharedPlaceAtLast)
{
    folders.xdg = {};
    folders.user = pathOf("absent");
    EXPECT_EQ(opened(), sharedName);
    EXPECT_EQ(opened(), sharedName);
}

TEST_F(RegistrationFolder, isRefusedWhenALinkStandsInItsPlace)
{
    folders.xdg = folders.user = {};
    ASSERT_EQ(::mkdir(pathOf("elsewhere").c_str(), 0700), 0);
    ASSERT_EQ(::symlink(pathOf("elsewhere").c_str(), pathOf(sharedName.c_str()).c_str()), 0);
    EXPECT_EQ(opened(), "");
    EXPECT_THAT(problem, HasSubstr(sharedName));
}

TEST_F(RegistrationFolder, isRefusedWhenItIsOpenToOthers)
{
    folders.xdg = folders.user = {};
    ASSERT_EQ(::mkdir(pathOf(sharedName.c_str()).c_str(), 0755), 0);
    EXPECT_EQ(opened(), "");
    EXPECT_THAT(problem, HasSubstr("is open to other users"));
}

TEST_F(RegistrationFolder, isRefusedWhenItBelongsToSomebodyElse)
{
    if (::geteuid() != 0)
        return; // Only root can change the owner.
    folders.xdg = folders.user = {};
    const std::string path = pathOf(sharedName.c_str());
    ASSERT_EQ(::mkdir(path.c_str(), 0700), 0);
    ASSERT_EQ(::chown(path.c_str(), kNobody, kNobody), 0);
    EXPECT_EQ(opened(), "");
    EXPECT_THAT(problem, HasSubstr("belongs to another user"));
}

TEST_F(RegistrationFolder, isLookedForInEachPlaceOnce)
{
    const RuntimeFolders all = folders;
    const auto first = addRegistration(folders, kFolderName, problem);
    folders.xdg = {};
    const auto second = addRegistration(folders, kFolderName, problem);
    folders.user = {};
    const auto third = addRegistration(folders, kFolderName, problem);
    ASSERT_TRUE(first && second && third) << problem;
    const auto names = [this](const RuntimeFolders& places) {
        std::vector<std::string> found;
        for (const Registration& each : runningRegistrations(places, kFolderName, problem))
            found.push_back(each.fileName);
        return found;
    };
    EXPECT_THAT(names(all), ElementsAre(first->registration.fileName, second->registration.fileName,
                                        third->registration.fileName));
    for (const std::string& same : {all.user, all.user + '/'})
        EXPECT_THAT(names({.xdg = same, .user = all.user, .shared = all.shared}),
                    ElementsAre(second->registration.fileName, third->registration.fileName));
}

TEST_F(RegistrationFolder, isNotMadeByWhoOnlyLooks)
{
    EXPECT_THAT(runningRegistrations(folders, "absent", problem), SizeIs(0));
    EXPECT_EQ(problem, "");
    EXPECT_FALSE(QFile::exists(QString::fromStdString(pathOf("xdg/absent"))));
}

TEST_F(RegistrationFolder, thatCannotBeMadeIsNamedWithTheReason)
{
    folders = {.xdg = {}, .user = {}, .shared = pathOf("absent")};
    EXPECT_EQ(opened(), "");
    EXPECT_EQ(problem, pathOf("absent/") + kFolderName + '-' + std::to_string(::geteuid())
                           + ": No such file or directory");
}

TEST_F(RegistrationFolder, theUsersFolderStandsInForARuntimeFolder)
{
    EXPECT_EQ(fallbackRuntimeFolder(folders, kFolderName), folders.user);
    EXPECT_FALSE(
        QDir(QString::fromStdString(folders.shared)).exists(QString::fromStdString(sharedName)));
}

TEST_F(RegistrationFolder, aPrivateFolderStandsInWhereTheUsersIsMissingOrOpenToOthers)
{
    ::chmod(folders.user.c_str(), 0750);
    EXPECT_EQ(fallbackRuntimeFolder(folders, kFolderName), pathOf(sharedName.c_str()));
    folders.user = pathOf("absent");
    EXPECT_EQ(fallbackRuntimeFolder(folders, kFolderName), pathOf(sharedName.c_str()));
    struct stat status {};
    ASSERT_EQ(::stat(pathOf(sharedName.c_str()).c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0700U);

    ::chmod(pathOf(sharedName.c_str()).c_str(), 0755);
    EXPECT_EQ(fallbackRuntimeFolder(folders, kFolderName), "");
}

class RegistrationTest : public ::testing::Test {
protected:
    RegistrationTest() { ::mkdir(path.c_str(), 0700); }

    std::optional<OwnRegistration> add() { return addRegistration(folders, kFolderName, problem); }

    /// The files of the running instances.
    std::vector<std::string> running()
    {
        std::vector<std::string> names;
        for (const Registration& each : runningRegistrations(folders, kFolderName, problem))
            names.push_back(each.fileName);
        return names;
    }

    QString pathOf(const QString& name) const { return QString::fromStdString(path) + u'/' + name; }

    QStringList files() const
    {
        return QDir(pathOf({}))
            .entryList({QStringLiteral("*.socket*")}, QDir::System | QDir::Files);
    }

    FileDescriptor openLock() const
    {
        return FileDescriptor(::open(QFile::encodeName(pathOf(QStringLiteral("lock"))).constData(),
                                     O_RDWR | O_CREAT, 0600));
    }

    QTemporaryDir base;
    const RuntimeFolders folders{.xdg = {}, .user = {}, .shared = base.path().toStdString()};
    const std::string path = folders.shared + '/' + kFolderName + '-' + std::to_string(::geteuid());
    std::string problem;
};

TEST_F(RegistrationTest, theOrderOfRegistrationIsTheOrderOfLaunch)
{
    std::vector<OwnRegistration> own;
    std::vector<std::string> expected;
    for (int count = 0; count < 5; ++count) {
        auto added = add();
        ASSERT_TRUE(added) << problem;
        EXPECT_EQ(added->registration.launch.processIdentifier, ::getpid());
        if (!own.empty()) {
            EXPECT_GT(added->registration.launch.date, own.back().registration.launch.date);
        }
        expected.push_back(added->registration.fileName);
        own.push_back(std::move(*added));
    }
    EXPECT_EQ(running(), expected);
    const auto found = runningRegistrations(folders, kFolderName, problem);
    EXPECT_EQ(found.back().launch.date, own.back().registration.launch.date);
    EXPECT_EQ(found.back().launch.processIdentifier, ::getpid());
}

TEST_F(RegistrationTest, whatADeadCopyLeftIsRemoved)
{
    auto dead = add();
    const auto alive = add();
    ASSERT_TRUE(dead && alive);
    dead->socket.reset();
    EXPECT_FALSE(isRunning(dead->registration));
    EXPECT_TRUE(isRunning(alive->registration));
    EXPECT_EQ(files().size(), 2);
    EXPECT_EQ(running(), std::vector{alive->registration.fileName});
    EXPECT_EQ(files(), QStringList{QString::fromStdString(alive->registration.fileName)});
}

TEST_F(RegistrationTest, otherFilesAreNeitherTakenForCopiesNorRemoved)
{
    const QStringList names{QStringLiteral("x.socket"),
                            QStringLiteral("00000000000000000001-.socket"),
                            QStringLiteral("00000000000000000001-5.socket.bak"),
                            QStringLiteral("-0000000000000000001-5.socket"),
                            QStringLiteral("99999999999999999999-5.socket")};
    for (const QString& name : names) {
        QFile file(pathOf(name));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    }
    EXPECT_TRUE(running().empty());
    EXPECT_EQ(files().size(), names.size());
}

TEST_F(RegistrationTest, aStoppedCopyThatHoldsTheLockDelaysOthersForSomeSecondsOnly)
{
    const FileDescriptor lock = openLock();
    ASSERT_EQ(::flock(lock.get(), LOCK_EX), 0);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(add());
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(6));
    EXPECT_EQ(problem, path + ": another instance holds the lock of the folder");
}

TEST_F(RegistrationTest, nothingIsRemovedWithoutTheLock)
{
    // Its owner may be about to listen, which it does under the lock.
    auto unborn = add();
    ASSERT_TRUE(unborn);
    unborn->socket.reset();
    const FileDescriptor lock = openLock();
    ASSERT_EQ(::flock(lock.get(), LOCK_EX), 0);
    EXPECT_TRUE(running().empty());
    EXPECT_EQ(files().size(), 1);
}

TEST_F(RegistrationTest, whyItFailsIsSaid)
{
    ASSERT_TRUE(QDir(pathOf({})).mkdir(QStringLiteral("lock")));
    EXPECT_FALSE(add());
    EXPECT_EQ(problem, path + ": Is a directory");
}

} // namespace

} // namespace quillbox
