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
    /// A time of the boot-time clock: comparable between processes, never set back.
    using LaunchDate = std::chrono::nanoseconds;

    virtual ~RunningApplication() = default;

    /// As that process sees it. In another PID namespace, such as that of another Flatpak, another
    /// process may have the same one.
    virtual std::int64_t processIdentifier() const = 0;

    /// None when it is not known.
    virtual std::optional<LaunchDate> launchDate() const = 0;

    virtual bool isTerminated() const = 0;

    /// Asks that copy to bring all its windows to the front, and waits for its answer, but only
    /// briefly. False if it answers that it has none, because it runs without a display.
    virtual bool activate() = 0;

    /// Sends a message (one line without its newline, at most `kLongestMessage` bytes) and blocks
    /// until the answer arrives. None if there is no answer within `limit`: that copy hangs, is
    /// about to exit, or does not support messages.
    virtual std::optional<std::string> ask(const std::string& message,
                                           std::chrono::milliseconds limit) = 0;

    /// Waits until the process that the last `activate` or `ask` reached has exited, or, where the
    /// kernel does not name that process (before Linux 6.5 one of another PID namespace), until its
    /// registration is gone, which may be a moment earlier; returns whether that happened within
    /// `limit`.
    virtual bool waitForEnd(std::chrono::milliseconds limit) = 0;

    static constexpr std::size_t kLongestMessage = 8192;
    static constexpr std::size_t kLongestAnswer = std::size_t{2} * 1024 * 1024;
};

/// A message from another process of the same user to this copy.
struct CopyMessage {
    std::string text;       ///< one line without its newline
    std::string permission; ///< the sender's activation token from the desktop; may be empty
};

/// The running copies of applications, including this process. Used on the main thread.
class RunningApplications {
public:
    using ActivationHandler = std::function<void(const std::string& permission)>;

    /// Answers a message with one line without its newline, at most `kLongestAnswer` bytes. May be
    /// called at any time on the main thread, even after the sender stopped waiting; only the first
    /// call counts.
    using Answer = std::function<void(const std::string& text)>;
    using MessageHandler = std::function<void(const CopyMessage& message, const Answer& answer)>;

    virtual ~RunningApplications() = default;

    /// This process.
    virtual std::shared_ptr<RunningApplication> current() = 0;

    /// The copies with this identifier, in the order of their registration. This process is one of
    /// them if it is registered, and is then the same object as current().
    virtual std::vector<std::shared_ptr<RunningApplication>>
    runningApplications(const std::string& bundleIdentifier) = 0;

    /// Called on the main thread whenever another copy activates this one, with the activation
    /// token that the desktop gave that copy, or an empty string. Activations that arrive before
    /// the handler is set are delivered as a single one when it is set.
    virtual void setActivationHandler(ActivationHandler handler) = 0;

    /// Called on the main thread with each message to this copy. Messages that arrive before the
    /// handler is set are delivered when it is set. Senders wait for the answer at most 30 seconds.
    virtual void setMessageHandler(MessageHandler handler) = 0;

    /// Unregisters this copy, so that a copy started from now on does not yield to it.
    virtual void withdraw() = 0;
};

} // namespace quillbox
