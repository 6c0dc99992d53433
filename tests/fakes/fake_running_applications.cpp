#include "tests/fakes/fake_running_applications.h"

#include <utility>

namespace quillbox {

FakeRunningApplication::FakeRunningApplication(std::int64_t processIdentifier,
                                               std::optional<LaunchDate> launchDate)
    : identifier(processIdentifier), date(launchDate)
{
}

bool FakeRunningApplication::activate()
{
    ++activations;
    terminated = terminated || terminatesWhenReached;
    return hasDisplay;
}

std::optional<std::string> FakeRunningApplication::ask(const std::string& message,
                                                       std::chrono::milliseconds limit)
{
    asked.push_back(message);
    terminated = terminated || terminatesWhenReached;
    limits.push_back(limit);
    return answers ? answers(message) : std::nullopt;
}

bool FakeRunningApplication::waitForEnd(std::chrono::milliseconds limit)
{
    limits.push_back(limit);
    return endsWhenAsked;
}

std::vector<std::shared_ptr<RunningApplication>>
FakeRunningApplications::runningApplications(const std::string& bundleIdentifier)
{
    if (log)
        log->emplace_back("applications.query");
    questions.push_back(bundleIdentifier);
    return copies[bundleIdentifier];
}

void FakeRunningApplications::setActivationHandler(ActivationHandler newHandler)
{
    if (log)
        log->emplace_back("applications.setActivationHandler");
    handler = std::move(newHandler);
}

void FakeRunningApplications::setMessageHandler(MessageHandler newHandler)
{
    if (log)
        log->emplace_back("applications.setMessageHandler");
    messageHandler = std::move(newHandler);
}

std::shared_ptr<FakeRunningApplication>
FakeRunningApplications::add(const std::string& bundleIdentifier, std::int64_t processIdentifier,
                             std::optional<RunningApplication::LaunchDate> launchDate)
{
    auto copy = std::make_shared<FakeRunningApplication>(processIdentifier, launchDate);
    copies[bundleIdentifier].push_back(copy);
    return copy;
}

} // namespace quillbox
