#pragma once

#include "platform/running_applications.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace quillbox {

/// A running copy simulated by a test.
class FakeRunningApplication final : public RunningApplication {
public:
    FakeRunningApplication(std::int64_t processIdentifier, std::optional<LaunchDate> launchDate);

    std::int64_t processIdentifier() const override { return identifier; }
    std::optional<LaunchDate> launchDate() const override { return date; }
    bool isTerminated() const override { return terminated; }
    bool activate() override;
    std::optional<std::string> ask(const std::string& message,
                                   std::chrono::milliseconds limit) override;
    bool waitForEnd(std::chrono::milliseconds limit) override;

    std::int64_t identifier = 0;
    std::optional<LaunchDate> date;
    bool terminated = false;
    bool terminatesWhenReached = false; ///< whether it is about to exit
    bool hasDisplay = true;
    int activations = 0;
    std::vector<std::string> asked;
    std::function<std::optional<std::string>(const std::string&)> answers; ///< null: it hangs
    bool endsWhenAsked = true;
    std::vector<std::chrono::milliseconds> limits; ///< of every wait
};

/// The running copies, set by a test. Initially, only this process runs.
class FakeRunningApplications final : public RunningApplications {
public:
    static constexpr std::int64_t kOwnProcessIdentifier = 500;
    static constexpr RunningApplication::LaunchDate kOwnLaunchDate{1000};

    std::shared_ptr<RunningApplication> current() override { return self; }
    std::vector<std::shared_ptr<RunningApplication>>
    runningApplications(const std::string& bundleIdentifier) override;
    void setActivationHandler(ActivationHandler newHandler) override;
    void setMessageHandler(MessageHandler newHandler) override;
    void withdraw() override { ++withdrawals; }

    /// Appends a copy with that identifier.
    std::shared_ptr<FakeRunningApplication>
    add(const std::string& bundleIdentifier, std::int64_t processIdentifier,
        std::optional<RunningApplication::LaunchDate> launchDate);

    std::shared_ptr<FakeRunningApplication> self =
        std::make_shared<FakeRunningApplication>(kOwnProcessIdentifier, kOwnLaunchDate);
    std::map<std::string, std::vector<std::shared_ptr<RunningApplication>>> copies;
    std::vector<std::string> questions; ///< the identifiers that were queried
    ActivationHandler handler;
    MessageHandler messageHandler;
    std::vector<std::string>* log = nullptr; ///< if set, records calls as "applications.call"
    int withdrawals = 0;
};

} // namespace quillbox
