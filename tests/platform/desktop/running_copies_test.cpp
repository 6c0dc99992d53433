#include "platform/desktop/activation.h"
#include "platform/desktop/local_socket.h"
#include "platform/desktop/running_copies.h"
#include "tests/platform/desktop/qt_support.h"

#include <QAbstractEventDispatcher>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <array>
#include <atomic>
#include <cerrno>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/stat.h>

namespace quillbox {

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

constexpr const char* kIdentifier = "org.example.Helper";

class RunningCopies : public ::testing::Test {
protected:
    RunningCopies() { environment.set("XDG_ACTIVATION_TOKEN", {}); }

    std::unique_ptr<RunningApplications> start(const std::string& token = {})
    {
        return makeRunningApplications({.folders = {.xdg = base.path().toStdString(),
                                                    .user = {},
                                                    .shared = base.path().toStdString()},
                                        .bundleIdentifier = kIdentifier,
                                        .activationToken = token});
    }

    /// Connects to the only running copy, sends `bytes` and returns its response up to the end of
    /// the connection.
    std::string answerTo(const std::string& bytes)
    {
        const QDir folder(base.filePath(QString::fromLatin1(kIdentifier)));
        const FileDescriptor descriptor(::open(QFile::encodeName(folder.path()).constData(),
                                               O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        const QStringList names = folder.entryList({QStringLiteral("*.socket")}, QDir::System);
        EXPECT_THAT(names, SizeIs(1));
        FileDescriptor connection;
        EXPECT_EQ(connectTo(descriptor.get(), names.value(0).toStdString(), connection),
                  Reached::Connected);
        ::send(connection.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        std::string answer;
        const bool isClosed = runUntil([&] {
            std::array<char, 64> buffer{};
            const auto length = ::recv(connection.get(), buffer.data(), buffer.size(), 0);
            if (length > 0)
                answer.append(buffer.data(), static_cast<std::size_t>(length));
            return length == 0 || (length < 0 && errno != EAGAIN);
        });
        EXPECT_TRUE(isClosed);
        return answer;
    }

    /// Activates from another thread, as another process would, while this one runs the event loop.
    static void activateFromElsewhere(RunningApplication& copy)
    {
        std::atomic<bool> isDone = false;
        std::thread other([&copy, &isDone] {
            copy.activate();
            isDone = true;
            QCoreApplication::eventDispatcher()->wakeUp();
        });
        EXPECT_TRUE(runUntil([&isDone] { return isDone.load(); }));
        other.join();
    }

    Environment environment;
    QTemporaryDir base;
};

TEST_F(RunningCopies, areListedInTheOrderOfTheirLaunchTheirOwnIncluded)
{
    const auto first = start();
    const auto second = start();
    const auto copies = second->runningApplications(kIdentifier);
    ASSERT_THAT(copies, SizeIs(2));
    EXPECT_EQ(copies[0]->launchDate(), first->current()->launchDate());
    EXPECT_EQ(copies[1], second->current());
    EXPECT_LT(copies[0]->launchDate(), copies[1]->launchDate());
    EXPECT_EQ(copies[0]->processIdentifier(), ::getpid());
    EXPECT_FALSE(copies[0]->isTerminated());
}

TEST_F(RunningCopies, ofAnotherApplicationAreOthers)
{
    const auto copy = start();
    EXPECT_THAT(copy->runningApplications("org.example.Other"), SizeIs(0));
}

TEST_F(RunningCopies, withdrawBeforeTheyEnd)
{
    const auto first = start();
    const auto second = start();
    const auto seen = second->runningApplications(kIdentifier).at(0);
    first->withdraw();
    first->withdraw();
    EXPECT_TRUE(seen->isTerminated());
    EXPECT_THAT(second->runningApplications(kIdentifier), SizeIs(1));
    seen->activate();
}

TEST_F(RunningCopies, areBroughtForwardWithTheDesktopsPermission)
{
    const auto first = start();
    const auto second = start("token-1_TIME9");
    std::vector<std::string> permissions;
    first->setActivationHandler(
        [&permissions](const std::string& permission) { permissions.push_back(permission); });
    activateFromElsewhere(*second->runningApplications(kIdentifier).at(0));
    EXPECT_THAT(permissions, ElementsAre("token-1_TIME9"));
}

TEST_F(RunningCopies, areBroughtForwardWithoutAPermissionToo)
{
    const auto first = start();
    const auto second = start();
    std::vector<std::string> permissions;
    first->setActivationHandler(
        [&permissions](const std::string& permission) { permissions.push_back(permission); });
    activateFromElsewhere(*second->runningApplications(kIdentifier).at(0));
    EXPECT_THAT(permissions, ElementsAre(""));
}

TEST_F(RunningCopies, hearOfEarlyActivationsOnceTheyListen)
{
    const auto first = start();
    const auto second = start("token");
    const auto target = second->runningApplications(kIdentifier).at(0);
    activateFromElsewhere(*target);
    activateFromElsewhere(*target);
    std::vector<std::string> permissions;
    first->setActivationHandler(
        [&permissions](const std::string& permission) { permissions.push_back(permission); });
    EXPECT_THAT(permissions, IsEmpty());
    EXPECT_TRUE(runUntil([&permissions] { return !permissions.empty(); }));
    EXPECT_THAT(permissions, ElementsAre("token"));
    activateFromElsewhere(*target);
    EXPECT_THAT(permissions, ElementsAre("token", "token"));
}

TEST_F(RunningCopies, answerRequestsAndNothingElse)
{
    const auto copy = start();
    int activations = 0;
    copy->setActivationHandler([&activations](const std::string&) { ++activations; });
    for (const std::string& garbage :
         {std::string("GET / HTTP/1.1\r\n\r\n"), std::string("activated\n"),
          std::string("activate \n"), std::string("activate two words\n"),
          std::string("activate \x1b[2J\n"), std::string("\n"), std::string("\0\n", 2),
          "activate " + std::string(450, 't') + '\n', std::string(600, 'a')})
        EXPECT_EQ(answerTo(garbage), "") << garbage;
    EXPECT_EQ(activations, 0);
    EXPECT_EQ(answerTo("activate\n"), "ok\n");
    EXPECT_EQ(answerTo("activate token\n"), "ok\n");
    EXPECT_EQ(activations, 2);
}

TEST_F(RunningCopies, hangUpOnWhoSaysNothing)
{
    const auto copy = start();
    EXPECT_EQ(answerTo("activ"), "");
}

TEST_F(RunningCopies, mayBeDroppedWhenTheyAreActivated)
{
    auto copy = start();
    copy->setActivationHandler([&copy](const std::string&) { copy = nullptr; });
    EXPECT_EQ(answerTo("activate\n"), "ok\n");
    EXPECT_EQ(copy, nullptr);
}

TEST_F(RunningCopies, withoutASafePlaceKnowOfNoneAndSaySo)
{
    ::chmod(QFile::encodeName(base.path()).constData(), 0777);
    QDir().mkdir(base.filePath(QStringLiteral("org.example.Helper-%1").arg(::geteuid())));
    ::testing::internal::CaptureStderr();
    const auto copy = start();
    EXPECT_THAT(::testing::internal::GetCapturedStderr(),
                HasSubstr("cannot tell whether another instance is running"));
    EXPECT_EQ(copy->current()->launchDate(), std::nullopt);
    EXPECT_THAT(copy->runningApplications(kIdentifier), SizeIs(0));
    copy->withdraw();
}

TEST_F(RunningCopies, takeTheDesktopsPermissionFromTheEnvironment)
{
    environment.set("DESKTOP_STARTUP_ID", {});
    EXPECT_EQ(activationTokenOfEnvironment(), "");
    environment.set("DESKTOP_STARTUP_ID", "startup_TIME1");
    EXPECT_EQ(activationTokenOfEnvironment(), "startup_TIME1");
    environment.set("XDG_ACTIVATION_TOKEN", "token");
    EXPECT_EQ(activationTokenOfEnvironment(), "token");
    for (const QByteArray& unfit : {QByteArray("two words"), QByteArray("line\nbreak"),
                                    QByteArray("\xc3\xa9"), QByteArray(500, 't')}) {
        environment.set("XDG_ACTIVATION_TOKEN", unfit);
        EXPECT_EQ(activationTokenOfEnvironment(), "startup_TIME1");
    }
}

} // namespace

} // namespace quillbox
