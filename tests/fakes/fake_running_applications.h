#pragma once

#include "platform/running_applications.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace quillbox {

/// A running copy simulated by a test.
class FakeRunningApplication final : public RunningApplication {
public:
    explicit FakeRunningApplication(const Launch& ownLaunch) : its(ownLaunch) {}

    Launch launch() const override { return its; }
    bool isTerminated() const override { return terminated; }
    bool activate() override;
    std::optional<std::string> ask(const std::string& message,
                                   std::chrono::milliseconds limit) override;
    bool waitForEnd(std::chrono::milliseconds limit) override;

    const Launch its;
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
    static constexpr std::chrono::nanoseconds kOwnLaunchDate{1000};

    Launch launch() const override { return own; }
    std::vector<std::shared_ptr<RunningApplication>> others() override;
    void serve(ActivationHandler activated, MessageHandler told) override;
    void withdraw() override { ++withdrawals; }

    std::shared_ptr<FakeRunningApplication> add(const Launch& launch);

    Launch own{.date = kOwnLaunchDate, .processIdentifier = kOwnProcessIdentifier};
    std::vector<std::shared_ptr<RunningApplication>> copies;
    int questions = 0; ///< how often the others were asked for
    ActivationHandler handler;
    MessageHandler messageHandler;
    std::vector<std::string>* log = nullptr; ///< if set, records calls as "applications.call"
    int withdrawals = 0;
};

} // namespace quillbox
