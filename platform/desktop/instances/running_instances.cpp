#include "platform/desktop/instances/running_instances.h"

#include "platform/desktop/instances/instance_exchange.h"
#include "platform/values/standard_error.h"

#include <QPointer>
#include <chrono>
#include <optional>
#include <utility>

#include <unistd.h>

namespace quillbox {

namespace {

using Running = std::vector<std::shared_ptr<RunningApplication>>;

class ThisInstance final : public RunningApplication {
public:
    explicit ThisInstance(std::optional<LaunchDate> date) : launched(date) {}

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

class RunningInstances final : public QObject, public RunningApplications {
public:
    explicit RunningInstances(InstanceOptions chosen) : options(std::move(chosen))
    {
        std::string problem;
        if (auto added = addRegistration(options.folders, options.bundleIdentifier, problem)) {
            own = std::move(added->registration);
            server = serveInstances(std::move(added->socket),
                                    [this](const instance_protocol::Request& request,
                                           const AnswerRequest& answer) { take(request, answer); });
        } else {
            printToStandardError("quillbox-helper: other instances cannot find this one: "
                                 + problem);
        }
        self = std::make_shared<ThisInstance>(own ? std::optional(own->launchDate) : std::nullopt);
    }

    ~RunningInstances() override { RunningInstances::withdraw(); }

    RunningInstances(const RunningInstances&) = delete;
    RunningInstances& operator=(const RunningInstances&) = delete;

    std::shared_ptr<RunningApplication> current() override { return self; }

    Running runningApplications(const std::string& bundleIdentifier) override
    {
        std::string problem;
        Running running;
        for (Registration& each :
             runningRegistrations(options.folders, bundleIdentifier, problem)) {
            if (own && each.fileName == own->fileName)
                running.push_back(self);
            else
                running.push_back(instanceAt(std::move(each), options.activationToken));
        }
        return running;
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

    void withdraw() override
    {
        if (!server)
            return;
        removeRegistration(*own);
        server = nullptr;
    }

private:
    void take(const instance_protocol::Request& request, const AnswerRequest& answer)
    {
        if (request.text) {
            hear({.text = *request.text, .permission = request.token},
                 [answer](const std::string& text) {
                     answer(instance_protocol::lineOfAnswer(text));
                 });
            return;
        }
        answer(std::string(options.hasDisplay ? instance_protocol::kActivated
                                              : instance_protocol::kNoDisplay));
        deliver(request.token);
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

    const InstanceOptions options;
    std::optional<Registration> own;
    std::shared_ptr<RunningApplication> self;
    std::unique_ptr<QObject> server; ///< null when this process is not registered
    ActivationHandler handler;
    MessageHandler messageHandler;
    std::optional<std::string> pendingPermission; ///< of an activation before there was a handler
    std::vector<std::pair<CopyMessage, Answer>> pendingMessages;
};

} // namespace

Running findRunningInstances(const InstanceOptions& options, std::string& problem)
{
    Running running;
    for (Registration& each :
         runningRegistrations(options.folders, options.bundleIdentifier, problem))
        running.push_back(instanceAt(std::move(each), options.activationToken));
    return running;
}

std::unique_ptr<RunningApplications> makeRunningApplications(InstanceOptions options)
{
    return std::make_unique<RunningInstances>(std::move(options));
}

} // namespace quillbox
