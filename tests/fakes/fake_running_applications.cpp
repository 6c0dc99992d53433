#include "tests/fakes/fake_running_applications.h"

#include <utility>

namespace quillbox {

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

std::vector<std::shared_ptr<RunningApplication>> FakeRunningApplications::others()
{
    if (log)
        log->emplace_back("applications.others");
    ++questions;
    return copies;
}

void FakeRunningApplications::serve(ActivationHandler activated, MessageHandler told)
{
    if (log)
        log->emplace_back("applications.serve");
    handler = std::move(activated);
    messageHandler = std::move(told);
}

std::shared_ptr<FakeRunningApplication> FakeRunningApplications::add(const Launch& launch)
{
    auto copy = std::make_shared<FakeRunningApplication>(launch);
    copies.push_back(copy);
    return copy;
}

} // namespace quillbox
