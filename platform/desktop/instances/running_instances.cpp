#include "platform/desktop/instances/running_instances.h"

#include "platform/desktop/instances/instance_exchange.h"
#include "platform/values/standard_error.h"

#include <optional>
#include <utility>

#include <unistd.h>

namespace quillbox {

namespace {

using Running = std::vector<std::shared_ptr<RunningApplication>>;

class RunningInstances final : public RunningApplications {
public:
    explicit RunningInstances(InstanceOptions chosen) : options(std::move(chosen))
    {
        std::string problem;
        own = addRegistration(options.folders, options.bundleIdentifier, problem);
        if (!own)
            printToStandardError("quillbox-helper: other instances cannot find this one: "
                                 + problem);
    }

    ~RunningInstances() override { RunningInstances::withdraw(); }

    RunningInstances(const RunningInstances&) = delete;
    RunningInstances& operator=(const RunningInstances&) = delete;

    Launch launch() const override
    {
        return own ? own->registration.launch : Launch{.processIdentifier = ::getpid()};
    }

    Running others() override
    {
        std::string problem;
        Running running = findRunningInstances(options, problem);
        if (own)
            std::erase_if(running, [this](const auto& each) { return each->launch() == launch(); });
        return running;
    }

    void serve(ActivationHandler activated, MessageHandler told) override
    {
        if (!own || !own->socket.isOpen())
            return;
        const auto display =
            options.hasDisplay ? instance_protocol::kActivated : instance_protocol::kNoDisplay;
        server = serveInstances(std::move(own->socket),
                                [activated = std::move(activated), told = std::move(told),
                                 display](const auto& request, const AnswerRequest& answer) {
                                    if (request.text) {
                                        told({.text = *request.text, .permission = request.token},
                                             [answer](const std::string& text) {
                                                 answer(instance_protocol::lineOfAnswer(text));
                                             });
                                        return;
                                    }
                                    answer(std::string(display));
                                    activated(request.token);
                                });
    }

    void withdraw() override
    {
        if (!own)
            return;
        removeRegistration(own->registration);
        own->socket.reset();
        server = nullptr;
    }

private:
    const InstanceOptions options;
    std::optional<OwnRegistration> own; ///< nullopt if this process could not be registered
    std::unique_ptr<QObject> server;    ///< null while this copy does not serve
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
