#pragma once

#include <chrono>
#include <cstddef>
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

    /// Sends a message, one line without its end, `kLongestMessage` bytes at the most, and waits
    /// for the answer; the caller does nothing else meanwhile. None when there is none within
    /// `limit`: that copy is stuck or about to end, or understands no messages.
    virtual std::optional<std::string> ask(const std::string& message,
                                           std::chrono::milliseconds limit) = 0;

    /// Waits until the process that answered the last question has ended; gives whether it has
    /// within `limit`.
    virtual bool waitForEnd(std::chrono::milliseconds limit) = 0;

    static constexpr std::size_t kLongestMessage = 8192;
    static constexpr std::size_t kLongestAnswer = std::size_t{2} * 1024 * 1024;
};

/// What another process of this user's asks of this copy.
struct CopyMessage {
    std::string text;       ///< one line without its end
    std::string permission; ///< to come forward, which the desktop gave that process; may be empty
};

/// The running copies of applications, this process among them. Belongs to the main thread.
class RunningApplications {
public:
    using ActivationHandler = std::function<void(const std::string& permission)>;

    /// Answers a message with one line without its end, `kLongestAnswer` bytes at the most. Called
    /// at any time on the main thread, also when nobody waits any more; the first call counts.
    using Answer = std::function<void(const std::string& text)>;
    using MessageHandler = std::function<void(const CopyMessage& message, const Answer& answer)>;

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

    /// Called on the main thread with each message to this copy. Messages that came before a
    /// handler was set are delivered when it is. Who sends one waits for about ten seconds.
    virtual void setMessageHandler(MessageHandler handler) = 0;

    /// Stops counting as running, so that a copy started from now on does not yield to this one.
    virtual void withdraw() = 0;
};

} // namespace quillbox
