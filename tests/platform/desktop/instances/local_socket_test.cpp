#include "platform/desktop/instances/registration.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <cerrno>
#include <string>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

namespace quillbox {

namespace {

class LocalSocket : public ::testing::Test {
protected:
    QTemporaryDir base;
    FileDescriptor folder{
        ::open(QFile::encodeName(base.path()).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
    FileDescriptor connection;
};

TEST_F(LocalSocket, reachesWhoListens)
{
    const FileDescriptor socket = listenAt(folder.get(), "s");
    ASSERT_TRUE(socket.isOpen());
    EXPECT_EQ(connectTo(folder.get(), "s", connection), Reached::Connected);
    EXPECT_TRUE(isPeerOfSameUser(connection.get()));
}

TEST_F(LocalSocket, isClosedToOtherUsers)
{
    const mode_t before = ::umask(0);
    const FileDescriptor socket = listenAt(folder.get(), "s");
    ::umask(before);
    struct stat status {};
    ASSERT_EQ(::fstatat(folder.get(), "s", &status, 0), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
}

TEST_F(LocalSocket, findsNobodyBehindAFileThatADeadProcessLeft)
{
    listenAt(folder.get(), "s").reset();
    EXPECT_TRUE(QFile::exists(base.filePath(QStringLiteral("s"))));
    EXPECT_EQ(connectTo(folder.get(), "s", connection), Reached::Nobody);
    EXPECT_EQ(connectTo(folder.get(), "absent", connection), Reached::Nobody);
    EXPECT_FALSE(connection.isOpen());
}

TEST_F(LocalSocket, takesAListenerWithoutRoomForBusyAndDoesNotWait)
{
    const FileDescriptor socket = listenAt(folder.get(), "s");
    std::vector<FileDescriptor> connections(100);
    Reached last = Reached::Connected;
    for (auto& each : connections)
        last = connectTo(folder.get(), "s", each);
    EXPECT_EQ(last, Reached::Busy);
}

TEST_F(LocalSocket, isNotLimitedByTheLengthOfTheFoldersPath)
{
    QString path = base.path();
    for (int depth = 0; depth < 10; ++depth)
        path += QStringLiteral("/a-folder-with-a-long-name");
    ASSERT_TRUE(QDir().mkpath(path));
    const FileDescriptor deep(
        ::open(QFile::encodeName(path).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const FileDescriptor socket = listenAt(deep.get(), "s");
    ASSERT_TRUE(socket.isOpen());
    EXPECT_EQ(connectTo(deep.get(), "s", connection), Reached::Connected);
}

TEST_F(LocalSocket, hasANameThatFitsIntoAnAddress)
{
    const std::string path = "/proc/self/fd/" + std::to_string(folder.get()) + '/';
    std::string name(sizeof(sockaddr_un::sun_path) - 1 - path.size(), 'n');
    const FileDescriptor socket = listenAt(folder.get(), name);
    EXPECT_TRUE(socket.isOpen());
    EXPECT_EQ(connectTo(folder.get(), name, connection), Reached::Connected);
    name += 'n';
    EXPECT_FALSE(listenAt(folder.get(), name).isOpen());
    EXPECT_EQ(errno, ENAMETOOLONG);
    EXPECT_EQ(connectTo(folder.get(), name, connection), Reached::Busy);
}

TEST_F(LocalSocket, isNotInheritedByOtherPrograms)
{
    const FileDescriptor socket = listenAt(folder.get(), "s");
    ASSERT_EQ(connectTo(folder.get(), "s", connection), Reached::Connected);
    EXPECT_NE(::fcntl(socket.get(), F_GETFD) & FD_CLOEXEC, 0);
    EXPECT_NE(::fcntl(connection.get(), F_GETFD) & FD_CLOEXEC, 0);
}

} // namespace

} // namespace quillbox
