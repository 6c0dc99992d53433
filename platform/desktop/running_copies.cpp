#include "platform/desktop/running_copies.h"

#include "platform/desktop/copy_listener.h"
#include "platform/desktop/copy_request.h"
#include "platform/desktop/local_socket.h"
#include "platform/desktop/registration.h"
#include "platform/standard_error.h"

#include <QPointer>
#include <chrono>
#include <ctime>
#include <optional>
#include <utility>

#include <sys/file.h>
#include <unistd.h>

namespace quillbox {

namespace {

constexpr timespec kBusyPause{.tv_sec = 0, .tv_nsec = 10'000'000};

class ThisProcess final : public RunningApplication {
public:
    explicit ThisProcess(std::optional<LaunchDate> date) : launched(date) {}

    std::int64_t processIdentifier() const override { return ::getpid(); }
    std::optional<LaunchDate> launchDate() const override { return launched; }
    bool isTerminated() const override { return false; }
    void activate() override {}

    std::optional<std::string> ask(const std::string& /*message*/,
                                   std::chrono::milliseconds /*limit*/) override
    {
        return std::nullopt;
    }

    bool waitForEnd(std::chrono::milliseconds /*limit*/) override { return false; }

private:
    const std::optional<LaunchDate> launched;
};

class OtherCopy final : public RunningApplication {
public:
    OtherCopy(std::shared_ptr<const FileDescriptor> openFolder, Registration found,
              std::string activationToken)
        : folder(std::move(openFolder)),
          registration(std::move(found)),
          token(std::move(activationToken))
    {
    }

    std::int64_t processIdentifier() const override { return registration.processIdentifier; }
    std::optional<LaunchDate> launchDate() const override { return registration.launchDate; }
    bool isTerminated() const override { return !isRunning(folder->get(), registration); }

    void activate() override
    {
        FileDescriptor connection;
        if (connectTo(folder->get(), registration.fileName, connection) == Reached::Connected)
            requestActivation(connection.get(), token);
    }

    std::optional<std::string> ask(const std::string& message,
                                   std::chrono::milliseconds limit) override
    {
        const auto deadline = std::chrono::steady_clock::now() + limit;
        FileDescriptor connection;
        Reached reached = connectTo(folder->get(), registration.fileName, connection);
        // A non-blocking connect() to a full backlog fails at once, and nothing signals a free
        // slot.
        while (reached == Reached::Busy && std::chrono::steady_clock::now() < deadline) {
            ::nanosleep(&kBusyPause, nullptr);
            reached = connectTo(folder->get(), registration.fileName, connection);
        }
        if (reached != Reached::Connected)
            return std::nullopt;
        // Before sending the message, which may make the process exit.
        process = processBehind(connection.get());
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        return exchangeMessage(connection.get(), token, message, left);
    }

    bool waitForEnd(std::chrono::milliseconds limit) override
    {
        return process.isOpen() ? waitForProcess(process.get(), limit) : isTerminated();
    }

private:
    const std::shared_ptr<const FileDescriptor> folder;
    const Registration registration;
    const std::string token;
    FileDescriptor process; ///< a pidfd, set by ask()
};

class RunningCopies final : public QObject, public RunningApplications {
public:
    explicit RunningCopies(RunningCopiesOptions chosen) : options(std::move(chosen))
    {
        std::string problem;
        folder = open(options.bundleIdentifier, problem);
        if (folder->isOpen()) {
            // Tools that clean temporary folders, such as systemd-tmpfiles, skip a locked one.
            ::flock(folder->get(), LOCK_SH | LOCK_NB);
            if (auto added = addRegistration(folder->get(), problem))
                listen(std::move(*added));
        }
        if (!own)
            printToStandardError(
                "quillbox-helper: cannot tell whether another instance is running: " + problem);
        self = std::make_shared<ThisProcess>(own ? std::optional(own->launchDate) : std::nullopt);
    }

    ~RunningCopies() override { withdrawRegistration(); }

    RunningCopies(const RunningCopies&) = delete;
    RunningCopies& operator=(const RunningCopies&) = delete;

    std::shared_ptr<RunningApplication> current() override { return self; }

    std::vector<std::shared_ptr<RunningApplication>>
    runningApplications(const std::string& bundleIdentifier) override
    {
        std::string problem;
        const auto place =
            bundleIdentifier == options.bundleIdentifier ? folder : open(bundleIdentifier, problem);
        std::vector<std::shared_ptr<RunningApplication>> copies;
        if (!place->isOpen())
            return copies;
        for (Registration& registration : runningRegistrations(place->get())) {
            if (registration == own)
                copies.push_back(self);
            else
                copies.push_back(std::make_shared<OtherCopy>(place, std::move(registration),
                                                             options.activationToken));
        }
        return copies;
    }

    void setActivationHandler(ActivationHandler newHandler) override
    {
        handler = std::move(newHandler);
        if (!handler || !pendingPermission)
            return;
        QMetaObject::invokeMethod(
            this,
            [this, permission = *std::exchange(pendingPermission, {})] { deliver(permission); },
            Qt::QueuedConnection);
    }

    void setMessageHandler(MessageHandler newHandler) override
    {
        messageHandler = std::move(newHandler);
        if (!messageHandler || pendingMessages.empty())
            return;
        QMetaObject::invokeMethod(
            this,
            [this, messages = std::exchange(pendingMessages, {})] {
                const QPointer alive(this);
                for (const auto& [message, answer] : messages) {
                    if (alive)
                        hear(message, answer);
                }
            },
            Qt::QueuedConnection);
    }

    void withdraw() override { withdrawRegistration(); }

private:
    std::shared_ptr<const FileDescriptor> open(const std::string& identifier,
                                               std::string& problem) const
    {
        return std::make_shared<FileDescriptor>(
            openRegistrationFolder(options.folders, identifier, problem));
    }

    void listen(OwnRegistration added)
    {
        own = std::move(added.registration);
        listener = std::make_unique<CopyListener>(
            std::move(added.socket),
            CopyListener::Handlers{
                .activation = [this](const std::string& token) { deliver(token); },
                .message = [this](const CopyMessage& message,
                                  const Answer& answer) { hear(message, answer); }});
    }

    void hear(const CopyMessage& message, const Answer& answer)
    {
        if (!messageHandler) {
            pendingMessages.emplace_back(message, answer);
            return;
        }
        const auto callback = messageHandler;
        callback(message, answer);
    }

    void deliver(const std::string& permission)
    {
        if (!handler) {
            pendingPermission = permission;
            return;
        }
        // A copy: the handler may replace itself.
        const auto callback = handler;
        callback(permission);
    }

    void withdrawRegistration()
    {
        if (!listener)
            return;
        ::unlinkat(folder->get(), own->fileName.c_str(), 0);
        listener = nullptr;
        own = std::nullopt;
    }

    const RunningCopiesOptions options;
    std::shared_ptr<const FileDescriptor> folder;
    std::optional<Registration> own;
    std::shared_ptr<RunningApplication> self;
    std::unique_ptr<CopyListener> listener;
    ActivationHandler handler;
    MessageHandler messageHandler;
    std::optional<std::string> pendingPermission; ///< of an activation before there was a handler
    std::vector<std::pair<CopyMessage, Answer>> pendingMessages;
};

} // namespace

std::vector<std::shared_ptr<RunningApplication>>
findRunningCopies(const RunningCopiesOptions& options, std::string& problem)
{
    const auto folder = std::make_shared<FileDescriptor>(
        openRegistrationFolder(options.folders, options.bundleIdentifier, problem));
    std::vector<std::shared_ptr<RunningApplication>> copies;
    if (!folder->isOpen())
        return copies;
    for (Registration& registration : runningRegistrations(folder->get()))
        copies.push_back(
            std::make_shared<OtherCopy>(folder, std::move(registration), options.activationToken));
    return copies;
}

std::unique_ptr<RunningApplications> makeRunningApplications(RunningCopiesOptions options)
{
    return std::make_unique<RunningCopies>(std::move(options));
}

} // namespace quillbox
