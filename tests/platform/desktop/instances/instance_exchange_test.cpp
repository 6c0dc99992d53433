#include "platform/desktop/instances/instance_exchange.h"
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
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>

namespace quillbox {

namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// A server on the main thread, and its clients.
class InstanceExchange : public ::testing::Test {
protected:
    static constexpr const char* kName = "instance.socket";

    using Request = instance_protocol::Request;
    using Answer = AnswerRequest;

    InstanceExchange() { listen(); }

    std::string path() const { return base.path().toStdString(); }

    void listen()
    {
        server = serveInstances(listenAt(folder->get(), kName),
                                [this](const Request& request, const Answer& answer) {
                                    if (!request.text) {
                                        activations.push_back(request.token);
                                        answer(answerToActivation);
                                        return;
                                    }
                                    messages.push_back(*request.text);
                                    permissions.push_back(request.token);
                                    respond(*request.text, [answer](const std::string& text) {
                                        answer(instance_protocol::lineOfAnswer(text));
                                    });
                                });
    }

    std::shared_ptr<RunningApplication> clientOf(const char* name = kName,
                                                 const std::string& token = {}) const
    {
        return instanceAt(Registration{.folder = folder, .fileName = name}, token);
    }

    FileDescriptor connected() const
    {
        FileDescriptor connection;
        EXPECT_EQ(connectTo(folder->get(), kName, connection), Reached::Connected);
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
        const auto client = clientOf(kName, token);
        elsewhere([&] { answer = client->ask(text, limit); });
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
    const std::shared_ptr<const FileDescriptor> folder = std::make_shared<FileDescriptor>(
        ::open(path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    using Texts = std::function<void(const std::string& text)>;
    std::function<void(const std::string& message, const Texts& answer)> respond =
        [](const std::string& message, const Texts& answer) { answer("heard " + message); };
    std::string answerToActivation = "ok";
    std::vector<std::string> activations;
    std::vector<std::string> messages;
    std::vector<std::string> permissions;
    std::unique_ptr<QObject> server;
};

TEST_F(InstanceExchange, aMessageIsAnswered)
{
    EXPECT_EQ(ask("hello \u00e4", "token"), "heard hello \u00e4");
    EXPECT_EQ(ask("again"), "heard again");
    EXPECT_THAT(permissions, ElementsAre("token", ""));
}

TEST_F(InstanceExchange, anActivationTellsWhetherThereIsADisplay)
{
    for (const bool hasDisplay : {true, false}) {
        answerToActivation = hasDisplay ? "ok" : "no display";
        const auto client = clientOf(kName, "token");
        bool isShown = !hasDisplay;
        elsewhere([&] { isShown = client->activate(); });
        EXPECT_EQ(isShown, hasDisplay);
    }
    EXPECT_THAT(activations, ElementsAre("token", "token"));
}

TEST_F(InstanceExchange, anInstanceThatDoesNotAnswerAnActivationIsGivenUpInTime)
{
    QElapsedTimer timer;
    timer.start();
    EXPECT_TRUE(clientOf()->activate()); // on this thread, so that the server cannot run
    EXPECT_GE(timer.elapsed(), 990);
}

TEST_F(InstanceExchange, anAnswerMayComeLater)
{
    Texts later;
    respond = [&](const std::string&, const Texts& answer) {
        later = answer;
        QMetaObject::invokeMethod(
            server.get(),
            [&] {
                later("at last");
                later("once more");
            },
            Qt::QueuedConnection);
    };
    EXPECT_EQ(ask("hello"), "at last");
    later("nobody listens any more");
}

TEST_F(InstanceExchange, theLongestMessageAndTheLongestAnswerPass)
{
    const std::string longest(RunningApplication::kLongestAnswer, 'a');
    respond = [&longest](const std::string&, const Texts& answer) { answer(longest); };
    const auto answer = ask(std::string(RunningApplication::kLongestMessage, 'm'));
    EXPECT_TRUE(answer == longest);
    EXPECT_EQ(messages.at(0).size(), RunningApplication::kLongestMessage);
}

TEST_F(InstanceExchange, anAnswerThatIsNoLineIsNotSent)
{
    for (const std::string& text :
         {std::string("two\nlines"), std::string(RunningApplication::kLongestAnswer + 1, 'a')}) {
        respond = [&text](const std::string&, const Texts& answer) { answer(text); };
        EXPECT_EQ(ask("hello"), std::nullopt);
    }
}

TEST_F(InstanceExchange, aMessageInPiecesIsHeardOnceItIsWhole)
{
    const FileDescriptor connection = connected();
    for (const char* piece : {"mess", "age - hel", "lo"})
        write(connection, piece);
    EXPECT_EQ(ask("meanwhile"), "heard meanwhile");
    EXPECT_THAT(messages, ElementsAre("meanwhile"));
    write(connection, "\n");
    EXPECT_EQ(readAll(connection), "answer heard hello\n");
}

TEST_F(InstanceExchange, whatIsNoRequestIsAnsweredByHangingUp)
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

TEST_F(InstanceExchange, aHalfMessageIsHungUpOnAfterAWhile)
{
    const FileDescriptor connection = connected();
    write(connection, "message - hal");
    QElapsedTimer timer;
    timer.start();
    EXPECT_EQ(readAll(connection), "");
    EXPECT_GE(timer.elapsed(), 1900);
    EXPECT_THAT(messages, IsEmpty());
}

TEST_F(InstanceExchange, oneWhoDoesNotReadHoldsNobodyUp)
{
    respond = [](const std::string& message, const Texts& answer) {
        answer(message == "short" ? std::string("here")
                                  : std::string(RunningApplication::kLongestAnswer, 'a'));
    };
    const FileDescriptor lazy = connected();
    write(lazy, "message - long\n");
    EXPECT_TRUE(runUntil([this] { return messages.size() == 1; }));
    EXPECT_EQ(ask("short"), "here");
    // The server closes the connection in the end; what arrives is what was in the socket
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

TEST_F(InstanceExchange, oneWhoLeftBeforeTheAnswerIsForgotten)
{
    Texts later;
    respond = [&later](const std::string&, const Texts& answer) { later = answer; };
    {
        const FileDescriptor gone = connected();
        write(gone, "message - hello\n");
        EXPECT_TRUE(runUntil([this] { return messages.size() == 1; }));
    }
    later("too late");
    respond = [](const std::string&, const Texts& answer) { answer("ok"); };
    EXPECT_EQ(ask("next"), "ok");
}

TEST_F(InstanceExchange, manySilentOnesOnlyDelayTheNext)
{
    std::vector<FileDescriptor> silent;
    for (int count = 0; count < 40; ++count)
        silent.push_back(connected());
    EXPECT_EQ(ask("hello"), "heard hello");
    EXPECT_THAT(messages, ElementsAre("hello"));
}

TEST_F(InstanceExchange, takesNoMoreThanSoManyAtATime)
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

TEST_F(InstanceExchange, theListenerMayBeDroppedByWhoIsTold)
{
    respond = [this](const std::string&, const Texts& answer) {
        answer("bye");
        server = nullptr;
        answer("still here");
    };
    EXPECT_EQ(ask("hello"), "bye");
}

TEST_F(InstanceExchange, aHandlerThatDropsTheServerLivesUntilItReturns)
{
    ::unlinkat(folder->get(), kName, 0);
    std::weak_ptr<int> content;
    bool isAlive = false;
    RequestHandler handler;
    {
        const auto owned = std::make_shared<int>(0);
        content = owned;
        handler = [&, owned](const Request&, const Answer&) {
            server = nullptr;
            isAlive = !content.expired();
        };
    }
    server = serveInstances(listenAt(folder->get(), kName), std::move(handler));
    const FileDescriptor connection = connected();
    write(connection, "message - hello\n");
    readAll(connection);
    EXPECT_EQ(server, nullptr);
    EXPECT_TRUE(isAlive);
}

TEST_F(InstanceExchange, onlyTheFirstAnswerIsSent)
{
    const std::string longest(RunningApplication::kLongestAnswer, 'a');
    respond = [&longest](const std::string&, const Texts& answer) {
        answer(longest);
        answer("other");
    };
    const auto answer = ask("hello");
    EXPECT_TRUE(answer == longest);
}

TEST_F(InstanceExchange, anAnswerMayTakeLongerThanARequest)
{
    respond = [this](const std::string&, const Texts& answer) {
        QTimer::singleShot(2500, server.get(), [answer] { answer("at last"); });
    };
    EXPECT_EQ(ask("hello"), "at last");
}

TEST_F(InstanceExchange, anInstanceThatSaysNothingIsGivenUpInTime)
{
    respond = [](const std::string&, const Texts&) {};
    QElapsedTimer timer;
    timer.start();
    EXPECT_EQ(ask("hello", {}, 300ms), std::nullopt);
    EXPECT_GE(timer.elapsed(), 290);
}

TEST_F(InstanceExchange, anAnswerOfAnotherFormIsNone)
{
    const FileDescriptor listening = listenAt(folder->get(), "other.socket");
    for (const std::string& bytes : {std::string("ok\n"), std::string("answer half"),
                                     std::string("answer a\nb"), std::string("answer a\nb\n"),
                                     std::string(RunningApplication::kLongestAnswer + 1000, 'x')}) {
        std::thread other([&] {
            pollfd arrival{listening.get(), POLLIN, 0};
            EXPECT_EQ(::poll(&arrival, 1, 20'000), 1);
            const FileDescriptor answering(
                ::accept4(listening.get(), nullptr, nullptr, SOCK_CLOEXEC));
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
        });
        EXPECT_EQ(clientOf("other.socket")->ask("hello", 20s), std::nullopt) << bytes.substr(0, 40);
        other.join();
    }
}

TEST_F(InstanceExchange, theEndOfTheOtherProcessIsNoticed)
{
    // The kernel gives the credentials of the process that called listen(), here the child.
    std::array<int, 2> ready{};
    ASSERT_EQ(::pipe2(ready.data(), O_CLOEXEC), 0);
    const pid_t child = ::fork();
    if (child == 0) {
        const FileDescriptor listening = listenAt(folder->get(), "child.socket");
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
    const auto client = clientOf("child.socket");
    EXPECT_EQ(client->ask("hello", 50ms), std::nullopt);
    // Without its registration only the process itself tells that it has not ended.
    ::unlinkat(folder->get(), "child.socket", 0);
    EXPECT_FALSE(client->waitForEnd(50ms));
    ::kill(child, SIGKILL);
    EXPECT_TRUE(client->waitForEnd(20s));
    ::waitpid(child, nullptr, 0);
}

/// Needs root, to switch to another user.
class ForeignUser : public InstanceExchange {
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
    server = nullptr;
    FileDescriptor foreign;
    {
        const OrdinaryUser nobody(path());
        foreign = listenAt(folder->get(), "foreign.socket");
        ASSERT_TRUE(foreign.isOpen());
    }
    const auto client = clientOf("foreign.socket", "token");
    EXPECT_EQ(client->ask("hello", 20s), std::nullopt);
    EXPECT_TRUE(client->activate());
    for (int count = 0; count < 2; ++count) {
        const FileDescriptor accepted(
            ::accept4(foreign.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
        ASSERT_TRUE(accepted.isOpen());
        std::array<char, 64> bytes{};
        EXPECT_EQ(::recv(accepted.get(), bytes.data(), bytes.size(), 0), 0);
    }
}

} // namespace

} // namespace quillbox
