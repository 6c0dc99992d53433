#include "platform/desktop/instances/running_instances.h"
#include "tests/platform/desktop/qt_support.h"

#include <QAbstractEventDispatcher>
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QTimer>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quillbox {

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

constexpr const char* kIdentifier = "org.example.Helper";

class RunningInstances : public ::testing::Test {
protected:
    RunningInstances() { environment.set("XDG_ACTIVATION_TOKEN", {}); }

    std::unique_ptr<RunningApplications> start(const std::string& token = {},
                                               bool hasDisplay = true)
    {
        return makeRunningApplications({.folders = folders(),
                                        .bundleIdentifier = kIdentifier,
                                        .activationToken = token,
                                        .hasDisplay = hasDisplay});
    }

    std::vector<std::shared_ptr<RunningApplication>> find(std::string& problem) const
    {
        return findRunningInstances(
            {.folders = folders(), .bundleIdentifier = kIdentifier, .activationToken = {}},
            problem);
    }

    static void hearNothing(const CopyMessage& /*message*/,
                            const RunningApplications::Answer& /*answer*/)
    {
    }

    RuntimeFolders folders() const
    {
        return {.xdg = base.path().toStdString(), .user = {}, .shared = base.path().toStdString()};
    }

    /// The folder in which copies register in the first place.
    std::string preferredFolder() const { return base.path().toStdString() + '/' + kIdentifier; }

    FileDescriptor connectedToOnlyCopy() const
    {
        const QDir folder(QString::fromStdString(preferredFolder()));
        const FileDescriptor descriptor(
            ::open(preferredFolder().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        const QStringList names = folder.entryList({QStringLiteral("*.socket")}, QDir::System);
        EXPECT_THAT(names, SizeIs(1));
        FileDescriptor connection;
        EXPECT_EQ(connectTo(descriptor.get(), names.value(0).toStdString(), connection),
                  Reached::Connected);
        return connection;
    }

    /// What is received up to the end of the connection.
    static std::string readAll(const FileDescriptor& connection)
    {
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

    /// Connects to the only running copy, sends `bytes` and returns its response up to the end of
    /// the connection.
    std::string answerTo(const std::string& bytes) const
    {
        const FileDescriptor connection = connectedToOnlyCopy();
        ::send(connection.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        return readAll(connection);
    }

    /// Activates from another thread, as another process would, while this one runs the event loop.
    static bool activateFromElsewhere(RunningApplication& copy)
    {
        bool isShown = false;
        elsewhere([&] { isShown = copy.activate(); });
        return isShown;
    }

    static void elsewhere(const std::function<void()>& work)
    {
        std::atomic<bool> isDone = false;
        std::thread other([&work, &isDone] {
            work();
            isDone = true;
            QCoreApplication::eventDispatcher()->wakeUp();
        });
        EXPECT_TRUE(runUntil([&isDone] { return isDone.load(); }));
        other.join();
    }

    Environment environment;
    QTemporaryDir base;
};

TEST_F(RunningInstances, areListedInTheOrderOfTheirLaunchWithoutTheOneThatAsks)
{
    const auto first = start();
    const auto second = start();
    const auto third = start();
    const auto copies = third->others();
    ASSERT_THAT(copies, SizeIs(2));
    EXPECT_EQ(copies[0]->launch(), first->launch());
    EXPECT_EQ(copies[1]->launch(), second->launch());
    EXPECT_LT(first->launch().date, second->launch().date);
    EXPECT_LT(second->launch().date, third->launch().date);
    EXPECT_EQ(first->launch().processIdentifier, ::getpid());
    EXPECT_FALSE(copies[0]->isTerminated());
    EXPECT_EQ(first->others().at(1)->launch(), third->launch());
}

TEST_F(RunningInstances, ofAnotherApplicationAreOthers)
{
    const auto copy = start();
    const auto foreign = makeRunningApplications(
        {.folders = folders(), .bundleIdentifier = "org.example.Other", .activationToken = {}});
    EXPECT_THAT(foreign->others(), IsEmpty());
    EXPECT_THAT(copy->others(), IsEmpty());
}

TEST_F(RunningInstances, withdrawBeforeTheyEnd)
{
    const auto first = start();
    const auto second = start();
    const auto seen = second->others().at(0);
    first->withdraw();
    first->withdraw();
    EXPECT_TRUE(seen->isTerminated());
    EXPECT_THAT(QDir(QString::fromStdString(preferredFolder()))
                    .entryList({QStringLiteral("*.socket")}, QDir::System),
                SizeIs(1));
    EXPECT_THAT(second->others(), IsEmpty());
    seen->activate();
}

TEST_F(RunningInstances, thatWithdrawBeforeTheyServeHangUpOnWhoIsWaiting)
{
    const auto copy = start();
    const FileDescriptor waiting = connectedToOnlyCopy();
    copy->withdraw();
    EXPECT_EQ(readAll(waiting), "");
}

TEST_F(RunningInstances, areBroughtForwardWithTheDesktopsPermission)
{
    const auto first = start();
    const auto second = start("token-1_TIME9");
    std::vector<std::string> permissions;
    first->serve(
        [&permissions](const std::string& permission) { permissions.push_back(permission); },
        hearNothing);
    activateFromElsewhere(*second->others().at(0));
    EXPECT_THAT(permissions, ElementsAre("token-1_TIME9"));
}

TEST_F(RunningInstances, areBroughtForwardWithoutAPermissionToo)
{
    const auto first = start();
    const auto second = start();
    std::vector<std::string> permissions;
    first->serve(
        [&permissions](const std::string& permission) { permissions.push_back(permission); },
        hearNothing);
    activateFromElsewhere(*second->others().at(0));
    EXPECT_THAT(permissions, ElementsAre(""));
}

TEST_F(RunningInstances, hearOfEarlyActivationsOnceTheyServe)
{
    const auto copy = start();
    const FileDescriptor other = connectedToOnlyCopy();
    ::send(other.get(), "activate token\n", 15, MSG_NOSIGNAL);
    QCoreApplication::processEvents();
    std::vector<std::string> permissions;
    copy->serve(
        [&permissions](const std::string& permission) { permissions.push_back(permission); },
        hearNothing);
    EXPECT_THAT(permissions, IsEmpty());
    EXPECT_EQ(readAll(other), "ok\n");
    EXPECT_THAT(permissions, ElementsAre("token"));
}

TEST_F(RunningInstances, answerRequestsAndNothingElse)
{
    const auto copy = start();
    int activations = 0;
    copy->serve([&activations](const std::string&) { ++activations; }, hearNothing);
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

TEST_F(RunningInstances, hangUpOnWhoSaysNothing)
{
    const auto copy = start();
    copy->serve([](const std::string&) {}, hearNothing);
    EXPECT_EQ(answerTo("activ"), "");
}

TEST_F(RunningInstances, mayBeDroppedWhenTheyAreActivated)
{
    auto copy = start();
    copy->serve([&copy](const std::string&) { copy = nullptr; }, hearNothing);
    EXPECT_EQ(answerTo("activate\n"), "ok\n");
    EXPECT_EQ(copy, nullptr);
}

TEST_F(RunningInstances, sayWhetherTheyHaveADisplay)
{
    const auto first = start({}, false);
    const auto second = start();
    const auto third = start();
    const auto copies = third->others();
    for (const auto& each : {&first, &second})
        (*each)->serve([](const std::string&) {}, hearNothing);
    EXPECT_FALSE(activateFromElsewhere(*copies.at(0)));
    EXPECT_TRUE(activateFromElsewhere(*copies.at(1)));
}

TEST_F(RunningInstances, thatCannotRegisterInOneFolderDoSoInTheNextAndAreFoundInBoth)
{
    const auto preferred = start();
    ASSERT_EQ(::rename(preferredFolder().c_str(), (base.path().toStdString() + "/away").c_str()),
              0);
    // Not a folder: nothing can be created in it, as on a file system that is full.
    ASSERT_EQ(::symlink("/proc/self/exe", preferredFolder().c_str()), 0);
    ::testing::internal::CaptureStderr();
    const auto substitute = start();
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
    ASSERT_TRUE(substitute->launch().date);
    EXPECT_THAT(substitute->others(), IsEmpty());

    // The file system is no longer full.
    ASSERT_EQ(::unlink(preferredFolder().c_str()), 0);
    ASSERT_EQ(::rename((base.path().toStdString() + "/away").c_str(), preferredFolder().c_str()),
              0);
    const auto next = start();
    const auto copies = next->others();
    ASSERT_THAT(copies, SizeIs(2));
    EXPECT_EQ(copies[0]->launch(), preferred->launch());
    EXPECT_EQ(copies[1]->launch(), substitute->launch());
    std::string problem;
    EXPECT_THAT(find(problem), SizeIs(3));
    EXPECT_EQ(problem, "");
}

TEST_F(RunningInstances, areLookedForWithoutMakingAFolder)
{
    std::string problem;
    EXPECT_THAT(find(problem), IsEmpty());
    EXPECT_EQ(problem, "");
    EXPECT_TRUE(QDir(base.path()).isEmpty());

    ::mkdir(preferredFolder().c_str(), 0755);
    EXPECT_THAT(find(problem), IsEmpty());
    EXPECT_THAT(problem, HasSubstr("is open to other users"));

    const auto copy = start(); // in the next folder, which is safe
    EXPECT_THAT(find(problem), SizeIs(1));
    EXPECT_EQ(problem, "");
}

TEST_F(RunningInstances, keepCleanersOfTemporaryFoldersOut)
{
    auto copy = start();
    const FileDescriptor folder(
        ::open(preferredFolder().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    EXPECT_NE(::flock(folder.get(), LOCK_EX | LOCK_NB), 0);
    const auto other = start();
    EXPECT_TRUE(other->launch().date) << "several copies lock it at a time";
    copy = nullptr;
    EXPECT_NE(::flock(folder.get(), LOCK_EX | LOCK_NB), 0);
}

/// Fills the queue of a copy that accepts no connection meanwhile.
class BusyInstance : public RunningInstances {
protected:
    void fill()
    {
        const FileDescriptor folder(
            ::open(preferredFolder().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        const QStringList names =
            QDir(QString::fromStdString(preferredFolder()))
                .entryList({QStringLiteral("*.socket")}, QDir::System, QDir::Name);
        Reached reached = Reached::Connected;
        while (reached == Reached::Connected) {
            waiting.emplace_back();
            reached = connectTo(folder.get(), names.value(0).toStdString(), waiting.back());
        }
        ASSERT_EQ(reached, Reached::Busy);
    }

    std::vector<FileDescriptor> waiting;
};

TEST_F(BusyInstance, isTriedAgain)
{
    const auto first = start();
    const auto second = start();
    int activations = 0;
    first->serve(
        [&activations](const std::string&) { ++activations; },
        [](const CopyMessage&, const RunningApplications::Answer& answer) { answer("heard"); });
    const auto target = second->others().at(0);
    fill();
    waiting.clear();
    EXPECT_TRUE(activateFromElsewhere(*target));
    EXPECT_EQ(activations, 1);

    fill();
    waiting.clear();
    std::optional<std::string> answer;
    elsewhere([&] { answer = target->ask("hello", std::chrono::seconds(20)); });
    EXPECT_EQ(answer, "heard");
}

TEST_F(BusyInstance, isGivenUpInTime)
{
    const auto first = start();
    const auto second = start();
    const auto target = second->others().at(0);
    fill();
    EXPECT_FALSE(target->isTerminated());
    QElapsedTimer timer;
    timer.start();
    EXPECT_TRUE(target->activate());
    EXPECT_GE(timer.elapsed(), 900);
    EXPECT_EQ(target->ask("hello", std::chrono::milliseconds(50)), std::nullopt);
}

TEST_F(RunningInstances, thatExitWhenTheyAreReachedAreSeenAsTerminated)
{
    auto first = start();
    const auto second = start();
    const auto target = second->others().at(0);
    first->serve([&first](const std::string&) { first = nullptr; }, hearNothing);
    activateFromElsewhere(*target);
    EXPECT_TRUE(target->isTerminated());
    EXPECT_FALSE(target->waitForEnd(std::chrono::milliseconds(0))) << "this process has not ended";
}

TEST_F(RunningInstances, areWaitedForEvenIfTheirProcessesAreUnknown)
{
    const auto first = start();
    std::string problem;
    const auto copies = find(problem);
    ASSERT_THAT(copies, SizeIs(1));
    EXPECT_FALSE(copies.front()->waitForEnd(std::chrono::milliseconds(30)));
    // Nothing has reached it, so nothing is known of its process.
    QTimer::singleShot(0, [&] { first->withdraw(); });
    elsewhere([&] { EXPECT_TRUE(copies.front()->waitForEnd(std::chrono::seconds(20))); });
}

TEST_F(RunningInstances, mayBeDroppedByTheFirstOfSeveralEarlyMessages)
{
    auto copy = start();
    std::vector<FileDescriptor> senders;
    for (int count = 0; count < 3; ++count) {
        senders.push_back(connectedToOnlyCopy());
        const std::string message = "message token hello\n";
        ::send(senders.back().get(), message.data(), message.size(), MSG_NOSIGNAL);
    }
    std::vector<std::string> heard;
    copy->serve([](const std::string&) { FAIL(); },
                [&](const CopyMessage& message, const RunningApplications::Answer& answer) {
                    heard.push_back(message.text + ' ' + message.permission);
                    answer("heard");
                    copy = nullptr;
                });
    EXPECT_THAT(heard, IsEmpty());
    EXPECT_EQ(readAll(senders[0]), "answer heard\n");
    EXPECT_EQ(readAll(senders[1]) + readAll(senders[2]), "");
    EXPECT_THAT(heard, ElementsAre("hello token"));
}

TEST_F(RunningInstances, withoutASafePlaceKnowOfNoneAndSaySo)
{
    ::chmod(QFile::encodeName(base.path()).constData(), 0777);
    QDir().mkdir(base.filePath(QStringLiteral("org.example.Helper-%1").arg(::geteuid())));
    ::testing::internal::CaptureStderr();
    const auto copy = start();
    EXPECT_THAT(::testing::internal::GetCapturedStderr(),
                HasSubstr("other instances cannot find this one: "));
    EXPECT_EQ(copy->launch().date, std::nullopt);
    EXPECT_THAT(copy->others(), IsEmpty());
    copy->serve([](const std::string&) {}, hearNothing);
    copy->withdraw();
}

TEST_F(RunningInstances, thatCannotRegisterInAnyFolderNameTheLastOne)
{
    const std::string shared = preferredFolder() + '-' + std::to_string(::geteuid());
    for (const std::string& folder : {preferredFolder(), shared}) {
        ASSERT_EQ(::mkdir(folder.c_str(), 0700), 0);
        // In place of the lock, which cannot be opened then.
        ASSERT_EQ(::mkdir((folder + "/lock").c_str(), 0700), 0);
    }
    ::testing::internal::CaptureStderr();
    const auto copy = start();
    EXPECT_THAT(::testing::internal::GetCapturedStderr(),
                HasSubstr("cannot find this one: " + shared + ": Is a directory"));
    EXPECT_EQ(copy->launch().date, std::nullopt);
}

} // namespace

} // namespace quillbox
