#include "platform/desktop/instances/registration_folder.h"
#include "tests/platform/desktop/qt_support.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <fcntl.h>
#include <gmock/gmock.h>
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

    /// The path of the opened folder, relative to that of the test; empty if opening fails.
    std::string opened(const std::string& identifier = kFolderName)
    {
        problem.clear();
        FileDescriptor folder;
        for (const std::string& path : registrationFolders(folders, identifier)) {
            if (!folder.isOpen())
                folder = openRegistrationFolder(path, IfAbsent::Create, problem);
        }
        if (!folder.isOpen())
            return {};
        const auto link = "/proc/self/fd/" + std::to_string(folder.get());
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

TEST_F(RegistrationFolder, isRefusedForAnIdentifierThatIsNoFileName)
{
    for (const char* identifier : {"", ".", "..", "../escape", "a/b"})
        EXPECT_EQ(opened(identifier), "") << identifier;
}

TEST_F(RegistrationFolder, isLookedForInEachPlaceOnce)
{
    EXPECT_THAT(registrationFolders(folders, "x"),
                ElementsAre(pathOf("xdg/x"), pathOf("user/x"),
                            pathOf("common/x-") + std::to_string(::geteuid())));
    folders.xdg = folders.user;
    EXPECT_THAT(registrationFolders(folders, "x"), SizeIs(2));
}

TEST_F(RegistrationFolder, isNotMadeByWhoOnlyLooks)
{
    const std::string path = pathOf("xdg/absent");
    EXPECT_FALSE(openRegistrationFolder(path, IfAbsent::Fail, problem).isOpen());
    EXPECT_EQ(problem, "");
    EXPECT_FALSE(QFile::exists(QString::fromStdString(path)));
    EXPECT_TRUE(openRegistrationFolder(path, IfAbsent::Create, problem).isOpen());
    EXPECT_TRUE(openRegistrationFolder(path, IfAbsent::Fail, problem).isOpen());
}

TEST_F(RegistrationFolder, thatCannotBeMadeIsNamedWithTheReason)
{
    const std::string path = pathOf("absent/absent");
    EXPECT_FALSE(openRegistrationFolder(path, IfAbsent::Create, problem).isOpen());
    EXPECT_EQ(problem, path + ": No such file or directory");
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

} // namespace

} // namespace quillbox
