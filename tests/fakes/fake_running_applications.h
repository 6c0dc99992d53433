#pragma once

#include "platform/running_applications.h"

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace quillbox {

/// A running copy that a test makes up.
class FakeRunningApplication final : public RunningApplication {
public:
    FakeRunningApplication(std::int64_t processIdentifier, std::optional<LaunchDate> launchDate);

    std::int64_t processIdentifier() const override { return identifier; }
    std::optional<LaunchDate> launchDate() const override { return date; }
    bool isTerminated() const override { return terminated; }
    void activate() override { ++activations; }

    std::int64_t identifier = 0;
    std::optional<LaunchDate> date;
    bool terminated = false;
    int activations = 0;
};

/// The running copies, by hand. At first this process runs alone.
class FakeRunningApplications final : public RunningApplications {
public:
    static constexpr std::int64_t kOwnProcessIdentifier = 500;
    static constexpr RunningApplication::LaunchDate kOwnLaunchDate{1000};

    std::shared_ptr<RunningApplication> current() override { return self; }
    std::vector<std::shared_ptr<RunningApplication>>
    runningApplications(const std::string& bundleIdentifier) override;
    void setActivationHandler(ActivationHandler newHandler) override;
    void withdraw() override { ++withdrawals; }

    /// Adds a copy of that identifier behind the others.
    std::shared_ptr<FakeRunningApplication>
    add(const std::string& bundleIdentifier, std::int64_t processIdentifier,
        std::optional<RunningApplication::LaunchDate> launchDate);

    std::shared_ptr<FakeRunningApplication> self =
        std::make_shared<FakeRunningApplication>(kOwnProcessIdentifier, kOwnLaunchDate);
    std::map<std::string, std::vector<std::shared_ptr<RunningApplication>>> copies;
    std::vector<std::string> questions; ///< the identifiers that were asked for
    ActivationHandler handler;
    int withdrawals = 0;
};

} // namespace quillbox
