#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace quillbox {

/// One running copy of an application.
class RunningApplication {
public:
    /// A point of the boot-time clock: comparable between processes, never set back.
    using LaunchDate = std::chrono::nanoseconds;

    virtual ~RunningApplication() = default;

    virtual std::int64_t processIdentifier() const = 0;

    /// None when it is not known.
    virtual std::optional<LaunchDate> launchDate() const = 0;

    virtual bool isTerminated() const = 0;

    /// Asks that copy to bring all its windows to the front. Waits no longer than a moment for its
    /// answer.
    virtual void activate() = 0;
};

/// The running copies of applications, this process among them. Belongs to the main thread.
class RunningApplications {
public:
    using ActivationHandler = std::function<void(const std::string& permission)>;

    virtual ~RunningApplications() = default;

    /// This process.
    virtual std::shared_ptr<RunningApplication> current() = 0;

    /// The copies with this identifier, in the order of their registration, this one included.
    virtual std::vector<std::shared_ptr<RunningApplication>>
    runningApplications(const std::string& bundleIdentifier) = 0;

    /// Called on the main thread whenever another copy activates this one, with the permission to
    /// come forward that the desktop gave that copy, or nothing. Activations that came before a
    /// handler was set are delivered, as one, when it is.
    virtual void setActivationHandler(ActivationHandler handler) = 0;

    /// Stops counting as running, so that a copy started from now on does not yield to this one.
    virtual void withdraw() = 0;
};

} // namespace quillbox
