#include "platform/desktop/instances/local_socket.h"
#include "platform/desktop/instances/registration.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

namespace quillbox {

namespace {

class RegistrationTest : public ::testing::Test {
protected:
    QStringList files() const
    {
        return QDir(base.path())
            .entryList({QStringLiteral("*.socket*")}, QDir::System | QDir::Files);
    }

    QTemporaryDir base;
    FileDescriptor folder{
        ::open(QFile::encodeName(base.path()).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
    std::string problem;
};

TEST_F(RegistrationTest, theOrderOfRegistrationIsTheOrderOfLaunch)
{
    std::vector<OwnRegistration> own;
    std::vector<Registration> expected;
    for (int count = 0; count < 5; ++count) {
        auto added = addRegistration(folder.get(), problem);
        ASSERT_TRUE(added) << problem;
        EXPECT_EQ(added->registration.processIdentifier, ::getpid());
        if (!expected.empty()) {
            EXPECT_GT(added->registration.launchDate, expected.back().launchDate);
        }
        expected.push_back(added->registration);
        own.push_back(std::move(*added));
    }
    EXPECT_EQ(runningRegistrations(folder.get()), expected);
}

TEST_F(RegistrationTest, whatADeadCopyLeftIsRemoved)
{
    auto dead = addRegistration(folder.get(), problem);
    const auto alive = addRegistration(folder.get(), problem);
    ASSERT_TRUE(dead && alive);
    dead->socket.reset();
    EXPECT_FALSE(isRunning(folder.get(), dead->registration));
    EXPECT_TRUE(isRunning(folder.get(), alive->registration));
    EXPECT_EQ(files().size(), 2);
    EXPECT_EQ(runningRegistrations(folder.get()), std::vector{alive->registration});
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
        QFile file(base.filePath(name));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    }
    EXPECT_TRUE(runningRegistrations(folder.get()).empty());
    EXPECT_EQ(files().size(), names.size());
}

TEST_F(RegistrationTest, aStoppedCopyThatHoldsTheLockDelaysOthersForSomeSecondsOnly)
{
    const FileDescriptor lock(
        ::open(QFile::encodeName(base.filePath(QStringLiteral("lock"))).constData(),
               O_RDWR | O_CREAT, 0600));
    ASSERT_EQ(::flock(lock.get(), LOCK_EX), 0);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(addRegistration(folder.get(), problem));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(6));
    EXPECT_EQ(problem, "another instance holds the lock of the folder");
}

TEST_F(RegistrationTest, nothingIsRemovedWithoutTheLock)
{
    // Its owner may be about to listen, which it does under the lock.
    auto unborn = addRegistration(folder.get(), problem);
    ASSERT_TRUE(unborn);
    unborn->socket.reset();
    const FileDescriptor lock(
        ::open(QFile::encodeName(base.filePath(QStringLiteral("lock"))).constData(), O_RDWR));
    ASSERT_EQ(::flock(lock.get(), LOCK_EX), 0);
    EXPECT_TRUE(runningRegistrations(folder.get()).empty());
    EXPECT_EQ(files().size(), 1);
}

TEST_F(RegistrationTest, whyItFailsIsSaid)
{
    ASSERT_TRUE(QDir(base.path()).mkdir(QStringLiteral("lock")));
    EXPECT_FALSE(addRegistration(folder.get(), problem));
    EXPECT_EQ(problem, "Is a directory");
}

} // namespace

} // namespace quillbox
