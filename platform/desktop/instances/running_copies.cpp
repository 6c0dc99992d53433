#include "platform/desktop/instances/running_copies.h"

#include "platform/desktop/instances/copy_listener.h"
#include "platform/desktop/instances/copy_request.h"
#include "platform/desktop/instances/local_socket.h"
#include "platform/desktop/instances/registration.h"
#include "platform/standard_error.h"

#include <QPointer>
#include <chrono>
#include <ctime>
#include <map>
#include <optional>
#include <utility>

#include <sys/file.h>
#include <unistd.h>

namespace quillbox {

namespace {

using Clock = std::chrono::steady_clock;

constexpr timespec kBusyPause{.tv_sec = 0, .tv_nsec = 10'000'000};
constexpr std::chrono::milliseconds kActivationLimit{1000};

class ThisProcess final : public RunningApplication {
public:
    explicit ThisProcess(std::optional<LaunchDate> date) : launched(date) {}

    std::int64_t processIdentifier() const override { return ::getpid(); }
    std::optional<LaunchDate> launchDate() const override { return launched; }
    bool isTerminated() const override { return false; }
    bool activate() override { return true; }

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

    bool activate() override
    {
        const auto deadline = Clock::now() + kActivationLimit;
        const FileDescriptor connection = connect(deadline);
        return !connection.isOpen() || requestActivation(connection.get(), token, left(deadline));
    }

    std::optional<std::string> ask(const std::string& message,
                                   std::chrono::milliseconds limit) override
    {
        const auto deadline = Clock::now() + limit;
        const FileDescriptor connection = connect(deadline);
        return connection.isOpen()
                   ? exchangeMessage(connection.get(), token, message, left(deadline))
                   : std::nullopt;
    }

    bool waitForEnd(std::chrono::milliseconds limit) override
    {
        if (process.isOpen())
            return waitForProcess(process.get(), limit);
        const auto deadline = Clock::now() + limit;
        while (!isTerminated()) {
            if (Clock::now() >= deadline)
                return false;
            ::nanosleep(&kBusyPause, nullptr);
        }
        return true;
    }

private:
    FileDescriptor connect(Clock::time_point deadline)
    {
        FileDescriptor connection;
        Reached reached = connectTo(folder->get(), registration.fileName, connection);
        // A non-blocking connect() to a full backlog fails at once, and nothing signals a free
        // slot.
        while (reached == Reached::Busy && Clock::now() < deadline) {
            ::nanosleep(&kBusyPause, nullptr);
            reached = connectTo(folder->get(), registration.fileName, connection);
        }
        // Before anything is sent, which may make the process exit.
        if (connection.isOpen())
            process = processBehind(connection.get());
        return connection;
    }

    static std::chrono::milliseconds left(Clock::time_point deadline)
    {
        return std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    }

    const std::shared_ptr<const FileDescriptor> folder;
    const Registration registration;
    const std::string token;
    FileDescriptor process; ///< a pidfd, set by connect()
};

/// File names begin with the date, so this is the order of registration.
using CopiesByFileName = std::map<std::string, std::shared_ptr<RunningApplication>>;

CopiesByFileName copiesByFileName(const RunningCopiesOptions& options, std::string& problem)
{
    CopiesByFileName copies;
    bool isAnySafe = false;
    for (const std::string& path : registrationFolders(options.folders, options.bundleIdentifier)) {
        const auto folder =
            std::make_shared<FileDescriptor>(openRegistrationFolder(path, IfAbsent::Fail, problem));
        if (!folder->isOpen())
            continue;
        isAnySafe = true;
        for (Registration& each : runningRegistrations(folder->get())) {
            auto& copy = copies[each.fileName];
            copy = std::make_shared<OtherCopy>(folder, std::move(each), options.activationToken);
        }
    }
    if (isAnySafe)
        problem.clear();
    return copies;
}

std::vector<std::shared_ptr<RunningApplication>> inOrder(CopiesByFileName copies)
{
    std::vector<std::shared_ptr<RunningApplication>> list;
    list.reserve(copies.size());
    for (auto& [name, copy] : copies)
        list.push_back(std::move(copy));
    return list;
}

class RunningCopies final : public QObject, public RunningApplications {
public:
    explicit RunningCopies(RunningCopiesOptions chosen) : options(std::move(chosen))
    {
        std::string problem;
        for (const std::string& path :
             registrationFolders(options.folders, options.bundleIdentifier)) {
            if (enlist(path, problem))
                break;
        }
        if (!own)
            printToStandardError("quillbox-helper: other instances cannot find this one: "
                                 + problem);
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
        RunningCopiesOptions asked = options;
        asked.bundleIdentifier = bundleIdentifier;
        auto copies = copiesByFileName(asked, problem);
        const auto found = own ? copies.find(own->fileName) : copies.end();
        if (found != copies.end())
            found->second = self;
        return inOrder(std::move(copies));
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
    /// Registers this process in the folder; false if that fails.
    bool enlist(const std::string& path, std::string& problem)
    {
        folder = openRegistrationFolder(path, IfAbsent::Create, problem);
        if (!folder.isOpen())
            return false;
        auto added = addRegistration(folder.get(), problem);
        if (!added) {
            problem = path + ": " + problem;
            return false;
        }
        // Tools that clean temporary folders, such as systemd-tmpfiles, skip a locked one.
        ::flock(folder.get(), LOCK_SH | LOCK_NB);
        own = std::move(added->registration);
        listener = std::make_unique<CopyListener>(
            std::move(added->socket),
            CopyListener::Handlers{
                .hasDisplay = options.hasDisplay,
                .activation = [this](const std::string& token) { deliver(token); },
                .message = [this](const CopyMessage& message,
                                  const Answer& answer) { hear(message, answer); }});
        return true;
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
        ::unlinkat(folder.get(), own->fileName.c_str(), 0);
        listener = nullptr;
    }

    const RunningCopiesOptions options;
    FileDescriptor folder; ///< in which this process is registered
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
    return inOrder(copiesByFileName(options, problem));
}

std::unique_ptr<RunningApplications> makeRunningApplications(RunningCopiesOptions options)
{
    return std::make_unique<RunningCopies>(std::move(options));
}

} // namespace quillbox
