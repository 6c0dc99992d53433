#include "platform/desktop/instances/copy_listener.h"
#include "platform/desktop/instances/copy_request.h"
#include "platform/desktop/instances/local_socket.h"
#include "tests/platform/desktop/qt_support.h"

#include <QAbstractEventDispatcher>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QTimer>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>

namespace quillbox {

namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// A listener on the main thread, and its clients.
class CopyExchange : public ::testing::Test {
protected:
    static constexpr const char* kName = "copy.socket";

    CopyExchange() : folder(::open(path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC))
    {
        listen();
    }

    std::string path() const { return base.path().toStdString(); }

    void listen(bool hasDisplay = true)
    {
        listener = std::make_unique<CopyListener>(
            listenAt(folder.get(), kName),
            CopyListener::Handlers{
                .hasDisplay = hasDisplay,
                .activation = [this](const std::string& token) { activations.push_back(token); },
                .message =
                    [this](const CopyMessage& message, const RunningApplications::Answer& answer) {
                        messages.push_back(message.text);
                        permissions.push_back(message.permission);
                        respond(message, answer);
                    }});
    }

    FileDescriptor connected() const
    {
        FileDescriptor connection;
        EXPECT_EQ(connectTo(folder.get(), kName, connection), Reached::Connected);
        return connection;
    }

    /// Runs `work` on another thread, as another process would, while this one runs the event loop.
    static void elsewhere(const std::function<void()>& work)
    {
        std::atomic<bool> isDone = false;
        std::thread other([&] {
            work();
            isDone = true;
            QCoreApplication::eventDispatcher()->wakeUp();
        });
        EXPECT_TRUE(runUntil([&isDone] { return isDone.load(); }));
        other.join();
    }

    std::optional<std::string> ask(const std::string& text, const std::string& token = {},
                                   std::chrono::milliseconds limit = 20s)
    {
        std::optional<std::string> answer;
        const FileDescriptor connection = connected();
        elsewhere([&] { answer = exchangeMessage(connection.get(), token, text, limit); });
        return answer;
    }

    static void write(const FileDescriptor& connection, const std::string& bytes)
    {
        EXPECT_EQ(::send(connection.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(bytes.size()));
    }

    /// Receives until the other side closes the connection.
    static std::string readAll(const FileDescriptor& connection)
    {
        std::string all;
        EXPECT_TRUE(runUntil([&] {
            std::array<char, 65536> buffer{};
            ssize_t length = 0;
            while ((length = ::recv(connection.get(), buffer.data(), buffer.size(), 0)) > 0)
                all.append(buffer.data(), static_cast<std::size_t>(length));
            return length == 0 || errno != EAGAIN;
        }));
        return all;
    }

    /// The number of file descriptors of this process, which has both ends of each connection.
    static std::ptrdiff_t openDescriptors()
    {
        const std::filesystem::directory_iterator all("/proc/self/fd");
        return std::distance(begin(all), end(all));
    }

    QTemporaryDir base;
    const FileDescriptor folder;
    std::function<void(const CopyMessage&, const RunningApplications::Answer&)> respond =
        [](const CopyMessage& message, const RunningApplications::Answer& answer) {
            answer("heard " + message.text);
        };
    std::vector<std::string> activations;
    std::vector<std::string> messages;
    std::vector<std::string> permissions;
    std::unique_ptr<CopyListener> listener;
};

TEST_F(CopyExchange, aMessageIsAnswered)
{
    EXPECT_EQ(ask("hello \u00e4", "token"), "heard hello \u00e4");
    EXPECT_EQ(ask("again"), "heard again");
    EXPECT_THAT(permissions, ElementsAre("token", ""));
}

TEST_F(CopyExchange, anActivationTellsWhetherThereIsADisplay)
{
    for (const bool hasDisplay : {true, false}) {
        listener = nullptr;
        ::unlinkat(folder.get(), kName, 0);
        listen(hasDisplay);
        bool isShown = !hasDisplay;
        const FileDescriptor connection = connected();
        elsewhere([&] { isShown = requestActivation(connection.get(), "token", 20s); });
        EXPECT_EQ(isShown, hasDisplay);
    }
    EXPECT_THAT(activations, ElementsAre("token", "token"));
}

TEST_F(CopyExchange, aCopyThatDoesNotAnswerAnActivationIsGivenUpInTime)
{
    std::array<int, 2> ends{};
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends.data()), 0);
    const FileDescriptor asking(ends[0]);
    const FileDescriptor silent(ends[1]);
    QElapsedTimer timer;
    timer.start();
    EXPECT_TRUE(requestActivation(asking.get(), {}, 300ms));
    EXPECT_GE(timer.elapsed(), 290);
}

TEST_F(CopyExchange, anAnswerMayComeLater)
{
    RunningApplications::Answer later;
    respond = [&](const CopyMessage&, const RunningApplications::Answer& answer) {
        later = answer;
        QMetaObject::invokeMethod(
            listener.get(),
            [&] {
                later("at last");
                later("once more");
            },
            Qt::QueuedConnection);
    };
    EXPECT_EQ(ask("hello"), "at last");
    later("nobody listens any more");
}

TEST_F(CopyExchange, theLongestMessageAndTheLongestAnswerPass)
{
    const std::string longest(RunningApplication::kLongestAnswer, 'a');
    respond = [&longest](const CopyMessage&, const RunningApplications::Answer& answer) {
        answer(longest);
    };
    const auto answer = ask(std::string(RunningApplication::kLongestMessage, 'm'));
    EXPECT_TRUE(answer == longest);
    EXPECT_EQ(messages.at(0).size(), RunningApplication::kLongestMessage);
}

TEST_F(CopyExchange, anAnswerThatIsNoLineIsNotSent)
{
    for (const std::string& text :
         {std::string("two\nlines"), std::string(RunningApplication::kLongestAnswer + 1, 'a')}) {
        respond = [&text](const CopyMessage&, const RunningApplications::Answer& answer) {
            answer(text);
        };
        EXPECT_EQ(ask("hello"), std::nullopt);
    }
}

TEST_F(CopyExchange, aMessageInPiecesIsHeardOnceItIsWhole)
{
    const FileDescriptor connection = connected();
    for (const char* piece : {"mess", "age - hel", "lo"})
        write(connection, piece);
    EXPECT_EQ(ask("meanwhile"), "heard meanwhile");
    EXPECT_THAT(messages, ElementsAre("meanwhile"));
    write(connection, "\n");
    EXPECT_EQ(readAll(connection), "answer heard hello\n");
}

TEST_F(CopyExchange, whatIsNoRequestIsAnsweredByHangingUp)
{
    for (const std::string& bytes :
         {std::string("nonsense\n"), std::string("message\n"), std::string("\n"),
          std::string("message - one\nmessage - two\n"), std::string("activate\nx"),
          "message - " + std::string(8193, 'x') + "\n", std::string(9000, 'x')}) {
        const FileDescriptor connection = connected();
        write(connection, bytes);
        EXPECT_EQ(readAll(connection), "") << bytes.substr(0, 40);
    }
    EXPECT_THAT(messages, IsEmpty());
    EXPECT_THAT(activations, IsEmpty());
    EXPECT_EQ(ask("hello"), "heard hello");
}

TEST_F(CopyExchange, aHalfMessageIsHungUpOnAfterAWhile)
{
    const FileDescriptor connection = connected();
    write(connection, "message - hal");
    QElapsedTimer timer;
    timer.start();
    EXPECT_EQ(readAll(connection), "");
    EXPECT_GE(timer.elapsed(), 1900);
    EXPECT_THAT(messages, IsEmpty());
}

TEST_F(CopyExchange, oneWhoDoesNotReadHoldsNobodyUp)
{
    respond = [](const CopyMessage& message, const RunningApplications::Answer& answer) {
        answer(message.text == "short" ? std::string("here")
                                       : std::string(RunningApplication::kLongestAnswer, 'a'));
    };
    const FileDescriptor lazy = connected();
    write(lazy, "message - long\n");
    EXPECT_TRUE(runUntil([this] { return messages.size() == 1; }));
    EXPECT_EQ(ask("short"), "here");
    // The listener closes the connection in the end; what arrives is what was in the socket
    // buffers.
    std::array<char, 1> byte{};
    QElapsedTimer timer;
    timer.start();
    EXPECT_TRUE(runUntil([&] {
        return ::send(lazy.get(), byte.data(), byte.size(), MSG_NOSIGNAL) < 0 && errno == EPIPE;
    }));
    EXPECT_GE(timer.elapsed(), 3000);
    EXPECT_LT(readAll(lazy).size(), RunningApplication::kLongestAnswer);
}

TEST_F(CopyExchange, oneWhoLeftBeforeTheAnswerIsForgotten)
{
    RunningApplications::Answer later;
    respond = [&later](const CopyMessage&, const RunningApplications::Answer& answer) {
        later = answer;
    };
    {
        const FileDescriptor gone = connected();
        write(gone, "message - hello\n");
        EXPECT_TRUE(runUntil([this] { return messages.size() == 1; }));
    }
    later("too late");
    respond = [](const CopyMessage&, const RunningApplications::Answer& answer) { answer("ok"); };
    EXPECT_EQ(ask("next"), "ok");
}

TEST_F(CopyExchange, manySilentOnesOnlyDelayTheNext)
{
    std::vector<FileDescriptor> silent;
    for (int count = 0; count < 40; ++count)
        silent.push_back(connected());
    EXPECT_EQ(ask("hello"), "heard hello");
    EXPECT_THAT(messages, ElementsAre("hello"));
}

TEST_F(CopyExchange, takesNoMoreThanSoManyAtATime)
{
    std::vector<FileDescriptor> silent;
    for (int count = 0; count < 40; ++count)
        silent.push_back(connected());
    const auto before = openDescriptors();
    EXPECT_TRUE(runUntil([&] { return openDescriptors() >= before + 32; }));
    for (int turn = 0; turn < 100; ++turn)
        QCoreApplication::processEvents();
    EXPECT_EQ(openDescriptors(), before + 32);

    // A client that disconnects frees a slot.
    silent.erase(silent.begin());
    EXPECT_TRUE(runUntil([&] { return openDescriptors() == before + 31; }));
    EXPECT_EQ(ask("hello"), "heard hello");
}

TEST_F(CopyExchange, theListenerMayBeDroppedByWhoIsTold)
{
    respond = [this](const CopyMessage&, const RunningApplications::Answer& answer) {
        answer("bye");
        listener = nullptr;
        answer("still here");
    };
    EXPECT_EQ(ask("hello"), "bye");
}

TEST_F(CopyExchange, aHandlerThatDropsTheListenerLivesUntilItReturns)
{
    for (const char* request : {"message - hello\n", "activate\n"}) {
        ::unlinkat(folder.get(), kName, 0);
        std::weak_ptr<int> content;
        bool isAlive = false;
        const auto drop = [&] {
            listener = nullptr;
            isAlive = !content.expired();
        };
        CopyListener::Handlers handlers;
        {
            const auto owned = std::make_shared<int>(0);
            content = owned;
            handlers.activation = [&drop, owned](const std::string&) { drop(); };
            handlers.message = [&drop, owned](const CopyMessage&,
                                              const RunningApplications::Answer&) { drop(); };
        }
        listener =
            std::make_unique<CopyListener>(listenAt(folder.get(), kName), std::move(handlers));
        const FileDescriptor connection = connected();
        write(connection, request);
        readAll(connection);
        EXPECT_EQ(listener, nullptr);
        EXPECT_TRUE(isAlive) << request;
    }
}

TEST_F(CopyExchange, onlyTheFirstAnswerIsSent)
{
    const std::string longest(RunningApplication::kLongestAnswer, 'a');
    respond = [&longest](const CopyMessage&, const RunningApplications::Answer& answer) {
        answer(longest);
        answer("other");
    };
    const auto answer = ask("hello");
    EXPECT_TRUE(answer == longest);
}

TEST_F(CopyExchange, anAnswerMayTakeLongerThanARequest)
{
    respond = [this](const CopyMessage&, const RunningApplications::Answer& answer) {
        QTimer::singleShot(2500, listener.get(), [answer] { answer("at last"); });
    };
    EXPECT_EQ(ask("hello"), "at last");
}

TEST_F(CopyExchange, aCopyThatSaysNothingIsGivenUpInTime)
{
    respond = [](const CopyMessage&, const RunningApplications::Answer&) {};
    QElapsedTimer timer;
    timer.start();
    EXPECT_EQ(ask("hello", {}, 300ms), std::nullopt);
    EXPECT_GE(timer.elapsed(), 290);
}

TEST_F(CopyExchange, anAnswerOfAnotherFormIsNone)
{
    for (const std::string& bytes : {std::string("ok\n"), std::string("answer half"),
                                     std::string("answer a\nb"), std::string("answer a\nb\n"),
                                     std::string(RunningApplication::kLongestAnswer + 1000, 'x')}) {
        std::array<int, 2> ends{};
        ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
        const FileDescriptor asking(ends[0]);
        FileDescriptor answering(ends[1]);
        std::thread other([&] {
            std::array<char, 64> request{};
            EXPECT_GT(::recv(answering.get(), request.data(), request.size(), 0), 0);
            std::size_t sent = 0;
            while (sent < bytes.size()) {
                const auto length =
                    ::send(answering.get(), bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
                if (length <= 0)
                    break;
                sent += static_cast<std::size_t>(length);
            }
            ::shutdown(answering.get(), SHUT_WR);
        });
        EXPECT_EQ(exchangeMessage(asking.get(), {}, "hello", 20s), std::nullopt);
        ::shutdown(asking.get(), SHUT_RDWR);
        other.join();
    }
}

TEST_F(CopyExchange, theEndOfTheOtherProcessIsNoticed)
{
    std::array<int, 2> ends{};
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
    const FileDescriptor first(ends[0]);
    const FileDescriptor second(ends[1]);
    const FileDescriptor self = processBehind(first.get());
    ASSERT_TRUE(self.isOpen());
    EXPECT_FALSE(waitForProcess(self.get(), 50ms));

    // SO_PEERCRED gives the credentials of the process that called listen(), here the child.
    std::array<int, 2> ready{};
    ASSERT_EQ(::pipe2(ready.data(), O_CLOEXEC), 0);
    const pid_t child = ::fork();
    if (child == 0) {
        const FileDescriptor listening = listenAt(folder.get(), "child.socket");
        if (!listening.isOpen())
            ::_exit(1);
        [[maybe_unused]] const auto told = ::write(ready[1], "x", 1);
        ::pause();
        ::_exit(0);
    }
    ::close(ready[1]);
    std::array<char, 1> byte{};
    ASSERT_EQ(::read(ready[0], byte.data(), 1), 1);
    ::close(ready[0]);
    FileDescriptor connection;
    ASSERT_EQ(connectTo(folder.get(), "child.socket", connection), Reached::Connected);
    const FileDescriptor process = processBehind(connection.get());
    ASSERT_TRUE(process.isOpen());
    EXPECT_FALSE(waitForProcess(process.get(), 50ms));
    ::kill(child, SIGKILL);
    EXPECT_TRUE(waitForProcess(process.get(), 20s));
    ::waitpid(child, nullptr, 0);
}

/// Needs root, to switch to another user.
class ForeignUser : public CopyExchange {
protected:
    void SetUp() override
    {
        if (::geteuid() != 0)
            GTEST_SKIP() << "only root can be another user";
        // Removes the file permissions that normally keep other users out.
        ::chmod(path().c_str(), 0777);
        ::chmod((path() + '/' + kName).c_str(), 0666);
    }
};

TEST_F(ForeignUser, isNotHeard)
{
    FileDescriptor connection;
    {
        const OrdinaryUser nobody(path());
        connection = connected();
    }
    write(connection, "message - hello\n");
    EXPECT_EQ(readAll(connection), "");
    EXPECT_THAT(messages, IsEmpty());
    EXPECT_EQ(ask("own"), "heard own");
}

TEST_F(ForeignUser, isNotSpokenTo)
{
    listener = nullptr;
    FileDescriptor foreign;
    {
        const OrdinaryUser nobody(path());
        foreign = listenAt(folder.get(), "foreign.socket");
        ASSERT_TRUE(foreign.isOpen());
    }
    FileDescriptor connection;
    ASSERT_EQ(connectTo(folder.get(), "foreign.socket", connection), Reached::Connected);
    EXPECT_EQ(exchangeMessage(connection.get(), "token", "hello", 20s), std::nullopt);
    requestActivation(connection.get(), "token", 20s);
    const FileDescriptor accepted(::accept4(foreign.get(), nullptr, nullptr, SOCK_NONBLOCK));
    std::array<char, 64> bytes{};
    EXPECT_LT(::recv(accepted.get(), bytes.data(), bytes.size(), MSG_DONTWAIT), 0);
}

} // namespace

} // namespace quillbox
